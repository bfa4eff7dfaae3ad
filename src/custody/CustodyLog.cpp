#include "custody/CustodyLog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <utility>

#include "model/MessageSource.h"
#include "sources/CustodySource.h"
#include "support/DateFormat.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Machine.h"
#include "support/Sha256.h"
#include "support/Sqlite.h"
#include "support/Text.h"

namespace bc {

namespace fs = std::filesystem;

// ---------------------------------------------------------------------------------------------
// JSON form. Decoding is strict: a line that would not re-encode to the same meaning must not
// decode, so that verify sees it.

namespace {

const Json& member(const Json& object, const char* key) {
    if (!object.is_object()) throw Error("Couldn't read a custody record: expected an object.");
    const auto it = object.find(key);
    if (it == object.end() || it->is_null())
        throw Error(std::string("Couldn't read a custody record: \"") + key + "\" is missing.");
    return *it;
}

[[noreturn]] void wrongType(const char* what) {
    throw Error(std::string("Couldn't read a custody record: expected ") + what + ".");
}

std::string asText(const Json& value) {
    if (!value.is_string()) wrongType("text");
    return value.get<std::string>();
}

int64_t asInteger(const Json& value) {
    if (value.is_number_unsigned()) {
        const auto unsignedValue = value.get<uint64_t>();
        if (unsignedValue > static_cast<uint64_t>(INT64_MAX)) wrongType("a 64-bit integer");
        return static_cast<int64_t>(unsignedValue);
    }
    if (!value.is_number_integer()) wrongType("an integer");
    return value.get<int64_t>();
}

template <class T, class Convert>
std::vector<T> asList(const Json& value, Convert convert) {
    if (!value.is_array()) wrongType("a list");
    std::vector<T> out;
    out.reserve(value.size());
    for (const Json& item : value) out.push_back(convert(item));
    return out;
}

std::optional<std::string> optionalText(const Json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return asText(*it);
}

std::string textAt(const Json& object, const char* key) {
    return asText(member(object, key));
}
int64_t integerAt(const Json& object, const char* key) {
    return asInteger(member(object, key));
}

std::string upperAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

// Upper-case hyphenated form only: that is how ids are written, so anything else was edited.
bool isUpperCaseUUID(std::string_view text) {
    if (text.size() != 36) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool hyphen = i == 8 || i == 13 || i == 18 || i == 23;
        if (hyphen ? c != '-' : !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) return false;
    }
    return true;
}

// The encoder's own form only (whole seconds, "Z"): another spelling of the same instant would
// re-encode differently from what was hashed, so it counts as an edit.
Date canonicalDate(const Json& object, const char* key) {
    const std::string text = textAt(object, key);
    const Date date = member(object, key).get<Date>();
    if (dates::iso8601(date) != text) wrongType("a date like 2024-03-05T14:07:09Z");
    return date;
}

}  // namespace

void to_json(Json& j, const CustodySystemInfo& info) {
    j = Json{{"appVersion", info.appVersion},
             {"macOS", info.macOS},
             {"model", info.model},
             {"host", info.host},
             {"user", info.user}};
}

void from_json(const Json& j, CustodySystemInfo& info) {
    info.appVersion = textAt(j, "appVersion");
    info.macOS = textAt(j, "macOS");
    info.model = textAt(j, "model");
    info.host = textAt(j, "host");
    info.user = textAt(j, "user");
}

void to_json(Json& j, const CustodyRecord::Source& source) {
    j = Json{
        {"kind", source.kind}, {"path", source.path}, {"databaseSHA256", source.databaseSHA256}};
    json::setOptional(j, "snapshotID", source.snapshotID);
    json::setOptional(j, "walSHA256", source.walSHA256);
    json::setOptional(j, "note", source.note);
}

