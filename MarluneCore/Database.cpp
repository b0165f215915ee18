#include "MarluneCore/Database.h"

#include <memory>
#include <sqlite3.h>
#include <unordered_map>

namespace marlune {

namespace {

[[noreturn]] void fail(sqlite3* db, int code, std::string_view context,
                       DatabaseError::Access access) {
    std::string detail(context);
    detail += ": ";
    detail += db ? sqlite3_errmsg(db) : sqlite3_errstr(code);
    throw DatabaseError(code, detail, access);
}

void check(sqlite3* db, int code, std::string_view context) {
    if (code != SQLITE_OK) {
        fail(db, code, context, DatabaseError::Access::writing);
    }
}

} // namespace

bool DatabaseError::isDamage() const {
    const int primary = code_ & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool DatabaseError::isBusy() const {
    const int primary = code_ & 0xff;
    return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

std::string DatabaseError::userMessage(int code, Access access) {
    const bool reading = access == Access::reading;
    const std::string failed =
        reading ? "The library could not be read" : "The library could not be saved";
    if (code == SQLITE_IOERR_NOMEM) {
        code = SQLITE_NOMEM;
    }
    switch (code & 0xff) {
    case SQLITE_FULL:
        return failed + " because the disk is full. Free some space on the disk and try again.";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return "The library is damaged: part of its file cannot be read. Restore the library "
               "from a backup, or move it aside to start a new one.";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
        return "The library is busy: another program is using it. Try again in a moment.";
    case SQLITE_READONLY:
        return "The library could not be saved because its file is read-only. Check the "
               "permissions of the library folder and the files in it.";
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return failed + " because the system refused access to it. Check the permissions of "
                        "the library folder and the files in it.";
    case SQLITE_CANTOPEN:
        return "The library file could not be opened. Check that the library folder exists and "
               "that you may read and write the files in it.";
    case SQLITE_IOERR:
        return failed + " because of a disk error. Check the disk, then try again.";
    case SQLITE_NOMEM:
        return failed + " because there was not enough memory. Close some programs and try "
                        "again.";
    case SQLITE_TOOBIG:
        return "The item is too large for the library to store. Make it smaller and try again.";
    case SQLITE_CONSTRAINT:
        return "The change conflicts with what the library already holds, so it was not saved. "
               "List the items again and retry.";
    case SQLITE_INTERRUPT:
        return failed + " because the operation was interrupted. Try again.";
    default:
        return failed + " because of an unexpected error. Try again; if it keeps happening, "
                        "Marlune's log has the details.";
    }
}

struct Database::Cache {
    std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
};

Database Database::open(const std::filesystem::path& path, OpenMode mode) {
    int flags = SQLITE_OPEN_NOMUTEX;
    switch (mode) {
    case OpenMode::readWrite:
        flags |= SQLITE_OPEN_READWRITE;
        break;
    case OpenMode::readWriteCreate:
        flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        break;
    case OpenMode::readOnly:
        flags |= SQLITE_OPEN_READONLY;
        break;
    }
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
        sqlite3_close_v2(db);
        throw DatabaseError(rc, "Cannot open " + path.string() + ": " + message,
                            DatabaseError::Access::reading);
    }
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_timeout(db, 5000);
    return Database(db);
}

Database Database::openInMemory() {
    sqlite3* db = nullptr;
    const int rc = sqlite3_open_v2(":memory:", &db,
                                   SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                                       SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_MEMORY,
                                   nullptr);
    if (rc != SQLITE_OK) {
        sqlite3_close_v2(db);
        throw DatabaseError(rc, "Cannot open an in-memory database");
    }
    sqlite3_extended_result_codes(db, 1);
    return Database(db);
}

Database::Database(Database&& other) noexcept
    : db_(other.db_), savepointDepth_(other.savepointDepth_), cache_(other.cache_) {
    other.db_ = nullptr;
    other.cache_ = nullptr;
}

Database& Database::operator=(Database&& other) noexcept {
    if (this != &other) {
        this->~Database();
        db_ = other.db_;
        savepointDepth_ = other.savepointDepth_;
        cache_ = other.cache_;
        other.db_ = nullptr;
        other.cache_ = nullptr;
    }
    return *this;
}

Database::~Database() {
    delete cache_; // finalises cached statements before the connection closes
    cache_ = nullptr;
    if (db_ != nullptr) {
        sqlite3_close_v2(db_);
        db_ = nullptr;
    }
}

void Database::execute(std::string_view sql) {
    const std::string text(sql);
    char* error = nullptr;
    const int rc = sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &error);
    if (rc != SQLITE_OK) {
        std::string message = error ? error : sqlite3_errstr(rc);
        sqlite3_free(error);
        throw DatabaseError(rc, message + " (in: " + text.substr(0, 120) + ")");
    }
}

Statement Database::prepare(std::string_view sql) {
    sqlite3_stmt* stmt = nullptr;
    const int rc =
        sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &stmt, nullptr);
    if (rc != SQLITE_OK) {
        fail(db_, rc, "Cannot prepare \"" + std::string(sql.substr(0, 120)) + "\"",
             DatabaseError::Access::reading);
    }
    return Statement(db_, stmt);
}

