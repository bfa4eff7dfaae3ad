#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace bc {

class CancelFlag;

namespace sqlite {

enum class OpenMode {
    readOnly,           // plain path, SQLITE_OPEN_READONLY (1)
    readOnlyImmutable,  // "file:" URI + "?immutable=1", READONLY | URI (65): sealed copies
    // A file the user pointed at, whose folder must stay exactly as it was (not even a "-shm"):
    // immutable when no write-ahead log is beside it, else a private copy of the file and its log
    // in the temporary folder, removed again when the connection closes.
    readOnlyUntouched,
    readWriteCreate,  // READWRITE | CREATE (6): our own files only
};

// The database's write-ahead log: its path + "-wal".
std::filesystem::path writeAheadLog(const std::filesystem::path& database);

// "file:" + the path percent-encoded as a URL path + "?immutable=1".
std::string immutableURI(const std::filesystem::path& path);

class Statement;

// One connection. Not thread-safe: owners serialise use (readers hold a recursive lock).
class Connection {
public:
    // Throws DBError::accessDenied with the engine's message ("unknown error" without a handle),
    // or the file system's when a private copy cannot be made.
    Connection(const std::filesystem::path& path, OpenMode mode);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void setBusyTimeout(int milliseconds);
    // Throws DBError::query when the text does not prepare.
    Statement prepare(std::string_view sql);
    // Runs statements that return no rows; throws DBError::query.
    void execute(std::string_view sql);

    // Schema probes, each filled once per connection and then kept.
    bool tableExists(const std::string& table);
    bool columnExists(const std::string& table, const std::string& column);

    // Online copy of "main" into a new file. Steps all pages at once, retrying every 100 ms while
    // busy or locked, then makes the copy self-contained (journal_mode=DELETE).
    void backupTo(const std::filesystem::path& destination, const CancelFlag* cancel);

    std::string errorMessage() const;
    sqlite3* handle() const { return db_; }

private:
    void open(const std::string& name, int flags);
    void openPrivateCopy(const std::filesystem::path& path);

    sqlite3* db_ = nullptr;
    std::optional<std::filesystem::path> privateCopy_;  // folder removed after closing
    std::optional<std::set<std::string>> tables_;
    std::map<std::string, std::set<std::string>> columns_;
};

class Statement {
public:
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&&) = delete;
    ~Statement();

    Statement& bind(int index, int64_t value);
    Statement& bind(int index, double value);
    Statement& bind(int index, std::string_view text);
    Statement& bindBlob(int index, std::string_view bytes);
    Statement& bindNull(int index);

    // True while a row is available; throws DBError::query on failure.
    bool step();
    void reset();

    bool isNull(int column) const;
    int64_t int64(int column) const;
    double real(int column) const;
    // UTF-8 with invalid sequences replaced by U+FFFD.
    std::string text(int column) const;
    std::optional<std::string> optionalText(int column) const;
    // Raw bytes as stored.
    std::string blob(int column) const;
    std::optional<std::string> optionalBlob(int column) const;

private:
    friend class Connection;
    Statement(sqlite3_stmt* statement, sqlite3* db) : statement_(statement), db_(db) {}
    void check(int result) const;
    sqlite3_stmt* statement_;
    sqlite3* db_;
};

// Several statements read one state of a database that its owner may be writing meanwhile. A
// read transaction takes no write lock; inside a caller's transaction there is nothing to do.
// COMMIT runs on every way out, failures included: the transaction only read.
class ReadTransaction {
public:
    explicit ReadTransaction(Connection& db);
    ~ReadTransaction();
    ReadTransaction(const ReadTransaction&) = delete;
    ReadTransaction& operator=(const ReadTransaction&) = delete;

private:
    Connection& db_;
    bool owned_;
};

}  // namespace sqlite
}  // namespace bc
