#include "evidence/Search.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "testing/Scoped.h"
#include "testing/SourceDouble.h"

namespace bc {
namespace {

using ::testing::ElementsAre;
using testing::utc;

Message message(int64_t chatID, int64_t id, const std::string& text, const std::string& date) {
    Message m;
    m.id = id;
    m.guid = "G-" + std::to_string(id);
    m.chatID = chatID;
    m.text = text;
    m.date = utc(date.c_str());
    return m;
}

Attachment attachment(const std::string& name, bool hidden = false) {
    return {.path = "/a/" + name, .name = name, .isHidden = hidden, .guid = "A-" + name};
}

// Conversations held in memory, counting how often it is read.
class MemorySource : public testing::SourceDouble {
public:
    MemorySource() : SourceDouble("/memory/chat.db", true) {}

    std::map<int64_t, std::vector<Message>> chats;
    std::string signature = "1";
    int listings = 0;
    bool failing = false;

    std::vector<Chat> fetchChats() override {
        ++listings;
        if (failing) throw DBError::query("disk I/O error");
        std::vector<Chat> list;
        for (const auto& [id, messages] : chats) list.push_back({.id = id});
        return list;
    }
    // A message in several of the chats is listed once, as the readers list it.
    Transcript fetchTranscript(const std::vector<int64_t>& ids) override {
        Transcript transcript;
        std::set<int64_t> listed;
        for (const int64_t id : ids)
            for (const auto& m : chats.at(id))
                if (listed.insert(m.id).second) transcript.messages.push_back(m);
        return transcript;
    }
    std::string changeSignature() override { return signature; }
};

std::vector<int64_t> ids(const std::vector<Message>& messages) {
    std::vector<int64_t> result;
    for (const auto& m : messages) result.push_back(m.id);
    return result;
}

class SearchTest : public ::testing::Test {
protected:
    void SetUp() override {
        auto edited = message(1, 11, "see you there", "2024-03-02T10:00:00Z");
        edited.isEdited = true;
        edited.editHistory = {{0, edited.date, "meet me at the café"},
                              {1, edited.date, std::nullopt}};
        auto contract = message(1, 12, "", "2024-03-03T10:00:00Z");
        contract.attachments = {attachment("Contract.pdf"), attachment("secret-plan.png", true)};
        auto mine = message(1, 13, "ÉCOLE closes early", "2024-03-04T23:30:00Z");
        mine.isFromMe = true;
        auto unsent = message(1, 14, "ecole without accent", "2024-03-05T10:00:00Z");
        unsent.isUnsent = true;
        source.chats[1] = {edited, contract, mine, unsent};
        // The same person's other chat, and a group that repeats one of its messages.
        source.chats[2] = {
            message(2, 21, "decomposed e\u0301cole and .*( too", "2024-03-01T10:00:00Z")};
        auto shared = message(3, 21, "decomposed e\u0301cole and .*( too", "2024-03-01T10:00:00Z");
        source.chats[3] = {shared, message(3, 31, "the photo", "2024-03-06T10:00:00Z")};
        source.chats[3][1].attachments = {attachment("IMG_1.heic")};
    }

    SearchOutcome search(SearchQuery query, std::vector<int64_t> chats = {},
                         const MachineTextLookup& machineText = {}) {
        const auto index = searches.index(source, cancel, {});
        return runSearch(source, *index, query, chats, machineText, cancel);
    }
    std::vector<int64_t> found(SearchQuery query, std::vector<int64_t> chats = {}) {
        return ids(search(std::move(query), std::move(chats)).messages);
    }

