#include "custody/Preservation.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>
#include <unordered_map>
#include <unordered_set>

#include "custody/CustodySystemInfo.h"
#include "custody/SnapshotCopy.h"
#include "custody/SnapshotLock.h"
#include "sources/MessageDatabase.h"
#include "support/DateFormat.h"
#include "support/ErrorReason.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sha256.h"
#include "support/Text.h"
#include "support/Uuid.h"

namespace bc {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// The manifest's JSON form.

void to_json(Json& j, const SnapshotInfo::FileEntry& entry) {
    j = Json{{"path", entry.path}, {"bytes", entry.bytes}, {"sha256", entry.sha256}};
}

void from_json(const Json& j, SnapshotInfo::FileEntry& entry) {
    entry.path = j.at("path").get<std::string>();
    entry.bytes = j.at("bytes").get<int64_t>();
    entry.sha256 = j.at("sha256").get<std::string>();
}

void to_json(Json& j, const SnapshotInfo& info) {
    j = Json{{"id", info.id},
             {"createdAt", info.createdAt},
             {"scope", info.scope},
             {"sourcePath", info.sourcePath},
             {"attachmentsCopied", info.attachmentsCopied},
             {"attachmentsMissing", info.attachmentsMissing},
             {"attachmentsFailed", info.attachmentsFailed},
             {"databaseSHA256", info.databaseSHA256},
             {"totalBytes", info.totalBytes},
             {"app", info.app},
             {"files", info.files}};
    json::setOptional(j, "databaseCopiedAt", info.databaseCopiedAt);
    json::setOptional(j, "messageRows", info.messageRows);
    json::setOptional(j, "chatIDs", info.chatIDs);
}

void from_json(const Json& j, SnapshotInfo& info) {
    info.id = j.at("id").get<std::string>();
    info.createdAt = j.at("createdAt").get<Date>();
    info.databaseCopiedAt = json::getOptional<Date>(j, "databaseCopiedAt");
    info.messageRows = json::getOptional<int64_t>(j, "messageRows");
    info.scope = j.at("scope").get<std::string>();
    info.chatIDs = json::getOptional<std::vector<int64_t>>(j, "chatIDs");
    info.sourcePath = j.at("sourcePath").get<std::string>();
    info.attachmentsCopied = j.at("attachmentsCopied").get<int64_t>();
    info.attachmentsMissing = j.at("attachmentsMissing").get<int64_t>();
    info.attachmentsFailed = j.at("attachmentsFailed").get<int64_t>();
    info.databaseSHA256 = j.at("databaseSHA256").get<std::string>();
    info.totalBytes = j.at("totalBytes").get<int64_t>();
    info.app = j.at("app").get<CustodySystemInfo>();
    info.files = j.at("files").get<std::vector<SnapshotInfo::FileEntry>>();
}

namespace {

constexpr const char* manifestName = "manifest.json";
constexpr const char* mapName = "attachment-map.json";
constexpr const char* missingName = "missing-attachments.csv";
constexpr const char* failedName = "failed-attachments.csv";
constexpr const char* databaseName = "chat.db";
constexpr const char* readmeName = "README.txt";
constexpr const char* partialSuffix = ".partial";

// The README names the system that actually made the snapshot; elsewhere the OS text is whole.
#ifdef __APPLE__
constexpr const char* systemPrefix = "macOS ";
#else
constexpr const char* systemPrefix = "";
#endif

StoreLocation& rootLocation() {
    static StoreLocation location("Snapshots");
    return location;
}

// Dates in the manifest keep whole seconds, so a manifest reads back equal to what was made.
Date wholeSeconds(Date date) {
    return Date{std::floor(date.seconds)};
}

// "Snapshot 2024-03-05T140709": local time, no colons, so it is a valid folder name everywhere.
std::string snapshotID(Date createdAt) {
    std::string stamp = dates::formatPattern(createdAt, "yyyy-MM-dd'T'HHmmss", "en_US_POSIX");
    std::erase(stamp, ':');
    return "Snapshot " + stamp;
}

// The id itself, or with " 2", " 3"… when a snapshot of the same second exists. Chosen under the
// root lock, so concurrent creates never pick the same one.
std::string freeID(const fs::path& root, const std::string& id) {
    std::string chosen = id;
    for (int number = 2; fs::exists(fs::symlink_status(root / chosen)); ++number)
        chosen = id + " " + std::to_string(number);
    return chosen;
}

SnapshotInfo readManifest(const fs::path& folder) {
    try {
        auto info = json::decode(files::readFile(folder / manifestName)).get<SnapshotInfo>();
        info.folder = fs::absolute(folder);
        return info;
    } catch (const std::exception& error) {
        throw Error("Couldn't read the manifest of " + folder.filename().string() + ": " +
                    reasonOf(error));
    }
}

SnapshotInfo::FileEntry hashedEntry(const fs::path& folder, const std::string& relative) {
    const fs::path file = folder / relative;
    return {relative, static_cast<int64_t>(fs::file_size(file)), Sha256::hexOfFile(file)};
}

// A manifest path that stays inside the snapshot folder.
bool isInside(const std::string& relative) {
    const fs::path path = fs::path(relative).lexically_normal();
    return !relative.empty() && path.is_relative() && *path.begin() != "..";
}

// A regular file reached through real folders only: a link, or a folder replaced by one, may
// point at identical bytes elsewhere, which were never sealed.
bool isPlainFile(const fs::path& folder, const std::string& relative) {
    std::error_code error;
    fs::path at = folder;
    for (const auto& part : fs::path(relative).lexically_normal()) {
        at /= part;
        const auto type = fs::symlink_status(at, error).type();
        if (type == fs::file_type::symlink || error) return false;
    }
    return fs::symlink_status(at, error).type() == fs::file_type::regular;
}

std::string csvField(const std::string& value) {
    std::string quoted = "\"";
    for (const char c : value) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string csvRows(const std::vector<std::vector<std::string>>& rows) {
    std::string csv = "\xEF\xBB\xBF";
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) csv += (i ? "," : "") + csvField(row[i]);
        csv += "\r\n";
    }
    return csv;
}

std::string missingCSV(const std::vector<std::string>& missing) {
    std::vector<std::vector<std::string>> rows{{"path_listed_in_messages"}};
    for (const auto& path : missing) rows.push_back({path});
    return csvRows(rows);
}

std::string failedCSV(const std::vector<Preservation::FailedAttachment>& failed) {
    std::vector<std::vector<std::string>> rows{{"path_listed_in_messages", "error"}};
    for (const auto& failure : failed) rows.push_back({failure.path, failure.error});
    return csvRows(rows);
}

// The rows after the header of a CSV written by csvRows (every field quoted).
std::vector<std::vector<std::string>> readCSVRows(const std::string& csv) {
    std::vector<std::vector<std::string>> rows(1);
    std::string field;
    bool quoted = false;
    for (size_t i = csv.starts_with("\xEF\xBB\xBF") ? 3 : 0; i < csv.size(); ++i) {
        const char c = csv[i];
        if (quoted && c == '"' && i + 1 < csv.size() && csv[i + 1] == '"') {
            field += '"';
            ++i;
        } else if (c == '"') {
            quoted = !quoted;
        } else if (quoted || (c != ',' && c != '\r' && c != '\n')) {
            field += c;
        } else if (c == ',') {
            rows.back().push_back(std::move(field));
            field.clear();
        } else if (c == '\n') {
            rows.back().push_back(std::move(field));
            field.clear();
            rows.emplace_back();
        }
    }
    rows.pop_back();  // after the last line feed
    if (!rows.empty()) rows.erase(rows.begin());
    return rows;
}

// `path` relative to `folder` when it lies inside it.
std::optional<fs::path> under(const fs::path& path, const fs::path& folder) {
    const fs::path relative = path.lexically_relative(folder);
    if (!path.is_absolute() || relative.empty() || relative == "." || *relative.begin() == "..")
        return std::nullopt;
    return relative;
}

// Where each attachment is read from and where it goes inside the snapshot: its place under the
// Messages attachments folder, or "_other/" + its name; names already taken (compared without
// case, as on macOS volumes) get " 2", " 3"… before the extension.
class Destinations {
public:
    explicit Destinations(const fs::path& attachmentsFolder)
        : attachmentsFolder_(attachmentsFolder.lexically_normal()),
          homeAttachments_(
              (files::homeFolder() / "Library" / "Messages" / "Attachments").lexically_normal()) {}

