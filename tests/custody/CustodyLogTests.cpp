#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include <gmock/gmock.h>

#include "custody/CustodyLog.h"
#include "custody/CustodyLogTesting.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Sha256.h"
#include "support/Uuid.h"

namespace bc::testing {
namespace {

namespace fs = std::filesystem;

std::string joinLines(const std::vector<std::string>& lines) {
    std::string out;
    for (const auto& line : lines) out += line + "\n";
    return out;
}

// Old logs must keep verifying, so the exact bytes of a line are part of the contract.
TEST(CustodyLogJson, LineIsCompactSortedAndOmitsAbsentOptionals) {
    CustodyRecord record = sampleRecord();
    record.id = "0f8e3c2a-5b1d-4e6f-9a7b-1c2d3e4f5a6b";
    record.pageCount.reset();
    record.source.walSHA256.reset();
    record.recordSHA256 = "ignored";
    const std::string expected =
        R"j({"action":"export","attachmentCount":2,"chatIDs":[7,-3],"createdAt":"2024-03-05T14:07:09Z",)j"
        R"j("format":"PDF","id":"0F8E3C2A-5B1D-4E6F-9A7B-1C2D3E4F5A6B","messageCount":12,)j"
        R"j("options":{"Calls included":"Yes"},"outputs":[{"bytes":1234,"path":"/tmp/out/Alex.pdf",)j"
        R"j("sha256":"cccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccccc"}],)j"
        R"j("participants":["Alex Doe","Zoë Quinn"],"previousRecordSHA256":"",)j"
        R"j("rangeDescription":"Entire conversation","recordSHA256":"",)j"
        R"j("source":{"databaseSHA256":"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",)j"
        R"j("kind":"live","path":"/Users/alex/Library/Messages/chat.db"},)j"
        R"j("system":{"appVersion":"dev (0)","host":"Alex's MacBook","macOS":"Version 14.2.1 (Build 23C71)",)j"
        R"j("model":"Mac14,2","user":"Alex Doe"},"title":"Alex Doe"})j";
    EXPECT_EQ(CustodyLog::hash(record), Sha256::hex(expected));
    record.recordSHA256.clear();
    EXPECT_EQ(json::encodeCompact(Json(record)), expected);
}

TEST(CustodyLogJson, DecodingRejectsWhatWouldNotReencodeTheSame) {
    CustodyRecord record = sampleRecord();
    const Json good = Json(record);
    EXPECT_EQ(good.get<CustodyRecord>().pageCount, 3);
    const std::vector<std::function<void(Json&)>> edits = {
        [](Json& j) { j["id"] = "0f8e3c2a-5b1d-4e6f-9a7b-1c2d3e4f5a6b"; },
        [](Json& j) { j["messageCount"] = 12.5; },
        [](Json& j) {
            j["chatIDs"] = Json::array({7, "3"});
        },
        [](Json& j) { j["options"]["Calls included"] = true; },
        [](Json& j) { j["createdAt"] = "yesterday"; },
        // The same instant spelt otherwise: it would re-encode, and hash, as something else.
        [](Json& j) { j["createdAt"] = "2024-03-05T14:07:09.9Z"; },
        [](Json& j) { j["createdAt"] = "2024-03-05T15:07:09+01:00"; },
        [](Json& j) { j["createdAt"] = "2024-03-05T14:07:09.000Z"; },
        [](Json& j) { j["source"].erase("path"); },
        [](Json& j) { j["outputs"][0]["bytes"] = 18446744073709551615ULL; },
    };
    for (size_t i = 0; i < edits.size(); ++i) {
        Json edited = good;
        edits[i](edited);
        EXPECT_ANY_THROW(edited.get<CustodyRecord>()) << "edit " << i;
    }
}

using CustodyLogAppend = CustodyLogTest;

TEST_F(CustodyLogAppend, FirstAppendCreatesFolderAndFileThenChains) {
    const auto first = CustodyLog::append(sampleRecord("bad \xff byte"));
    EXPECT_EQ(first.title, "bad \xEF\xBF\xBD byte") << "text that is not UTF-8 is repaired";
    EXPECT_EQ(first.previousRecordSHA256, "");
    EXPECT_EQ(first.recordSHA256, CustodyLog::hash(first));
    EXPECT_EQ(first.createdAt, Date::fromUnix(1709647629)) << "returned as written";

    CustodyRecord second = sampleRecord("two");
    second.previousRecordSHA256 = "caller's value is replaced";
    const auto written = CustodyLog::append(second);
    EXPECT_EQ(written.previousRecordSHA256, first.recordSHA256);

    EXPECT_EQ(CustodyLog::readAll(), (std::vector<CustodyRecord>{first, written}));
    EXPECT_EQ(CustodyLog::verify(), (CustodyLog::ChainCheck{.records = 2}));
}

TEST_F(CustodyLogAppend, ClosesATornLineAndChainsToTheLastGoodRecord) {
    const auto good = CustodyLog::append(sampleRecord("good"));
    const std::string content = files::readFile(logFile);
    const std::string torn = content.substr(0, content.size() / 2);
    writeText(logFile, content + "garbage\n\n" + torn);

    const auto next = CustodyLog::append(sampleRecord("next"));
    EXPECT_EQ(next.previousRecordSHA256, good.recordSHA256);
    const auto lines = splitLines(files::readFile(logFile));
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[3], torn);
    EXPECT_EQ(CustodyLog::readAll(), (std::vector<CustodyRecord>{good, next}));
    EXPECT_EQ(CustodyLog::verify(), (CustodyLog::ChainCheck{.records = 4, .firstBroken = 1}));
}

// The previous hash is found by reading backwards in blocks; lines longer than a block must
// still be found whole.
TEST_F(CustodyLogAppend, FindsThePreviousRecordAcrossReadBlocks) {
    const auto big = CustodyLog::append(sampleRecord(std::string(300'000, 'x')));
    std::string content = files::readFile(logFile);
    writeText(logFile, content + std::string(200'000, '{') + "\n");
    const auto next = CustodyLog::append(sampleRecord());
    EXPECT_EQ(next.previousRecordSHA256, big.recordSHA256);
    EXPECT_EQ(CustodyLog::readAll().size(), 2u);
}

TEST_F(CustodyLogAppend, FailuresLeaveTheLogAsItWas) {
    CustodyLog::append(sampleRecord());
    const std::string before = files::readFile(logFile);

    CustodyRecord unwritable = sampleRecord();
    unwritable.id = "not a UUID";
    EXPECT_THROW(CustodyLog::append(unwritable), Error);
    EXPECT_EQ(files::readFile(logFile), before);

    writeText(dir / "plain-file", "x");
    CustodyLog::setOverrideURL(dir / "plain-file/Kestrove/custody-log.jsonl");
    try {
        CustodyLog::append(sampleRecord());
        FAIL() << "append into a folder that cannot be created";
    } catch (const Error& e) {
        EXPECT_THAT(e.what(), ::testing::StartsWith("Couldn't create the custody log's folder"));
    }

    CustodyLog::setOverrideURL(dir.path());
    EXPECT_THROW(CustodyLog::append(sampleRecord()), Error) << "a folder is not a log file";
}

TEST_F(CustodyLogAppend, AFailedWriteIsCutBackOff) {
    CustodyLog::append(sampleRecord("kept"));
    const std::string before = files::readFile(logFile);
    // A file-size limit just past the current end makes the next write stop halfway.
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{before.size() + 40, before.size() + 40};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        try {
            CustodyLog::append(sampleRecord("lost"));
        } catch (const Error& e) {
            ::_exit(std::string(e.what()).starts_with("Couldn't write to the custody log: ") ? 0
                                                                                             : 2);
        }
        ::_exit(1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(files::readFile(logFile), before);
    EXPECT_EQ(CustodyLog::append(sampleRecord("after")).title, "after");
    EXPECT_TRUE(CustodyLog::verify().isIntact());
}

class CustodyLogVerify : public CustodyLogTest {
protected:
    // A chain of four records, as lines.
    std::vector<std::string> chain() {
        for (const char* title : {"first", "second", "third", "fourth"})
            CustodyLog::append(sampleRecord(title));
        return splitLines(files::readFile(logFile));
    }

    // Each case gets a fresh file: rewriting one in place makes the file system flush each time.
    void useLog(const std::string& content) {
        const auto file = dir / ("case-" + std::to_string(cases_++) + ".jsonl");
        writeText(file, content);
        CustodyLog::setOverrideURL(file);
    }

private:
    int cases_ = 0;
};

// Byte offsets inside JSON values (string contents and numbers), never keys or punctuation.
std::vector<size_t> valueBytes(const std::string& line) {
    std::vector<size_t> positions;
    size_t i = 0;
    while (i < line.size()) {
        if (line[i] == '"') {
            size_t end = i + 1;
            while (line[end] != '"') end += line[end] == '\\' ? 2 : 1;
            if (line[end + 1] != ':')
                for (size_t k = i + 1; k < end; ++k) positions.push_back(k);
            i = end + 1;
        } else {
            if (line[i] == '-' || (line[i] >= '0' && line[i] <= '9')) positions.push_back(i);
            ++i;
        }
    }
    return positions;
}

char changed(char c) {
    if (c >= '0' && c <= '9') return static_cast<char>('0' + (c - '0' + 1) % 10);
    return c == 'A' ? 'B' : 'A';
}

TEST_F(CustodyLogVerify, DetectsEveryTamperingAtTheRecordItHits) {
    const auto lines = chain();
    struct Case {
        std::string name;
        std::vector<std::string> lines;
        int64_t records;
        std::optional<int64_t> firstBroken;
    };
    std::vector<Case> cases{{"untouched", lines, 4, std::nullopt},
                            {"first line deleted", {lines[1], lines[2], lines[3]}, 3, 0},
                            {"middle line deleted", {lines[0], lines[2], lines[3]}, 3, 1},
                            {"lines swapped", {lines[0], lines[2], lines[1], lines[3]}, 4, 1},
                            {"last two swapped", {lines[0], lines[1], lines[3], lines[2]}, 4, 2},
                            {"line repeated", {lines[0], lines[1], lines[1], lines[2]}, 4, 2}};
    for (size_t index = 0; index < lines.size(); ++index) {
        for (const size_t byte : valueBytes(lines[index])) {
            auto edited = lines;
            edited[index][byte] = changed(edited[index][byte]);
            cases.push_back({"line " + std::to_string(index) + " byte " + std::to_string(byte),
                             edited, 4, static_cast<int64_t>(index)});
        }
    }
    ASSERT_GT(cases.size(), 4 * 300u) << "every value byte of every line is tried";
    for (const auto& c : cases) {
        useLog(joinLines(c.lines));
        EXPECT_EQ(CustodyLog::verify(),
                  (CustodyLog::ChainCheck{.records = c.records, .firstBroken = c.firstBroken}))
            << c.name;
    }
}

TEST_F(CustodyLogVerify, BadLinesBreakTheChainWhereTheyStand) {
    const auto lines = chain();
    const std::string half = lines[2].substr(0, lines[2].size() / 2);
    struct Case {
        const char* name;
        std::string content;
        CustodyLog::ChainCheck expected;
        size_t readable;
    };
    const std::vector<Case> cases{
        {"blank lines", "\n\n" + lines[0] + "\n\n\n" + lines[1] + "\n\n", {2, std::nullopt}, 2},
        {"no final line feed", lines[0] + "\n" + lines[1], {2, std::nullopt}, 2},
        {"garbage", lines[0] + "\nnot json\n" + lines[1] + "\n", {3, 1}, 2},
        {"JSON but no record", lines[0] + "\n{\"id\":1}\n" + lines[1] + "\n", {3, 1}, 2},
        {"JSON array", "[1,2]\n" + lines[0] + "\n", {2, 0}, 1},
        {"not UTF-8", lines[0] + "\n\xff\xfe\xfd\n", {2, 1}, 1},
        {"torn last line", joinLines({lines[0], lines[1]}) + half, {3, 2}, 2},
        {"empty file", "", {0, std::nullopt}, 0},
    };
    for (const auto& c : cases) {
        useLog(c.content);
        EXPECT_EQ(CustodyLog::verify(), c.expected) << c.name;
        EXPECT_EQ(CustodyLog::readAll().size(), c.readable) << c.name;
    }
}

TEST_F(CustodyLogVerify, MissingLogIsEmptyAndUnreadableLogFails) {
    EXPECT_EQ(CustodyLog::verify(), CustodyLog::ChainCheck{});
    EXPECT_TRUE(CustodyLog::readAll().empty());
    EXPECT_EQ(CustodyLog::verifyReport(), "The custody log is empty.");

    fs::create_directories(logFile);
    EXPECT_THROW(CustodyLog::verify(), Error);
    EXPECT_THROW(CustodyLog::readAll(), Error);
    EXPECT_THAT(CustodyLog::verifyReport(),
                ::testing::StartsWith("Couldn't read the custody log: "));
    EXPECT_EQ(CustodyLog::describe(CustodyLog::ChainCheck{.records = 5, .firstBroken = 0}),
              "WARNING: custody log broken at record 1 of 5.");
}

}  // namespace
}  // namespace bc::testing
