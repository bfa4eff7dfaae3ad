#include "sources/CustodySource.h"

#include "model/MessageSource.h"
#include "support/Errors.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"

namespace bc::custodySource {

namespace fs = std::filesystem;

namespace {

constexpr const char* unreadableHash = "unreadable";

// Hashes the database and, when `withLog` and one is beside it, its write-ahead log; returns the
// names of the files that could not be read.
std::vector<std::string> hashDatabase(const fs::path& database, bool withLog,
                                      CustodyRecord::Source& source) {
    std::vector<std::string> unreadable;
    const auto hashOf = [&](const fs::path& file) -> std::string {
        try {
            return Sha256::hexOfFile(file);
        } catch (const Error&) {
            unreadable.push_back(file.filename().string());
            return unreadableHash;
        }
    };
    source.databaseSHA256 = hashOf(database);
    const fs::path wal = sqlite::writeAheadLog(database);
    std::error_code error;
    if (withLog && fs::exists(wal, error)) source.walSHA256 = hashOf(wal);
    return unreadable;
}

}  // namespace

CustodyRecord::Source ofDatabase(const MessageSource& database, std::string kind) {
    const fs::path path = fs::absolute(database.path());
    CustodyRecord::Source source{.kind = std::move(kind), .path = path.string()};
    const auto unreadable = hashDatabase(path, database.walPredatesOpening(), source);
    if (!unreadable.empty()) {
        std::string names;
        for (const auto& name : unreadable) names += (names.empty() ? "" : " and ") + name;
        source.note = names + " could not be read.";
    }
    return source;
}

CustodyRecord::Source ofSnapshot(const SealedSnapshot& snapshot) {
    const fs::path path = fs::absolute(snapshot.folder / "chat.db");
    CustodyRecord::Source source{
        .kind = "snapshot", .path = path.string(), .snapshotID = snapshot.id};
    hashDatabase(path, true, source);
    source.note =
        source.databaseSHA256 == snapshot.databaseSHA256
            ? "Matches the SHA-256 recorded when the snapshot was sealed."
            : "WARNING: differs from the SHA-256 recorded when the snapshot was sealed (" +
                  snapshot.databaseSHA256 + ")";
    return source;
}

}  // namespace bc::custodySource