    // The file a listed path names. One under the user's Messages attachments folder ("~/…" as
    // the database lists it) is read beside the database taken: a copied Messages folder keeps
    // its Attachments beside chat.db.
    fs::path source(const std::string& listedPath) const {
        fs::path listed = fs::path(listedPath).lexically_normal();
        if (const auto relative = under(listed, homeAttachments_))
            return attachmentsFolder_ / *relative;
        return listed;
    }

    std::string choose(const fs::path& source) {
        const auto relative = under(source, attachmentsFolder_);
        const std::string name =
            source.filename().empty() ? "attachment" : source.filename().string();
        const fs::path wanted =
            relative ? "Attachments" / *relative : fs::path("Attachments") / "_other" / name;
        fs::path chosen = wanted;
        for (int number = 2; !taken_.insert(text::toLowerAscii(chosen.generic_string())).second;
             ++number)
            chosen = wanted.parent_path() / (wanted.stem().string() + " " + std::to_string(number) +
                                             wanted.extension().string());
        return chosen.generic_string();
    }

private:
    fs::path attachmentsFolder_;
    fs::path homeAttachments_;
    std::unordered_set<std::string> taken_;
};

// One create at a time under a root, across processes: a leftover work folder is then known
// to be abandoned (a killed process releases its lock).
class RootLock {
public:
    explicit RootLock(const fs::path& root)
        : fd_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_ < 0) throw Error("Couldn't open the snapshots folder: " + root.string());
        while (::flock(fd_, LOCK_EX) != 0)
            if (errno != EINTR) throw Error("Couldn't lock the snapshots folder: " + root.string());
    }
    ~RootLock() { ::close(fd_); }
    RootLock(const RootLock&) = delete;
    RootLock& operator=(const RootLock&) = delete;