void from_json(const Json& j, CustodyRecord::Source& source) {
    source.kind = textAt(j, "kind");
    source.path = textAt(j, "path");
    source.snapshotID = optionalText(j, "snapshotID");
    source.databaseSHA256 = textAt(j, "databaseSHA256");
    source.walSHA256 = optionalText(j, "walSHA256");
    source.note = optionalText(j, "note");
}

void to_json(Json& j, const CustodyRecord::Output& output) {
    j = Json{{"path", output.path}, {"bytes", output.bytes}, {"sha256", output.sha256}};
}

void from_json(const Json& j, CustodyRecord::Output& output) {
    output.path = textAt(j, "path");
    output.bytes = integerAt(j, "bytes");
    output.sha256 = textAt(j, "sha256");
}

void to_json(Json& j, const CustodyRecord& record) {
    j = Json::object();
    j["id"] = upperAscii(record.id);
    j["createdAt"] = record.createdAt;
    j["action"] = record.action;
    j["format"] = record.format;
    j["title"] = record.title;
    j["participants"] = record.participants;
    j["chatIDs"] = record.chatIDs;
    j["rangeDescription"] = record.rangeDescription;
    j["messageCount"] = record.messageCount;
    j["attachmentCount"] = record.attachmentCount;
    json::setOptional(j, "pageCount", record.pageCount);
    j["options"] = record.options;
    j["source"] = record.source;
    j["outputs"] = record.outputs;
    j["system"] = record.system;
    j["previousRecordSHA256"] = record.previousRecordSHA256;
    j["recordSHA256"] = record.recordSHA256;
}

void from_json(const Json& j, CustodyRecord& record) {
    record.id = textAt(j, "id");
    if (!isUpperCaseUUID(record.id)) wrongType("an upper-case UUID as \"id\"");
    record.createdAt = canonicalDate(j, "createdAt");
    record.action = textAt(j, "action");
    record.format = textAt(j, "format");
    record.title = textAt(j, "title");
    record.participants = asList<std::string>(member(j, "participants"), asText);
    record.chatIDs = asList<int64_t>(member(j, "chatIDs"), asInteger);
    record.rangeDescription = textAt(j, "rangeDescription");
    record.messageCount = integerAt(j, "messageCount");
    record.attachmentCount = integerAt(j, "attachmentCount");
    record.pageCount.reset();
    if (const auto it = j.find("pageCount"); it != j.end() && !it->is_null())
        record.pageCount = asInteger(*it);
    const Json& options = member(j, "options");
    if (!options.is_object()) wrongType("an object of options");
    record.options.clear();
    for (const auto& [key, value] : options.items()) record.options[key] = asText(value);
    record.source = member(j, "source").get<CustodyRecord::Source>();
    record.outputs = asList<CustodyRecord::Output>(
        member(j, "outputs"), [](const Json& item) { return item.get<CustodyRecord::Output>(); });
    record.system = member(j, "system").get<CustodySystemInfo>();
    record.previousRecordSHA256 = textAt(j, "previousRecordSHA256");
    record.recordSHA256 = textAt(j, "recordSHA256");
}

// ---------------------------------------------------------------------------------------------
// Lines of the file.

namespace {

constexpr const char* readFailure = "Couldn't read the custody log: ";

std::string encodeLine(const CustodyRecord& record) {
    return json::encodeCompact(Json(record));
}

// Throws Error (or nlohmann's exception) saying why the line is not a record.
CustodyRecord decodeRecord(std::string_view line) {
    return json::decode(text::repairUtf8(line)).get<CustodyRecord>();
}

std::optional<CustodyRecord> decodeLine(std::string_view line) {
    try {
        return decodeRecord(line);
    } catch (const Error&) {
        return std::nullopt;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

std::vector<std::string_view> nonEmptyLines(std::string_view content) {
    std::vector<std::string_view> lines;
    size_t start = 0;
    while (start < content.size()) {
        size_t end = content.find('\n', start);
        if (end == std::string_view::npos) end = content.size();
        if (end > start) lines.push_back(content.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

// The log's bytes, or nothing when there is no log yet.
std::optional<std::string> readLog(const fs::path& file) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) return std::nullopt;
        throw Error(readFailure + std::string(std::strerror(errno)));
    }
    std::string content;
    char buffer[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw Error(readFailure + std::string(std::strerror(error)));
        }
        if (n == 0) break;
        content.append(buffer, static_cast<size_t>(n));
    }
    ::close(fd);
    return content;
}

void preadAll(int fd, char* into, size_t size, off_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(fd, into + done, size - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0)
            throw Error(readFailure + std::string(n < 0 ? std::strerror(errno)
                                                        : "the file shrank while it was read"));
        done += static_cast<size_t>(n);
    }
}

// Walks a file's lines from the end, reading fixed blocks, so that the work depends on how far
// back the wanted line is, not on the size of the file.
class BackwardLines {
public:
    BackwardLines(int fd, off_t end) : fd_(fd), start_(end) {}

