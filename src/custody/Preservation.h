#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "custody/CustodyLog.h"
#include "model/CustodyRecord.h"
#include "support/CancelFlag.h"
#include "support/Date.h"
#include "support/Json.h"

namespace bc {

class MessageDatabase;
class MessageSource;

// The manifest of a preservation snapshot ("manifest.json"); JSON keys are the field names.
struct SnapshotInfo {
    struct FileEntry {
        std::string path;  // relative to the snapshot folder, "/"-separated
        int64_t bytes = 0;
        std::string sha256;

        bool operator==(const FileEntry&) const = default;
    };

    std::string id;  // "Snapshot 2024-03-05T140709", also the folder name
    Date createdAt;
    std::optional<Date> databaseCopiedAt;
    std::optional<int64_t> messageRows;
    std::string scope;
    std::optional<std::vector<int64_t>> chatIDs;  // absent: all conversations
    std::string sourcePath;
    int64_t attachmentsCopied = 0;
    int64_t attachmentsMissing = 0;
    int64_t attachmentsFailed = 0;
    std::string databaseSHA256;
    int64_t totalBytes = 0;
    CustodySystemInfo app;
    std::vector<FileEntry> files;  // every file of the snapshot except the manifest
    // Where the manifest was found (not part of it): a copied or renamed folder is checked
    // where it lies, not where its id points.
    std::filesystem::path folder;

    bool operator==(const SnapshotInfo&) const = default;
};

void to_json(Json& j, const SnapshotInfo::FileEntry& entry);
void from_json(const Json& j, SnapshotInfo::FileEntry& entry);
void to_json(Json& j, const SnapshotInfo& info);
void from_json(const Json& j, SnapshotInfo& info);

// Sealed, read-only copies of the Messages database and its attachments, one folder each under
// the snapshots root. Stateless: every call reads the folders afresh.
class Preservation {
public:
    struct Verification {
        int64_t checked = 0;
        std::vector<std::string> mismatched;                // relative paths
        std::vector<std::string> missing;                   // listed but absent
        std::vector<std::string> extra;                     // present but not listed (sorted)
        std::vector<std::string> manifestDisagreesWithLog;  // manifest vs the custody record
        bool crossCheckedWithLog = false;

        bool isIntact() const {
            return mismatched.empty() && missing.empty() && extra.empty() &&
                   manifestDisagreesWithLog.empty();
        }
    };

    // An attachment that was on the Mac but could not be preserved, with why.
    struct FailedAttachment {
        std::string path;  // as listed in the Messages database
        std::string error;

        bool operator==(const FailedAttachment&) const = default;
    };

    // "Kestrove/Snapshots" under the application data folder, unless the process-wide override
    // is set (demo mode, the command line, tests).
    static std::filesystem::path root();
    static void setOverrideRoot(std::optional<std::filesystem::path> folder);
    // Where the snapshot was found, or its id's folder under the current root.
    static std::filesystem::path folder(const SnapshotInfo& snapshot);

    // Copies the database (online backup) and every attachment of the chats (all when absent),
    // hashes every file, writes the manifest and README, locks the folder and moves it into
    // place. Progress texts end in "…"; cancellation is polled between attachments. On failure
    // or cancellation nothing is kept (throws Error or CancelledError). Does not append the
    // custody record: the caller appends custodyRecord(…) and reports a failure to log apart.
    static SnapshotInfo create(MessageDatabase& database,
                               const std::optional<std::vector<int64_t>>& chatIDs,
                               const std::string& scope, const CancelFlag* cancel = nullptr,
                               const ProgressFn& progress = {});

    // Every sealed snapshot under the root, newest first; ".partial" work folders are ignored.
    static std::vector<SnapshotInfo> list();
    // What verification cannot check, each as one sentence: folders whose manifest cannot be
    // read or is gone (a deleted manifest must not hide a tampered snapshot), and custody
    // records of snapshots whose folder no longer exists.
    static std::vector<std::string> unreadable();

    // The snapshot's "chat.db" as a read-only, immutable reader whose attachment paths point
    // into the snapshot and whose custody source names the snapshot. Throws DBError or Error.
    static std::unique_ptr<MessageDatabase> open(const SnapshotInfo& snapshot);

    // Re-hashes every file against the manifest and cross-checks it with the custody log.
    // Never changes a file. Throws Error when the manifest can't be read.
    static Verification verify(const SnapshotInfo& snapshot, const CancelFlag* cancel = nullptr,
                               const ProgressFn& progress = {});
    // The one-line verdict.
    static std::string describe(const Verification& verification, const SnapshotInfo& snapshot);
    // One line per file concerned ("changed: chat.db"), in the order of the verdict's counts.
    static std::vector<std::string> findings(const Verification& verification);

    // Removes a folder being built (or sealed) after a failure, unlocking it first. Never throws.
    static void discard(const std::filesystem::path& work);

    // The attachments the snapshot could not preserve ("failed-attachments.csv"). Throws Error
    // when the list exists but cannot be read.
    static std::vector<FailedAttachment> failedAttachments(const SnapshotInfo& snapshot);

    // One output per manifest entry: absolute path, size and SHA-256 as recorded.
    static std::vector<CustodyRecord::Output> custodyOutputs(const SnapshotInfo& snapshot);
    // The custody record of a successful create, `live` being the database it was taken from.
    static CustodyRecord custodyRecord(const SnapshotInfo& snapshot, MessageSource& live);
    // How a reader of this snapshot names it in custody sources.
    static SealedSnapshot sealed(const SnapshotInfo& snapshot);

    // "README.txt" of the snapshot.
    static std::string readme(const SnapshotInfo& snapshot);
};

}  // namespace bc