Statement& Database::cached(std::string_view sql) {
    if (cache_ == nullptr) {
        cache_ = new Cache();
    }
    auto it = cache_->statements.find(std::string(sql));
    if (it == cache_->statements.end()) {
        it = cache_->statements.emplace(std::string(sql), std::make_unique<Statement>(prepare(sql)))
                 .first;
    }
    it->second->reset();
    return *it->second;
}

std::int64_t Database::changes() const {
    return sqlite3_changes64(db_);
}

Database::ChangeStamp Database::changeStamp() {
    ChangeStamp stamp;
    stamp.ownChanges = sqlite3_total_changes64(db_);
    auto& version = cached("PRAGMA data_version");
    if (version.step()) {
        stamp.dataVersion = version.int64(0);
    }
    version.reset();
    return stamp;
}

bool Database::inTransaction() const {
    return sqlite3_get_autocommit(db_) == 0;
}

Database::Transaction::Transaction(Database& db) : db_(db) {
    name_ = "marlune_sp" + std::to_string(db_.savepointDepth_++);
    db_.execute("SAVEPOINT " + name_);
}

Database::Transaction::~Transaction() {
    if (!done_) {
        try {
            db_.execute("ROLLBACK TO " + name_);
            db_.execute("RELEASE " + name_);
        } catch (const DatabaseError&) {
            // The connection already rolled back (e.g. after a failed COMMIT); nothing to undo.
        }
        --db_.savepointDepth_;
    }
}

void Database::Transaction::commit() {
    db_.execute("RELEASE " + name_);
    done_ = true;
    --db_.savepointDepth_;
}

Statement::Statement(Statement&& other) noexcept : db_(other.db_), stmt_(other.stmt_) {
    other.stmt_ = nullptr;
}

Statement& Statement::operator=(Statement&& other) noexcept {
    if (this != &other) {
        sqlite3_finalize(stmt_);
        db_ = other.db_;
        stmt_ = other.stmt_;
        other.stmt_ = nullptr;
    }
    return *this;
}

Statement::~Statement() {
    sqlite3_finalize(stmt_);
}

Statement& Statement::bind(int index, std::int64_t value) {
    check(db_, sqlite3_bind_int64(stmt_, index, value), "bind");
    return *this;
}

Statement& Statement::bind(int index, double value) {
    check(db_, sqlite3_bind_double(stmt_, index, value), "bind");
    return *this;
}

Statement& Statement::bind(int index, std::string_view text) {
    check(
        db_,
        sqlite3_bind_text64(stmt_, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8),
        "bind");
    return *this;
}

Statement& Statement::bindBlob(int index, std::span<const std::uint8_t> bytes) {
    // A zero-length blob must still be a blob, not NULL.
    static const std::uint8_t empty = 0;
    const void* data = bytes.empty() ? &empty : bytes.data();
    check(db_, sqlite3_bind_blob64(stmt_, index, data, bytes.size(), SQLITE_TRANSIENT), "bind");
    return *this;
}

Statement& Statement::bindNull(int index) {
    check(db_, sqlite3_bind_null(stmt_, index), "bind");
    return *this;
}

bool Statement::step() {
    const int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) {
        return true;
    }
    if (rc == SQLITE_DONE) {
        return false;
    }
    const std::string sql = sqlite3_sql(stmt_) ? sqlite3_sql(stmt_) : "";
    const auto access = sqlite3_stmt_readonly(stmt_) != 0 ? DatabaseError::Access::reading
                                                          : DatabaseError::Access::writing;
    sqlite3_reset(stmt_);
    fail(db_, rc, "Statement failed \"" + sql.substr(0, 120) + "\"", access);
}

void Statement::run() {
    while (step()) {
    }
    reset();
}

void Statement::reset() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

std::int64_t Statement::int64(int column) const {
    return sqlite3_column_int64(stmt_, column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(stmt_, column);
}

std::string_view Statement::textView(int column) const {
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    const int size = sqlite3_column_bytes(stmt_, column);
    return data ? std::string_view(data, static_cast<std::size_t>(size)) : std::string_view();
}

std::string Statement::text(int column) const {
    return std::string(textView(column));
}

std::vector<std::uint8_t> Statement::blob(int column) const {
    const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(stmt_, column));
    const int size = sqlite3_column_bytes(stmt_, column);
    if (data == nullptr || size <= 0) {
        return {};
    }
    return {data, data + size};
}

std::optional<std::int64_t> Statement::optionalInt64(int column) const {
    if (isNull(column)) {
        return std::nullopt;
    }
    return int64(column);
}

std::optional<std::string> Statement::optionalText(int column) const {
    if (isNull(column)) {
        return std::nullopt;
    }
    return text(column);
}

std::optional<double> Statement::optionalReal(int column) const {
    if (isNull(column)) {
        return std::nullopt;
    }
    return real(column);
}

} // namespace marlune
