#include "support/Sqlite.h"

#include <sqlite3.h>

#include <chrono>
#include <thread>

#include "support/CancelFlag.h"
#include "support/Errors.h"
#include "support/Files.h"
#include "support/Text.h"
#include "support/Uuid.h"

namespace bc::sqlite {

namespace fs = std::filesystem;

namespace {

std::string messageOf(sqlite3* db) {
    return db ? sqlite3_errmsg(db) : "unknown error";
}

bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

// The characters a URL path may carry as they are (RFC 3986 pchar plus "/").
bool isPathAllowed(unsigned char c) {
    static constexpr std::string_view extra = "/!$&'()*+,;=:@";
    return isUnreserved(c) || extra.find(static_cast<char>(c)) != std::string_view::npos;
}

// The engine manages the log index beside the copy, so the copy must be writable even when the
// original is not.
void copyWritable(const fs::path& from, const fs::path& to) {
    fs::copy_file(from, to);
    fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add);
}

// The database and its write-ahead log copied into `folder`, a new folder in the temporary one.
// The log goes first: should a writer fold it into the file in between, the older log's pages
// are all in the newer file already.
fs::path copyWithLog(const fs::path& database, const fs::path& folder) {
    fs::create_directories(folder);
    fs::path copy = folder / database.filename();
    copyWritable(writeAheadLog(database), writeAheadLog(copy));
    copyWritable(database, copy);
    return copy;
}

void removeCopy(const std::optional<fs::path>& folder) {
    if (!folder) return;
    try {
        files::removeAll(*folder);
    } catch (const Error&) {
        // A leftover copy in the temporary folder is not worth failing a read for.
    }
}

}  // namespace

fs::path writeAheadLog(const fs::path& database) {
    return database.string() + "-wal";
}

std::string immutableURI(const fs::path& path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out = "file:";
    for (unsigned char c : path.string()) {
        // "?" and "#" would end the path part of the URI, so they must be encoded too.
        if (isPathAllowed(c)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 0x0F];
        }
    }
    return out + "?immutable=1";
}

