#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace marlune {

// An SQLite failure. What the user reads (`what()`) is a sentence chosen by SQLite's result
// code: the statement and SQLite's own wording mean nothing to them, and the statement would
// tell them nothing they could act on. Those stay in `detail()`, for the log; neither holds
// content, since values are bound rather than written into statements.
class DatabaseError : public std::runtime_error {
public:
    // Whether the failed operation read the library or changed it, which decides between
    // "could not be read" and "could not be saved".
    enum class Access { reading, writing };

    DatabaseError(int code, std::string detail, Access access = Access::writing)
        : std::runtime_error(userMessage(code, access)), code_(code), detail_(std::move(detail)) {}

    // SQLite's extended result code.
    int code() const { return code_; }
    const std::string& detail() const { return detail_; }
    // SQLite found the file's content damaged (a malformed page, or not a database at all).
    bool isDamage() const;
    // Another connection holds a lock SQLite gave up waiting for.
    bool isBusy() const;

    // The sentence for a failure with SQLite result code `code` (primary or extended).
    static std::string userMessage(int code, Access access);

private:
    int code_;
    std::string detail_;
};

class Statement;

// A thin owner of one SQLite connection. All library access goes through one of these on
// the main thread; it is not shared between threads.
class Database {
public:
    enum class OpenMode { readWrite, readWriteCreate, readOnly };

    static Database open(const std::filesystem::path& path, OpenMode mode);
    static Database openInMemory();

    Database(Database&& other) noexcept;
    Database& operator=(Database&& other) noexcept;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    void execute(std::string_view sql);
    Statement prepare(std::string_view sql);
    // Prepared once per connection and kept: for statements on hot paths.
    Statement& cached(std::string_view sql);

    std::int64_t changes() const;
    sqlite3* handle() const { return db_; }

    // Where the file's content stands, for keeping what was read from it. It moves with every
    // row written through this connection (cascades, triggers and applied undo steps included)
    // and with every commit to the same file by any other connection, in this process or
    // another (SQLite's data version, which this connection's own commits leave alone). So two
    // equal stamps mean nobody wrote in between. Schema changes and rollbacks do not move it:
    // rows read inside a transaction may yet be rolled back, so only stamps taken outside a
    // transaction (see `inTransaction`) say anything. Cheap: a counter and one cached pragma.
    struct ChangeStamp {
        std::int64_t ownChanges = 0;
        std::int64_t dataVersion = 0;
        friend bool operator==(const ChangeStamp&, const ChangeStamp&) = default;
    };
    ChangeStamp changeStamp();
    // Whether a transaction (or savepoint) is open on this connection.
    bool inTransaction() const;

    // A transaction that rolls back unless committed; nests through savepoints.
    class Transaction {
    public:
        explicit Transaction(Database& db);
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        ~Transaction();
        void commit();

    private:
        Database& db_;
        std::string name_;
        bool done_ = false;
    };

private:
    explicit Database(sqlite3* db) : db_(db) {}
    sqlite3* db_ = nullptr;
    int savepointDepth_ = 0;
    struct Cache;
    Cache* cache_ = nullptr;
    friend class Transaction;
};

// One prepared statement. Parameters are bound by 1-based index; columns read by 0-based index.
class Statement {
public:
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement();

    Statement& bind(int index, std::int64_t value);
    Statement& bind(int index, int value) { return bind(index, static_cast<std::int64_t>(value)); }
    Statement& bind(int index, bool value) { return bind(index, static_cast<std::int64_t>(value)); }
    Statement& bind(int index, double value);
    Statement& bind(int index, std::string_view text);
    Statement& bind(int index, const char* text) { return bind(index, std::string_view(text)); }
    Statement& bind(int index, const std::string& text) {
        return bind(index, std::string_view(text));
    }
    Statement& bindBlob(int index, std::span<const std::uint8_t> bytes);
    Statement& bindNull(int index);
    template <typename T> Statement& bind(int index, const std::optional<T>& value) {
        if (value) {
            return bind(index, *value);
        }
        return bindNull(index);
    }

    // Advances to the next row; false when the statement is done.
    bool step();
    // Runs a statement that returns no rows, then resets it.
    void run();
    void reset();

    bool isNull(int column) const;
    std::int64_t int64(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    std::string_view textView(int column) const;
    std::vector<std::uint8_t> blob(int column) const;
    std::optional<std::int64_t> optionalInt64(int column) const;
    std::optional<std::string> optionalText(int column) const;
    std::optional<double> optionalReal(int column) const;

private:
    friend class Database;
    Statement(sqlite3* db, sqlite3_stmt* stmt) : db_(db), stmt_(stmt) {}
    sqlite3* db_ = nullptr;
    sqlite3_stmt* stmt_ = nullptr;
};

} // namespace marlune