private:
    int fd_;
};

void removeLeftovers(const fs::path& root) {
    std::vector<fs::path> leftovers;
    for (const auto& entry : fs::directory_iterator(root))
        if (entry.is_directory() && entry.path().filename().string().ends_with(partialSuffix))
            leftovers.push_back(entry.path());
    for (const auto& work : leftovers) {
        snapshotLock::unlock(work);
        files::removeAll(work);
    }
}

struct Attachments {
    Json map = Json::object();
    std::vector<std::string> missing;
    std::vector<SnapshotInfo::FileEntry> files;
    std::vector<Preservation::FailedAttachment> failed;
};

void preserveOne(const std::string& listedPath, const fs::path& work, Destinations& destinations,
                 Attachments& result, const CancelFlag* cancel) {
    std::error_code error;
    const fs::path source = destinations.source(listedPath);
    if (listedPath.empty() || !fs::exists(source, error)) {
        result.missing.push_back(listedPath);
        return;
    }
    const std::string relative = destinations.choose(source);
    const fs::path destination = work / relative;
    try {
        fs::create_directories(destination.parent_path());
        const VerifiedCopy copy = copyVerified(source, destination, cancel);
        if (!copy.matches()) throw Error("the copy's SHA-256 differs from the original's");
        result.map[listedPath] = relative;
        result.files.push_back({relative, copy.bytes, copy.copySHA256});
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& failure) {
        fs::remove(destination, error);
        result.failed.push_back({listedPath, reasonOf(failure)});
    }
}

Attachments preserveAttachments(const std::vector<std::pair<int64_t, std::string>>& rows,
                                const fs::path& attachmentsFolder, const fs::path& work,
                                const CancelFlag* cancel, const ProgressFn& progress) {
    // Several rows may list one file: it is preserved once.
    std::vector<std::string> paths;
    std::unordered_set<std::string> seen;
    for (const auto& row : rows)
        if (seen.insert(row.second).second) paths.push_back(row.second);

    Attachments result;
    Destinations destinations(attachmentsFolder);
    for (size_t i = 0; i < paths.size(); ++i) {
        if (cancel) cancel->check();
        if (progress)
            progress("Preserving attachments " + std::to_string(i + 1) + " of " +
                     std::to_string(paths.size()));
        preserveOne(paths[i], work, destinations, result, cancel);
    }
    return result;
}

