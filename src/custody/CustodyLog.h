#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/CustodyRecord.h"
#include "support/Json.h"

namespace bc {

class MessageSource;

// The append-only, hash-chained custody log "custody-log.jsonl": one compact JSON record per
// line, each carrying the SHA-256 of the line before it. Stateless: every call reads the file
// afresh.
class CustodyLog {
public:
    struct ChainCheck {
        int64_t records = 0;                 // non-empty lines
        std::optional<int64_t> firstBroken;  // zero-based line index
        bool isIntact() const { return !firstBroken; }
        bool operator==(const ChainCheck&) const = default;
    };

    // The log file: the override when set (demo mode, command line, tests), else the default
    // under the application data folder.
    static std::filesystem::path url();
    static void setOverrideURL(std::optional<std::filesystem::path> location);

    // Chains the record to the last decodable line and writes it as the new last line, synced.
    // Returns the record exactly as written. Safe across threads and processes; on failure the
    // lines already there are left as they were.
    static CustodyRecord append(CustodyRecord record);
    // Every decodable record in file order; undecodable lines are skipped.
    static std::vector<CustodyRecord> readAll();
    // Throws only when the file exists but cannot be read.
    static ChainCheck verify();
    // SHA-256 of the record's compact JSON with `recordSHA256` emptied.
    static std::string hash(const CustodyRecord& record);

    // The files of one product: a file, a folder with "checksums.txt", or a plain folder.
    static std::vector<CustodyRecord::Output> outputs(const std::filesystem::path& product);

    // What an export or snapshot read: the sealed snapshot it reads from, else what the source
    // says of itself; either re-hashed now.
    static CustodyRecord::Source source(const MessageSource& database,
                                        const std::optional<SealedSnapshot>& snapshot);

    static std::string describe(std::string_view kind,
                                const std::optional<std::string>& snapshotID);

    // The verify result as the user reads it; verifyReport() also words a read failure.
    static std::string describe(const ChainCheck& check);
    static std::string verifyReport();
};

// The one JSON form of records, shared by the log lines and their hashes.
void to_json(Json& j, const CustodySystemInfo& info);
void from_json(const Json& j, CustodySystemInfo& info);
void to_json(Json& j, const CustodyRecord::Source& source);
void from_json(const Json& j, CustodyRecord::Source& source);
void to_json(Json& j, const CustodyRecord::Output& output);
void from_json(const Json& j, CustodyRecord::Output& output);
void to_json(Json& j, const CustodyRecord& record);
void from_json(const Json& j, CustodyRecord& record);

}  // namespace bc
