#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/CustodySystemInfo.h"
#include "support/Date.h"

namespace bc {

// The sealed snapshot an export reads from: its id, its folder, and the database hash
// recorded when it was sealed.
struct SealedSnapshot {
    std::string id;
    std::filesystem::path folder;
    std::string databaseSHA256;
};

// One entry of the custody log. Plain data: the log's operations live in custody/.
struct CustodyRecord {
    struct Source {
        std::string kind;
        std::string path;
        std::optional<std::string> snapshotID;
        std::string databaseSHA256;
        std::optional<std::string> walSHA256;
        std::optional<std::string> note;

        bool operator==(const Source&) const = default;
    };

    struct Output {
        std::string path;
        int64_t bytes = 0;
        std::string sha256;

        bool operator==(const Output&) const = default;
    };

    std::string id;
    Date createdAt;
    std::string action;
    std::string format;
    std::string title;
    std::vector<std::string> participants;
    std::vector<int64_t> chatIDs;
    std::string rangeDescription;
    int64_t messageCount = 0;
    int64_t attachmentCount = 0;
    std::optional<int64_t> pageCount;
    std::map<std::string, std::string> options;
    Source source;
    std::vector<Output> outputs;
    CustodySystemInfo system;
    std::string previousRecordSHA256;
    std::string recordSHA256;

    bool operator==(const CustodyRecord&) const = default;
};

}  // namespace bc