void build(SnapshotInfo& info, MessageDatabase& database, const fs::path& work,
           const CancelFlag* cancel, const ProgressFn& progress) {
    fs::create_directories(work / "Attachments");

    if (progress) progress("Copying the Messages database…");
    try {
        database.backup(work / databaseName, cancel);
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& error) {
        throw Error("Couldn't copy the Messages database: " + reasonOf(error));
    }
    info.databaseCopiedAt = wholeSeconds(Clock::now());

    std::vector<std::pair<int64_t, std::string>> rows;
    try {
        MessageDatabase copy(work / databaseName, MessageDatabase::Origin::sealedCopy);
        info.messageRows = copy.messageRowCount();
        rows = copy.attachmentPaths(info.chatIDs);
    } catch (const std::exception& error) {
        throw Error("Couldn't read the copied Messages database: " + reasonOf(error));
    }
    Attachments attachments = preserveAttachments(
        rows, fs::path(info.sourcePath).parent_path() / "Attachments", work, cancel, progress);
    info.attachmentsCopied = static_cast<int64_t>(attachments.files.size());
    info.attachmentsMissing = static_cast<int64_t>(attachments.missing.size());
    info.attachmentsFailed = static_cast<int64_t>(attachments.failed.size());
    info.files = std::move(attachments.files);

    if (progress) progress("Sealing the snapshot…");
    if (!attachments.missing.empty()) {
        files::writeFileAtomically(work / missingName, missingCSV(attachments.missing));
        info.files.push_back(hashedEntry(work, missingName));
    }
    if (!attachments.failed.empty()) {
        files::writeFileAtomically(work / failedName, failedCSV(attachments.failed));
        info.files.push_back(hashedEntry(work, failedName));
    }
    files::writeFileAtomically(work / mapName, json::encodePretty(attachments.map));
    info.files.push_back(hashedEntry(work, mapName));
    info.files.push_back(hashedEntry(work, databaseName));
    info.databaseSHA256 = info.files.back().sha256;

    info.app = custodySystemInfo::current();
    files::writeFileAtomically(work / readmeName, Preservation::readme(info));
    info.files.push_back(hashedEntry(work, readmeName));
    info.totalBytes = 0;
    for (const auto& entry : info.files) info.totalBytes += entry.bytes;
    files::writeFileAtomically(work / manifestName, json::encodePretty(info));
}

std::string count(int64_t value) {
    return std::to_string(value);
}

}  // namespace

// ---------------------------------------------------------------------------------------------

fs::path Preservation::root() {
    return rootLocation().path();
}

void Preservation::setOverrideRoot(std::optional<fs::path> folder) {
    rootLocation().setOverride(std::move(folder));
}

fs::path Preservation::folder(const SnapshotInfo& snapshot) {
    return snapshot.folder.empty() ? fs::absolute(root()) / snapshot.id : snapshot.folder;
}

SnapshotInfo Preservation::create(MessageDatabase& database,
                                  const std::optional<std::vector<int64_t>>& chatIDs,
                                  const std::string& scope, const CancelFlag* cancel,
                                  const ProgressFn& progress) {
    SnapshotInfo info;
    info.createdAt = wholeSeconds(Clock::now());
    info.scope = scope;
    info.chatIDs = chatIDs;
    info.sourcePath = fs::absolute(database.path()).string();

    const fs::path rootFolder = fs::absolute(root());
    std::error_code error;
    fs::create_directories(rootFolder, error);
    if (error)
        throw Error("Couldn't create the snapshots folder " + rootFolder.string() + ": " +
                    error.message());
    RootLock rootLock(rootFolder);
    info.id = freeID(rootFolder, snapshotID(info.createdAt));
    const fs::path destination = rootFolder / info.id;
    info.folder = destination;
    const fs::path work = rootFolder / (info.id + partialSuffix);
    try {
        removeLeftovers(rootFolder);
        build(info, database, work, cancel, progress);
        snapshotLock::lock(work);
        fs::rename(work, destination);
        files::syncFolder(rootFolder);
    } catch (const Error&) {
        discard(work);
        throw;
    } catch (const std::exception& failure) {
        discard(work);
        throw Error("Couldn't take the snapshot: " + reasonOf(failure));
    }
    return info;
}

namespace {

// Every snapshot folder under the root (work folders of creates left out).
std::vector<fs::path> snapshotFolders() {
    std::vector<fs::path> folders;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(Preservation::root(), error))
        if (entry.is_directory(error) && !entry.is_symlink(error) &&
            !entry.path().filename().string().ends_with(partialSuffix))
            folders.push_back(fs::absolute(entry.path()));
    return folders;
}

bool hasManifest(const fs::path& folder) {
    std::error_code error;
    return fs::exists(fs::symlink_status(folder / manifestName, error));
}

