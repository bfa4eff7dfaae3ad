#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "custody/CustodyLog.h"
#include "testing/Testing.h"

namespace bc {

inline void PrintTo(const CustodyLog::ChainCheck& check, std::ostream* out) {
    *out << "{records " << check.records << ", firstBroken "
         << (check.firstBroken ? std::to_string(*check.firstBroken) : "none") << "}";
}

}  // namespace bc

namespace bc::testing {

// A record as a caller would hand it to append: every field filled, both hashes empty.
inline CustodyRecord sampleRecord(const std::string& title = "Alex Doe") {
    CustodyRecord record;
    record.id = "0F8E3C2A-5B1D-4E6F-9A7B-1C2D3E4F5A6B";
    record.createdAt = Date::fromUnix(1709647629.75);  // 2024-03-05T14:07:09.75Z
    record.action = "export";
    record.format = "PDF";
    record.title = title;
    record.participants = {"Alex Doe", "Zoë Quinn"};
    record.chatIDs = {7, -3};
    record.rangeDescription = "Entire conversation";
    record.messageCount = 12;
    record.attachmentCount = 2;
    record.pageCount = 3;
    record.options = {{"Calls included", "Yes"}};
    record.source = {.kind = "live",
                     .path = "/Users/alex/Library/Messages/chat.db",
                     .databaseSHA256 = std::string(64, 'a'),
                     .walSHA256 = std::string(64, 'b')};
    record.outputs = {{.path = "/tmp/out/Alex.pdf", .bytes = 1234, .sha256 = std::string(64, 'c')}};
    record.system = {.appVersion = "dev (0)",
                     .macOS = "Version 14.2.1 (Build 23C71)",
                     .model = "Mac14,2",
                     .host = "Alex's MacBook",
                     .user = "Alex Doe"};
    return record;
}

// The lines of a text; a last line without its line feed is kept.
inline std::vector<std::string> splitLines(const std::string& content) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < content.size();) {
        const size_t end = content.find('\n', start);
        lines.push_back(content.substr(start, end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return lines;
}

// Points the custody log at a fresh temporary file for the test, and back afterwards.
class CustodyLogTest : public ::testing::Test {
protected:
    void SetUp() override { CustodyLog::setOverrideURL(logFile); }
    void TearDown() override { CustodyLog::setOverrideURL(std::nullopt); }

    TempDir dir;
    const std::filesystem::path logFile = dir / "Kestrove/custody-log.jsonl";
};

}  // namespace bc::testing