    // The line before the previous one returned (possibly empty); nothing at the top.
    std::optional<std::string> previous() {
        if (done_) return std::nullopt;
        std::vector<std::string> later;  // whole blocks after the line's start, nearest first
        for (;;) {
            if (const size_t newline = buffer_.rfind('\n'); newline != std::string::npos) {
                std::string line = joined(buffer_.substr(newline + 1), later);
                buffer_.resize(newline);
                return line;
            }
            if (start_ == 0) {
                done_ = true;
                std::string first = std::exchange(buffer_, {});
                return joined(std::move(first), later);
            }
            later.push_back(std::move(buffer_));
            readBlock();
        }
    }

private:
    static constexpr off_t blockSize = 1 << 16;

    static std::string joined(std::string head, const std::vector<std::string>& later) {
        for (auto it = later.rbegin(); it != later.rend(); ++it) head += *it;
        return head;
    }

    void readBlock() {
        const off_t size = std::min(blockSize, start_);
        start_ -= size;
        buffer_.assign(static_cast<size_t>(size), '\0');
        preadAll(fd_, buffer_.data(), buffer_.size(), start_);
    }

    int fd_;
    off_t start_;         // file offset of buffer_'s first byte
    std::string buffer_;  // bytes not yet returned, up to the last line handed out
    bool done_ = false;
};

// ---------------------------------------------------------------------------------------------
// Appending.

std::mutex& appendMutex() {
    static std::mutex mutex;
    return mutex;
}

StoreLocation& logLocation() {
    static StoreLocation location("custody-log.jsonl");
    return location;
}

[[noreturn]] void writeFailure(int error) {
    throw Error("Couldn't write to the custody log: " + std::string(std::strerror(error)));
}

void writeAll(int fd, std::string_view bytes) {
    size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) writeFailure(errno);
        written += static_cast<size_t>(n);
    }
}

// The log opened for appending under an exclusive advisory lock, released on every way out.
class LockedLog {
public:
    explicit LockedLog(const fs::path& file) {
        fd_ = ::open(file.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (fd_ < 0)
            throw Error("Couldn't open the custody log for writing: " +
                        std::string(std::strerror(errno)));
        int result;
        do {
            result = ::flock(fd_, LOCK_EX);
        } while (result != 0 && errno == EINTR);
        if (result != 0) {
            const int error = errno;
            ::close(fd_);
            throw Error("Couldn't lock the custody log: " + std::string(std::strerror(error)));
        }
    }
    ~LockedLog() {
        ::flock(fd_, LOCK_UN);
        ::close(fd_);
    }
    LockedLog(const LockedLog&) = delete;
    LockedLog& operator=(const LockedLog&) = delete;

    // A torn last line gets its line feed so the next record starts on a line of its own.
    void closeTornLine() {
        const off_t size = this->size();
        if (size == 0) return;
        char last = 0;
        preadAll(fd_, &last, 1, size - 1);
        if (last != '\n') writeAll(fd_, "\n");
    }

    // recordSHA256 of the last line that decodes; "" when none does.
    std::string lastRecordHash() const {
        BackwardLines lines(fd_, size());
        while (const auto line = lines.previous()) {
            if (line->empty()) continue;
            if (const auto record = decodeLine(*line)) return record->recordSHA256;
        }
        return "";
    }

    // Whole line or nothing: a failed write or sync is cut back off, so the lines already there
    // stay a clean chain.
    void appendSynced(std::string_view bytes) {
        const off_t before = size();
        try {
            writeAll(fd_, bytes);
            if (::fsync(fd_) != 0) writeFailure(errno);
        } catch (...) {
            if (::ftruncate(fd_, before) == 0) ::fsync(fd_);
            throw;
        }
    }

private:
    off_t size() const {
        struct stat info {};
        if (::fstat(fd_, &info) != 0) throw Error(readFailure + std::string(std::strerror(errno)));
        return info.st_size;
    }

    int fd_ = -1;
};

}  // namespace