bool isEmptyFolder(const fs::path& folder) {
    std::error_code error;
    return fs::is_empty(folder, error) && !error;
}

// The folder a snapshot record sealed: the deepest folder holding all of its outputs.
fs::path sealedFolder(const CustodyRecord& record) {
    fs::path common = fs::path(record.outputs.front().path).parent_path();
    for (const auto& output : record.outputs) {
        while (common != common.parent_path()) {
            const fs::path inside = fs::path(output.path).lexically_relative(common);
            if (!inside.empty() && *inside.begin() != "..") break;
            common = common.parent_path();
        }
    }
    return common;
}

// Custody records of snapshots whose folder is gone: a deleted snapshot must not go unnoticed.
std::vector<std::string> vanishedSnapshots() {
    std::vector<CustodyRecord> records;
    try {
        records = CustodyLog::readAll();
    } catch (const std::exception&) {
        return {};  // the chain check reports an unreadable log
    }
    std::vector<std::string> problems;
    std::set<fs::path> reported;
    for (const auto& record : records) {
        if (record.action != "snapshot" || record.outputs.empty()) continue;
        const fs::path folder = sealedFolder(record);
        std::error_code error;
        if (fs::exists(fs::symlink_status(folder, error)) || !reported.insert(folder).second)
            continue;
        problems.push_back("The custody log records the snapshot " + folder.string() + " (record " +
                           record.id + "), but its folder no longer exists");
    }
    return problems;
}

}  // namespace

std::vector<SnapshotInfo> Preservation::list() {
    std::vector<SnapshotInfo> snapshots;
    for (const auto& folder : snapshotFolders()) {
        if (!hasManifest(folder)) continue;
        try {
            snapshots.push_back(readManifest(folder));
        } catch (const Error&) {
            // Reported by unreadable(); listing goes on with the others.
        }
    }
    std::sort(snapshots.begin(), snapshots.end(), [](const auto& a, const auto& b) {
        return a.createdAt != b.createdAt ? b.createdAt < a.createdAt : b.id < a.id;
    });
    return snapshots;
}

std::vector<std::string> Preservation::unreadable() {
    std::vector<std::string> problems;
    for (const auto& folder : snapshotFolders()) {
        if (!hasManifest(folder)) {
            if (!isEmptyFolder(folder))
                problems.push_back(folder.filename().string() +
                                   " has no manifest; it cannot be verified");
            continue;
        }
        try {
            readManifest(folder);
        } catch (const Error& error) {
            problems.emplace_back(error.what());
        }
    }
    std::sort(problems.begin(), problems.end());
    for (auto& problem : vanishedSnapshots()) problems.push_back(std::move(problem));
    return problems;
}

std::unique_ptr<MessageDatabase> Preservation::open(const SnapshotInfo& snapshot) {
    const fs::path folder = Preservation::folder(snapshot);
    auto map = std::make_shared<std::unordered_map<std::string, std::string>>();
    try {
        const Json listed = json::decode(files::readFile(folder / mapName));
        for (const auto& [path, relative] : listed.items())
            if (isInside(relative.get<std::string>()))
                (*map)[path] = (folder / relative.get<std::string>()).string();
    } catch (const std::exception& error) {
        throw Error("Couldn't read the attachment map of " + snapshot.id + ": " + reasonOf(error));
    }
    // An attachment the snapshot does not hold has no file: exports never reach past the seal.
    auto mapper = [map](const std::string& path, int64_t) {
        const auto it = map->find(path);
        return it == map->end() ? std::string() : it->second;
    };
    return std::make_unique<MessageDatabase>(folder / databaseName,
                                             MessageDatabase::Origin::sealedCopy, std::move(mapper),
                                             sealed(snapshot));
}