Connection::Connection(const fs::path& path, OpenMode mode) {
    constexpr int immutableFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI;
    std::error_code error;
    switch (mode) {
        case OpenMode::readOnly:
            open(path.string(), SQLITE_OPEN_READONLY);
            break;
        case OpenMode::readOnlyImmutable:
            open(immutableURI(path), immutableFlags);
            break;
        case OpenMode::readWriteCreate:
            open(path.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
            break;
        case OpenMode::readOnlyUntouched:
            // Immutable would ignore the log; reading the log in place would add or rewrite "-shm".
            if (fs::exists(writeAheadLog(path), error))
                openPrivateCopy(path);
            else
                open(immutableURI(path), immutableFlags);
            break;
    }
}

void Connection::openPrivateCopy(const fs::path& path) {
    try {
        privateCopy_ = fs::temp_directory_path() / ("brindlecourt-read-" + newUUID());
        open(copyWithLog(path, *privateCopy_).string(), SQLITE_OPEN_READONLY);
    } catch (const fs::filesystem_error& failure) {
        removeCopy(privateCopy_);
        throw DBError::accessDenied(failure.code().message());
    } catch (const DBError&) {
        removeCopy(privateCopy_);
        throw;
    }
}

void Connection::open(const std::string& name, int flags) {
    if (sqlite3_open_v2(name.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        const std::string message = messageOf(db_);
        sqlite3_close(db_);
        db_ = nullptr;
        throw DBError::accessDenied(message);
    }
}

Connection::~Connection() {
    sqlite3_close_v2(db_);
    removeCopy(privateCopy_);
}

void Connection::setBusyTimeout(int milliseconds) {
    sqlite3_busy_timeout(db_, milliseconds);
}

Statement Connection::prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int result =
        sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
    if (result != SQLITE_OK) {
        sqlite3_finalize(statement);
        throw DBError::query(messageOf(db_));
    }
    return Statement(statement, db_);
}

void Connection::execute(std::string_view sql) {
    char* error = nullptr;
    const std::string text(sql);
    if (sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string message = error ? error : messageOf(db_);
        sqlite3_free(error);
        throw DBError::query(message);
    }
}

bool Connection::tableExists(const std::string& table) {
    if (!tables_) {
        std::set<std::string> names;
        auto statement = prepare("SELECT name FROM sqlite_master WHERE type = 'table'");
        while (statement.step()) names.insert(statement.text(0));
        tables_ = std::move(names);
    }
    return tables_->contains(table);
}

bool Connection::columnExists(const std::string& table, const std::string& column) {
    auto found = columns_.find(table);
    if (found == columns_.end()) {
        std::set<std::string> names;
        // The table name is one of our own fixed names, never user input.
        auto statement = prepare("SELECT name FROM pragma_table_info('" + table + "')");
        while (statement.step()) names.insert(statement.text(0));
        found = columns_.emplace(table, std::move(names)).first;
    }
    return found->second.contains(column);
}

void Connection::backupTo(const fs::path& destination, const CancelFlag* cancel) {
    sqlite3* target = nullptr;
    if (sqlite3_open_v2(destination.c_str(), &target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        const std::string message = messageOf(target);
        sqlite3_close(target);
        throw DBError::accessDenied("Couldn't create the snapshot database: " + message);
    }
    struct Closer {
        sqlite3* db;
        ~Closer() { sqlite3_close_v2(db); }
    } closer{target};

    sqlite3_backup* backup = sqlite3_backup_init(target, "main", db_, "main");
    if (!backup) throw DBError::query(messageOf(target));
    int result = SQLITE_OK;
    for (;;) {
        if (cancel && cancel->isCancelled()) {
            sqlite3_backup_finish(backup);
            throw CancelledError();
        }
        result = sqlite3_backup_step(backup, -1);
        if (result == SQLITE_BUSY || result == SQLITE_LOCKED) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        break;
    }
    sqlite3_backup_finish(backup);
    if (result != SQLITE_DONE) {
        const int code = sqlite3_errcode(target);
        throw DBError::query(code != SQLITE_OK ? messageOf(target) : sqlite3_errstr(result));
    }
    char* error = nullptr;
    if (sqlite3_exec(target, "PRAGMA journal_mode=DELETE", nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string message = error ? error : messageOf(target);
        sqlite3_free(error);
        throw DBError::query(message);
    }
}

std::string Connection::errorMessage() const {
    return messageOf(db_);
}

Statement::Statement(Statement&& other) noexcept : statement_(other.statement_), db_(other.db_) {
    other.statement_ = nullptr;
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) throw DBError::query(messageOf(db_));
}

Statement& Statement::bind(int index, int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
    return *this;
}

Statement& Statement::bind(int index, double value) {
    check(sqlite3_bind_double(statement_, index, value));
    return *this;
}

Statement& Statement::bind(int index, std::string_view text) {
    check(sqlite3_bind_text64(statement_, index, text.data(), text.size(), SQLITE_TRANSIENT,
                              SQLITE_UTF8));
    return *this;
}

Statement& Statement::bindBlob(int index, std::string_view bytes) {
    check(sqlite3_bind_blob64(statement_, index, bytes.data(), bytes.size(), SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bindNull(int index) {
    check(sqlite3_bind_null(statement_, index));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) return true;
    if (result == SQLITE_DONE) return false;
    throw DBError::query(messageOf(db_));
}

void Statement::reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

int64_t Statement::int64(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

std::string Statement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (!bytes) return {};
    return text::repairUtf8(
        std::string_view(bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column))));
}

std::optional<std::string> Statement::optionalText(int column) const {
    if (isNull(column)) return std::nullopt;
    return text(column);
}

std::string Statement::blob(int column) const {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
    if (!bytes) return {};
    return std::string(bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column)));
}

std::optional<std::string> Statement::optionalBlob(int column) const {
    if (isNull(column)) return std::nullopt;
    return blob(column);
}

ReadTransaction::ReadTransaction(Connection& db)
    : db_(db), owned_(sqlite3_get_autocommit(db.handle()) != 0) {
    if (owned_) db_.execute("BEGIN");
}

ReadTransaction::~ReadTransaction() {
    if (owned_) sqlite3_exec(db_.handle(), "COMMIT", nullptr, nullptr, nullptr);
}

}  // namespace bc::sqlite