fs::path CustodyLog::url() {
    return logLocation().path();
}

void CustodyLog::setOverrideURL(std::optional<fs::path> location) {
    logLocation().setOverride(std::move(location));
}

std::string CustodyLog::hash(const CustodyRecord& record) {
    CustodyRecord copy = record;
    copy.recordSHA256.clear();
    return Sha256::hex(encodeLine(copy));
}

CustodyRecord CustodyLog::append(CustodyRecord record) {
    // Taken in the form it reads back in; a record that would not read back would break the
    // chain for every later one, so it is refused before the file is touched.
    try {
        record = decodeRecord(encodeLine(record));
    } catch (const std::exception& e) {
        throw Error(std::string("Couldn't write the custody record: ") + e.what());
    }
    std::lock_guard guard(appendMutex());
    const fs::path file = url();
    if (file.has_parent_path()) {
        std::error_code error;
        fs::create_directories(file.parent_path(), error);
        if (error)
            throw Error("Couldn't create the custody log's folder " + file.parent_path().string() +
                        ": " + error.message());
    }
    LockedLog log(file);
    log.closeTornLine();
    record.previousRecordSHA256 = log.lastRecordHash();
    record.recordSHA256 = hash(record);
    log.appendSynced(encodeLine(record) + "\n");
    return record;
}

std::vector<CustodyRecord> CustodyLog::readAll() {
    const auto content = readLog(url());
    if (!content) return {};
    std::vector<CustodyRecord> records;
    for (const auto line : nonEmptyLines(*content)) {
        if (auto record = decodeLine(line)) records.push_back(std::move(*record));
    }
    return records;
}

CustodyLog::ChainCheck CustodyLog::verify() {
    const auto content = readLog(url());
    if (!content) return {};
    const auto lines = nonEmptyLines(*content);
    ChainCheck check{.records = static_cast<int64_t>(lines.size())};
    std::string expected;
    for (size_t i = 0; i < lines.size(); ++i) {
        const auto record = decodeLine(lines[i]);
        if (!record || record->previousRecordSHA256 != expected ||
            record->recordSHA256 != hash(*record)) {
            check.firstBroken = static_cast<int64_t>(i);
            break;
        }
        expected = record->recordSHA256;
    }
    return check;
}

std::string CustodyLog::describe(const ChainCheck& check) {
    const std::string count = std::to_string(check.records);
    if (check.records == 0) return "The custody log is empty.";
    if (check.isIntact()) return "Custody log intact: all " + count + " records chain correctly.";
    return "WARNING: custody log broken at record " + std::to_string(*check.firstBroken + 1) +
           " of " + count + ".";
}

std::string CustodyLog::verifyReport() {
    try {
        return describe(verify());
    } catch (const Error& e) {
        return e.what();
    }
}

// ---------------------------------------------------------------------------------------------
// Outputs of a product.