    MemorySource source;
    Searches searches;
    CancelFlag cancel;
};

TEST(SearchQueryTest, OnlyWhiteSpaceAndNoFilterIsEmpty) {
    EXPECT_TRUE(SearchQuery{.text = " \n\t "}.isEmpty());
    EXPECT_FALSE(SearchQuery{.text = " x "}.isEmpty());
    EXPECT_FALSE((SearchQuery{.text = " ", .deletedOnly = true}.isEmpty()));
    EXPECT_FALSE(SearchQuery{.sender = SearchQuery::Sender::others}.isEmpty());
    EXPECT_EQ(SearchQuery{.text = "\n a b \r\n"}.trimmedText(), "a b");
    for (const auto sender : searchSender::allCases)
        EXPECT_EQ(searchSender::named(searchSender::rawValue(sender)), sender);
    EXPECT_EQ(searchSender::named("nobody"), std::nullopt);
}

TEST_F(SearchTest, CaseFoldsButDiacriticsCountAndCompositionDoesNot) {
    EXPECT_EQ(foldForSearch("ÉCOLE Straße"), foldForSearch("école strasse"));
    EXPECT_NE(foldForSearch("école"), foldForSearch("ecole"));
    EXPECT_THAT(found({.text = "É"}), ElementsAre(21, 11, 13));  // composed and decomposed é alike
    EXPECT_THAT(found({.text = "ecole"}), ElementsAre(14));
}

TEST_F(SearchTest, EarlierVersionsAndVisibleAttachmentNamesMatch) {
    EXPECT_THAT(found({.text = "CAFÉ"}), ElementsAre(11));
    EXPECT_THAT(found({.text = "contract", .attachmentsOnly = true}), ElementsAre(12));
    EXPECT_TRUE(found({.text = "secret-plan"}).empty());  // a hidden attachment's name
    EXPECT_TRUE(found({.text = "see you", .attachmentsOnly = true}).empty());
}

TEST_F(SearchTest, FiltersChooseChatsDaysSenderAndDeletedRows) {
    // A chat with its related chats; a message in two chats is listed once.
    EXPECT_THAT(found({.text = "cole"}, {1, 2}), ElementsAre(21, 13, 14));
    EXPECT_THAT(found({.text = "cole"}), ElementsAre(21, 13, 14));
    // Days of New York, where tests run; the last one is included whole, as exports count it.
    EXPECT_THAT(
        found({.from = utc("2024-03-03T05:00:00Z"), .to = utc("2024-03-04T05:00:00Z")}, {1}),
        ElementsAre(12, 13));
    EXPECT_THAT(found({.text = "cole", .sender = SearchQuery::Sender::me}), ElementsAre(13));
    EXPECT_THAT(found({.text = "cole", .sender = SearchQuery::Sender::others}),
                ElementsAre(21, 14));
    EXPECT_THAT(found({.deletedOnly = true}), ElementsAre(14));
}

TEST_F(SearchTest, OddQueriesArePlainText) {
    EXPECT_THAT(found({.text = ".*("}), ElementsAre(21));
    for (const std::string& text : {std::string(10'000, 'q'), std::string("\u0301\u0301"),
                                    std::string("שלום"), std::string("👩‍👩‍👧")})
        EXPECT_TRUE(found({.text = text}).empty()) << text;
}

TEST_F(SearchTest, MachineTextIsSearchedOnlyWhenAskedAndWhenThereIsSome) {
    const MachineTextLookup lookup = [](const Attachment& a) -> std::optional<std::string> {
        if (a.name == "IMG_1.heic") return "PARKING TICKET";
        return std::nullopt;
    };
    EXPECT_TRUE(search({.text = "ticket"}, {}, lookup).messages.empty());
    EXPECT_THAT(ids(search({.text = "ticket", .includeMachineText = true}, {}, lookup).messages),
                ElementsAre(31));
    const auto without = search({.text = "ticket", .includeMachineText = true});
    EXPECT_TRUE(without.messages.empty());
    EXPECT_TRUE(without.notice);
}

TEST_F(SearchTest, TheIndexIsReadOnceUntilTheSourceChanges) {
    found({.text = "cole"});
    found({.text = "photo"});
    EXPECT_EQ(source.listings, 1);
    source.chats[3][1].text = "the new photo of the school";
    source.signature = "2";
    EXPECT_THAT(found({.text = "school"}), ElementsAre(31));
    EXPECT_EQ(source.listings, 2);
}

TEST_F(SearchTest, AFailureNamesTheSearchAndKeepsEarlierResults) {
    const auto first = searches.begin({.text = "cole"});
    ASSERT_TRUE(searches.finish(first, search(first.query)));
    source.failing = true;
    source.signature = "2";
    const auto second = searches.begin({.text = "photo"});
    try {
        search(second.query);
        FAIL() << "a failing source must fail the search";
    } catch (const Error& error) {
        EXPECT_EQ(searches.fail(second, error.what()), "Search failed: disk I/O error");
    }
    EXPECT_FALSE(searches.isSearching());
    EXPECT_THAT(ids(searches.searchResults()), ElementsAre(21, 13, 14));
    EXPECT_EQ(searches.lastSearchQuery(), first.query);
}

TEST_F(SearchTest, ANewerSearchWinsOverAnOlderOneThatFinishesLast) {
    const auto older = searches.begin({.text = "cole"});
    const auto newer = searches.begin({.text = "photo"});
    EXPECT_TRUE(searches.finish(newer, search(newer.query)));
    EXPECT_FALSE(searches.finish(older, search(older.query)));
    EXPECT_FALSE(searches.fail(older, "Search failed: late"));
    EXPECT_THAT(ids(searches.searchResults()), ElementsAre(31));
    EXPECT_EQ(searches.lastSearchQuery(), newer.query);
    EXPECT_FALSE(searches.isSearching());
}

}  // namespace
}  // namespace bc