namespace {

void compareWithLog(const fs::path& folder, const SnapshotInfo& manifest,
                    Preservation::Verification& result) {
    std::vector<CustodyRecord> records;
    try {
        records = CustodyLog::readAll();
    } catch (const std::exception&) {
        return;
    }
    const std::string prefix = folder.string() + "/";
    const auto inside = [&](const CustodyRecord::Output& output) {
        return output.path.starts_with(prefix);
    };
    const auto record = std::find_if(records.rbegin(), records.rend(), [&](const auto& r) {
        return r.action == "snapshot" && !r.outputs.empty() &&
               std::all_of(r.outputs.begin(), r.outputs.end(), inside);
    });
    if (record == records.rend()) return;
    result.crossCheckedWithLog = true;

    std::unordered_map<std::string, std::string> logged;
    for (const auto& output : record->outputs)
        logged[output.path.substr(prefix.size())] = output.sha256;
    std::set<std::string> disagreeing;
    for (const auto& entry : manifest.files) {
        const auto it = logged.find(entry.path);
        if (it == logged.end() || it->second != entry.sha256) disagreeing.insert(entry.path);
        if (it != logged.end()) logged.erase(it);
    }
    // Files the log names but the manifest no longer lists.
    for (const auto& [path, sha] : logged) disagreeing.insert(path);
    result.manifestDisagreesWithLog.assign(disagreeing.begin(), disagreeing.end());
}

}  // namespace

Preservation::Verification Preservation::verify(const SnapshotInfo& snapshot,
                                                const CancelFlag* cancel,
                                                const ProgressFn& progress) {
    const fs::path folder = Preservation::folder(snapshot);
    const SnapshotInfo manifest = readManifest(folder);
    Verification result;
    std::unordered_set<std::string> listed;
    for (size_t i = 0; i < manifest.files.size(); ++i) {
        if (cancel) cancel->check();
        if (progress)
            progress("Verifying files " + std::to_string(i + 1) + " of " +
                     std::to_string(manifest.files.size()));
        const auto& entry = manifest.files[i];
        ++result.checked;
        listed.insert(entry.path);
        std::error_code error;
        if (!isInside(entry.path)) {
            result.mismatched.push_back(entry.path);
        } else if (!fs::exists(fs::symlink_status(folder / entry.path, error))) {
            result.missing.push_back(entry.path);
        } else if (!isPlainFile(folder, entry.path)) {
            result.mismatched.push_back(entry.path);
        } else {
            try {
                if (Sha256::hexOfFile(folder / entry.path, cancel) != entry.sha256)
                    result.mismatched.push_back(entry.path);
            } catch (const CancelledError&) {
                throw;
            } catch (const Error&) {
                result.mismatched.push_back(entry.path);
            }
        }
    }

    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        // A link is never part of a sealed snapshot, wherever it points.
        if (it->symlink_status().type() == fs::file_type::directory) continue;
        const std::string relative = it->path().lexically_relative(folder).generic_string();
        // The engine may leave a shared-memory file beside a database it opened.
        if (relative == manifestName || relative == "chat.db-shm" || listed.contains(relative))
            continue;
        result.extra.push_back(relative);
    }
    if (error) throw Error("Couldn't list the files of " + snapshot.id + ": " + error.message());
    std::sort(result.extra.begin(), result.extra.end());

    compareWithLog(folder, manifest, result);
    return result;
}

std::string Preservation::describe(const Verification& verification, const SnapshotInfo& snapshot) {
    // A copied or renamed folder is named as found, so the verdict says which one was checked.
    const std::string name =
        snapshot.folder.empty() ? snapshot.id : snapshot.folder.filename().string();
    if (verification.isIntact())
        return name + " verified: all " + count(verification.checked) +
               " files match their SHA-256" +
               (verification.crossCheckedWithLog
                    ? ", and the manifest matches the custody log."
                    : ". (No custody-log record found to cross-check.)");
    std::vector<std::string> parts;
    const auto add = [&](const std::vector<std::string>& paths, const std::string& label) {
        if (!paths.empty()) parts.push_back(count(static_cast<int64_t>(paths.size())) + label);
    };
    add(verification.mismatched, " changed");
    add(verification.missing, " missing");
    add(verification.extra, " added");
    add(verification.manifestDisagreesWithLog, " manifest entries differ from the custody log");
    std::string joined;
    for (const auto& part : parts) joined += (joined.empty() ? "" : ", ") + part;
    return "WARNING: " + name + " failed verification: " + joined + ".";
}

std::vector<std::string> Preservation::findings(const Verification& verification) {
    std::vector<std::string> lines;
    const auto add = [&](const std::vector<std::string>& paths, const std::string& label) {
        for (const auto& path : paths)
            lines.push_back(std::string(label).append(": ").append(path));
    };
    add(verification.mismatched, "changed");
    add(verification.missing, "missing");
    add(verification.extra, "added");
    add(verification.manifestDisagreesWithLog, "differs from the custody log");
    return lines;
}