namespace {

int64_t sizeOf(const fs::path& file) {
    std::error_code error;
    const auto bytes = fs::file_size(file, error);
    if (error) throw Error("Couldn't read the size of " + file.string() + ": " + error.message());
    return static_cast<int64_t>(bytes);
}

CustodyRecord::Output hashedOutput(const fs::path& file) {
    return {.path = file.string(), .bytes = sizeOf(file), .sha256 = Sha256::hexOfFile(file)};
}

// "checksums.txt" lines: digest, two blanks, path relative to the folder.
std::vector<CustodyRecord::Output> outputsListed(const fs::path& folder) {
    const std::string manifest = files::readFile(folder / "checksums.txt");
    std::vector<CustodyRecord::Output> outputs;
    size_t number = 0;
    for (const auto rawLine : nonEmptyLines(manifest)) {
        ++number;
        const std::string line = text::trim(rawLine);
        if (line.empty()) continue;
        const size_t gap = line.find("  ");
        const fs::path relative =
            gap == std::string::npos ? fs::path() : fs::path(line.substr(gap + 2));
        const bool escapes = std::any_of(relative.begin(), relative.end(),
                                         [](const fs::path& part) { return part == ".."; });
        if (gap == 0 || relative.empty() || relative.is_absolute() || escapes)
            throw Error("Couldn't read checksums.txt: line " + std::to_string(number) +
                        " is not a digest and a path inside the folder.");
        const fs::path file = folder / relative;
        outputs.push_back(
            {.path = file.string(), .bytes = sizeOf(file), .sha256 = line.substr(0, gap)});
    }
    return outputs;
}

std::vector<CustodyRecord::Output> outputsOfFolder(const fs::path& folder) {
    std::vector<std::string> found;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(folder, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_regular_file() && !it->is_symlink()) found.push_back(it->path().string());
    }
    if (error) throw Error("Couldn't list " + folder.string() + ": " + error.message());
    std::sort(found.begin(), found.end());
    std::vector<CustodyRecord::Output> outputs;
    outputs.reserve(found.size());
    for (const auto& file : found) outputs.push_back(hashedOutput(file));
    return outputs;
}

}  // namespace

std::vector<CustodyRecord::Output> CustodyLog::outputs(const fs::path& product) {
    std::error_code error;
    const auto status = fs::status(product, error);
    if (status.type() == fs::file_type::not_found) return {};
    if (error) throw Error("Couldn't hash " + product.string() + ": " + error.message());
    const fs::path absolute = fs::absolute(product);
    if (fs::is_regular_file(status)) return {hashedOutput(absolute)};
    if (!fs::is_directory(status))
        throw Error("Couldn't hash " + product.string() + ": it is neither a file nor a folder.");
    if (fs::exists(absolute / "checksums.txt")) return outputsListed(absolute);
    return outputsOfFolder(absolute);
}

// ---------------------------------------------------------------------------------------------
// Sources.

CustodyRecord::Source CustodyLog::source(const MessageSource& database,
                                         const std::optional<SealedSnapshot>& snapshot) {
    return snapshot ? custodySource::ofSnapshot(*snapshot) : database.custodySource();
}

std::string CustodyLog::describe(std::string_view kind,
                                 const std::optional<std::string>& snapshotID) {
    if (kind == "live") return std::string("Live Messages database on ") + thisMachine;
    if (kind == "snapshot") return "Preservation snapshot " + snapshotID.value_or("");
    if (kind == "demo") return "Sample Messages database generated for demo mode";
    if (kind == "whatsapp-live")
        return std::string("WhatsApp for Mac database on ") + thisMachine + " (read live)";
    if (kind == "whatsapp-database-import") return "Imported WhatsApp database (sealed on import)";
    if (kind == "whatsapp-export-import") return "Imported WhatsApp chat export (sealed on import)";
    if (kind == "iphone-backup-import") return "Imported iPhone backup (sealed on import)";
    if (kind == "iphone-backup") return "iPhone backup folder";
    if (kind == "files") return "Files chosen by the user";
    return std::string(kind);
}

}  // namespace bc
