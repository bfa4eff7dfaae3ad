#include <gtest/gtest.h>

#include "app/transcript/Conversations.h"

namespace bc::app {
namespace {

Chat chat(int64_t id, std::string identifier, std::vector<std::string> participants, int64_t count,
          double lastDate, bool deleted = false) {
    return Chat{.id = id,
                .identifier = std::move(identifier),
                .participants = std::move(participants),
                .messageCount = count,
                .lastDate = Date{lastDate},
                .isDeletedConversation = deleted};
}

// Ana's number and address belong to one contact; everyone else is unknown.
PersonLookup people() {
    return {.identity =
                [](const std::string& handle) {
                    return handle == "+15550100" || handle == "ana@example.com"
                               ? std::string("contact:ANA")
                               : "handle:" + handle;
                },
            .name = [](const std::string& handle) -> std::optional<std::string> {
                if (handle == "+15550100" || handle == "ana@example.com") return "Ana Example";
                return std::nullopt;
            }};
}

TEST(Conversations, OnePersonsChatsBecomeOneEntryInNewestFirstOrder) {
    const auto list =
        groupConversations({chat(3, "+15550100", {"+15550100"}, 5, 300),
                            chat(9, "group9", {"+15550100", "+15550199"}, 7, 250),
                            chat(4, "ana@example.com", {"ana@example.com"}, 2, 100, true),
                            chat(5, "+15550199", {"+15550199"}, 1, 50, true)},
                           people());
    ASSERT_EQ(list.size(), 3u);

    EXPECT_EQ(list[0].title, "Ana Example");
    EXPECT_EQ(list[0].chatIDs, (std::vector<int64_t>{3, 4}));
    EXPECT_EQ(list[0].messageCount, 7);
    EXPECT_EQ(list[0].lastDate, Date{300});
    EXPECT_FALSE(list[0].onlyRecentlyDeleted) << "one of its chats is still there";
    EXPECT_EQ(list[0].eventKey(), "+15550100");

    EXPECT_EQ(list[1].title, "Ana Example, +15550199") << "a group without a name lists people";
    EXPECT_EQ(list[1].chatIDs, (std::vector<int64_t>{9}));

    EXPECT_EQ(list[2].title, "+15550199");
    EXPECT_TRUE(list[2].onlyRecentlyDeleted);
}

TEST(Conversations, ANamedGroupKeepsItsNameAndAChatWithoutPeopleItsIdentifier) {
    auto named = chat(7, "chat777", {"a@example.com", "b@example.com"}, 3, 10);
    named.displayName = "Weekend Crew";
    const auto list = groupConversations({named, chat(8, "chat888", {}, 0, 5)}, people());
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].title, "Weekend Crew");
    EXPECT_EQ(list[1].title, "chat888");
}

TEST(Conversations, AreFoundByNameNumberOrAddressOfAnyoneInThem) {
    const std::vector<Chat> chats = {chat(1, "+15550100", {"+15550100"}, 3, 30),
                                     chat(2, "jo@example.com", {"jo@example.com"}, 2, 20),
                                     chat(3, "chat333", {"+15550177", "ana@example.com"}, 1, 10)};
    const auto list = groupConversations(chats, people());
    ASSERT_EQ(list.size(), 3u);
    const auto found = [&](std::string_view query) {
        return conversationsFound(list, chats, people(), query);
    };
    EXPECT_EQ(found("  "), (std::vector<bool>{true, true, true}));
    EXPECT_EQ(found("ANA ex"), (std::vector<bool>{true, false, true})) << "a member's name";
    EXPECT_EQ(found("(555) 0177"), (std::vector<bool>{false, false, true})) << "digits only";
    EXPECT_EQ(found("JO@EXAMPLE"), (std::vector<bool>{false, true, false}));
    EXPECT_EQ(found("555-0100"), (std::vector<bool>{true, false, false}));
    EXPECT_EQ(found("nobody"), (std::vector<bool>{false, false, false}));
}

}  // namespace
}  // namespace bc::app
