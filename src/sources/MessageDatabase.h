#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/CustodyRecord.h"
#include "model/MessageSource.h"

namespace bc {

class CancelFlag;

namespace sqlite {
class Connection;
}

// Reads the Messages database (chat.db) strictly read-only. One connection per object; every
// public operation holds a recursive lock, so any thread may call and an operation may call
// another. Failures throw DBError: accessDenied when the file can't be opened or read,
// query when a statement fails. Optional tables and columns of older databases are probed once
// and left out of the statements.
class MessageDatabase : public MessageSource {
public:
    // (expanded stored path, attachment row id) -> the path to read; a snapshot points into its
    // copy.
    using PathMapper = std::function<std::string(const std::string& path, int64_t attachmentID)>;

    // Where the file comes from decides how it is opened and how custody records name it.
    enum class Origin {
        live,        // the signed-in user's own, read in place as Messages shares it
        demoSample,  // the generated sample of demo mode, standing in for the live one
        chosenFile,  // a file the user pointed at, whose folder is left exactly as it was
        sealedCopy,  // a snapshot's copy, opened as a "file:…?immutable=1" URI
    };
    // The live database at its own path, any other file as chosen by the user.
    static Origin originOf(const std::filesystem::path& path);

    // sealed: the snapshot this file belongs to, named as the custody source.
    explicit MessageDatabase(const std::filesystem::path& path,
                             std::optional<Origin> origin = std::nullopt,
                             PathMapper pathMapper = {},
                             std::optional<SealedSnapshot> sealed = std::nullopt);
    ~MessageDatabase() override;

    // The signed-in user's live database: ~/Library/Messages/chat.db.
    static std::filesystem::path defaultPath();
    static constexpr const char* description = "the macOS Messages database (read-only)";
    // Pages are read through a memory map of the file: reading every conversation one by one
    // visits most pages once per conversation, and copying each into the engine's cache cost a
    // quarter of the time. The engine caps it at its own limit.
    static constexpr const char* mapPragma = "PRAGMA mmap_size = 2147418112";

    MessageService service() const override { return MessageService::iMessage; }
    std::string path() const override { return path_.string(); }
    std::string sourceDescription() const override { return description; }
    bool isLive() const override;
    std::vector<Chat> fetchChats() override;
    Transcript fetchTranscript(const std::vector<int64_t>& chatIDs) override;
    std::optional<std::pair<Date, Date>> dateRange(const std::vector<int64_t>& chatIDs) override;
    std::string changeSignature() override;
    // The sealed snapshot it belongs to; else "live", "demo" or "files" by its origin.
    CustodyRecord::Source custodySource() const override;
    bool walPredatesOpening() const override { return walPredatesOpening_; }
    // A number that differs between two calls exactly when another connection committed a change
    // in between: tells whether two separate reads saw the same state of the database.
    int64_t dataVersion();

    // The newest `rows` rows (messages and reactions) of those conversations, read as
    // fetchTranscript reads them: the end of a long conversation, shown while the whole is read.
    Transcript fetchRecentRows(const std::vector<int64_t>& chatIDs, size_t rows);
    // The participants' handles of those conversations, in row order.
    std::vector<std::string> handles(const std::vector<int64_t>& chatIDs);
    // (attachment row id, stored path with "~" expanded): always the live files, never mapped.
    // No list means every attachment of the database.
    std::vector<std::pair<int64_t, std::string>> attachmentPaths(
        const std::optional<std::vector<int64_t>>& chatIDs = std::nullopt);
    int64_t messageRowCount();
    // Reactions are not messages and never count.
    std::optional<Date> newestMessageDate();
    // Consistent online copy of the whole database into a new self-contained file. Holds the
    // lock for the whole run, so reads wait for it.
    void backup(const std::filesystem::path& destination, const CancelFlag* cancel);

    // Runs body under the reader's lock, so several reads see one consistent state.
    template <typename Body>
    auto snapshot(Body&& body) {
        std::lock_guard guard(lock_);
        return body();
    }

private:
    void probeAccess();
    std::string idsPrefix(const std::string& idList);
    std::string membershipTable(const std::string& name, const std::string& idList);
    std::string recentIDsPrefix(const std::string& idList, size_t rows);
    Transcript readTranscript(const std::string& prefix, const std::string& idList);
    std::string optionalColumn(const std::string& table, const std::string& alias,
                               const std::string& column, const std::string& fallback);
    std::string messageColumn(const std::string& column, const std::string& fallback);
    std::string memberIDs(const std::string& ids, const std::string& combine);
    std::vector<std::pair<int64_t, Attachment>> readAttachments(const std::string& prefix);
    std::vector<std::pair<int64_t, std::vector<RecoveredPart>>> readRecoveredParts(
        const std::string& idList);
    std::string signatureByStatements();

    // What moves whenever the database may have changed: the engine's data version and the
    // sizes and modification times of the file and its write-ahead log.
    struct FileStamps {
        int64_t dataVersion = 0;
        std::optional<std::pair<uintmax_t, std::filesystem::file_time_type>> database, log;
        bool operator==(const FileStamps&) const = default;
    };
    FileStamps fileStamps();

    std::unique_ptr<sqlite::Connection> db_;
    PathMapper pathMapper_;
    std::optional<SealedSnapshot> sealed_;
    std::filesystem::path path_;
    Origin origin_;
    bool walPredatesOpening_ = false;
    // The last signature and the stamps it was read under: the window asks every few seconds.
    std::optional<std::pair<FileStamps, std::string>> lastSignature_;
    mutable std::recursive_mutex lock_;
};

// Decimal ids joined by ",", the only way ids enter a statement.
std::string idList(const std::vector<int64_t>& ids);

// "~" or "~/…" expanded to the home folder; other paths unchanged.
std::string expandTilde(const std::string& path);

}  // namespace bc