std::vector<Preservation::FailedAttachment> Preservation::failedAttachments(
    const SnapshotInfo& snapshot) {
    const fs::path file = folder(snapshot) / failedName;
    if (!fs::exists(file)) return {};
    std::vector<FailedAttachment> failed;
    for (const auto& row : readCSVRows(files::readFile(file)))
        if (row.size() == 2) failed.push_back({row[0], row[1]});
    return failed;
}

std::vector<CustodyRecord::Output> Preservation::custodyOutputs(const SnapshotInfo& snapshot) {
    const fs::path folder = Preservation::folder(snapshot);
    std::vector<CustodyRecord::Output> outputs;
    for (const auto& entry : snapshot.files)
        outputs.push_back({(folder / entry.path).generic_string(), entry.bytes, entry.sha256});
    return outputs;
}

CustodyRecord Preservation::custodyRecord(const SnapshotInfo& snapshot, MessageSource& live) {
    CustodyRecord record;
    record.id = newUUID();
    record.createdAt = Clock::now();
    record.action = "snapshot";
    record.format = "Preservation snapshot";
    record.title = snapshot.scope;
    record.chatIDs = snapshot.chatIDs.value_or(std::vector<int64_t>{});
    record.rangeDescription = "Everything stored when the snapshot was taken";
    record.messageCount = snapshot.messageRows.value_or(0);
    record.attachmentCount = snapshot.attachmentsCopied;
    record.options = {
        {std::string("Attachments not on ") + thisMachine, count(snapshot.attachmentsMissing)},
        {"Attachments that failed", count(snapshot.attachmentsFailed)}};
    record.source = live.custodySource();
    record.outputs = custodyOutputs(snapshot);
    record.system = custodySystemInfo::current();
    return record;
}

SealedSnapshot Preservation::sealed(const SnapshotInfo& snapshot) {
    return {snapshot.id, folder(snapshot), snapshot.databaseSHA256};
}

std::string Preservation::readme(const SnapshotInfo& info) {
    const std::string indent(16, ' ');
    const std::string created =
        dates::formatStyled(info.createdAt, dates::Style::full, dates::Style::full);
    std::string text = "BRINDLECOURT PRESERVATION SNAPSHOT\n" + std::string(30, '=') + "\n\n";
    text += "Created:        " + created + "\n";
    text += "Scope:          " + info.scope + "\n";
    text += "Source:         " + info.sourcePath + " (opened read-only)\n";
    text += "Database:       chat.db, SHA-256 " + info.databaseSHA256 + "\n";
    text +=
        "Attachments:    " + count(info.attachmentsCopied) + " copied and verified by SHA-256\n";
    text += indent + count(info.attachmentsMissing) + " listed in the database but not stored on " +
            thisMachine + " (e.g. iCloud-only)" +
            (info.attachmentsMissing > 0 ? "; listed in missing-attachments.csv" : "") + "\n";
    text += indent + count(info.attachmentsFailed) + " could not be read" +
            (info.attachmentsFailed > 0 ? "; listed in failed-attachments.csv" : "") + "\n";
    text += "Made on:        " + info.app.model + ", " + systemPrefix + info.app.macOS + ", by " +
            info.app.user + "\n";
    text += "App:            Brindlecourt " + info.app.appVersion + "\n";
    text +=
        "\n"
        "chat.db is a point-in-time copy of the macOS Messages database, taken with SQLite's\n"
        "online backup so it is internally consistent. Each attachment was copied byte for byte;\n"
        "its SHA-256 was computed from both the original and the copy, and they matched.\n"
        "\n"
        "manifest.json lists every file in this folder with its size and SHA-256. To check that\n"
        "nothing has changed, recompute the hashes (for example: shasum -a 256 chat.db) and "
        "compare,\n"
        "or use \"Verify\" in Brindlecourt.\n"
        "\n"
        "The files are read-only and locked against changes. To remove the snapshot, use\n"
        "\"Move to Trash\" in Brindlecourt, which unlocks it first.\n";
    return text;
}

void Preservation::discard(const fs::path& work) {
    try {
        if (!fs::exists(fs::symlink_status(work))) return;
        snapshotLock::unlock(work);
        files::removeAll(work);
    } catch (const std::exception&) {
        // The next run removes what is left; the original failure is the one to report.
    }
}

}  // namespace bc
