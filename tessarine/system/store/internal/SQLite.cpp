#include "tessarine/system/store/internal/SQLite.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

bool isDamage(int code) {
  const int primary = code & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

/// Waits for another process in short steps at first: most transactions take microseconds.
int waitForOthers(void* longestWait, int round) {
  constexpr int doublings = 8;
  const auto wait = std::chrono::microseconds(50 << std::min(round, doublings));
  if (wait * (round - doublings) > std::chrono::milliseconds(*static_cast<int*>(longestWait))) {
    return 0;
  }
  std::this_thread::sleep_for(wait);
  return 1;
}

std::string uriOf(const std::string& path) {
  std::string uri = "file:";
  for (const char c : path) {
    if (c == '?' || c == '#' || c == '%') {
      constexpr auto digits = "0123456789ABCDEF";
      uri += '%';
      uri += digits[static_cast<unsigned char>(c) >> 4U];
      uri += digits[static_cast<unsigned char>(c) & 15U];
    } else {
      uri += c;
    }
  }
  return uri;
}

}  // namespace

// ---- connection ----

void SQLite::Close::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

SQLite::SQLite(const std::string& path, const Schema& schema, const Options& options)
    : longestWait_(options.longestWaitMilliseconds) {
  open(path, options.readsUnwritable);
  prepareFile(schema, options.isSynchronous);
}

SQLite::~SQLite() = default;

void SQLite::open(const std::string& path, bool readsUnwritable) {
  // SQLite would create the file readable for everybody. An existing file must not be opened here:
  // closing any descriptor of it would drop the locks of other connections in this process.
  const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (created >= 0) ::close(created);
  const bool isWritable = created >= 0 || !readsUnwritable ||
                          ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
  // Without the right to write there is nobody to share a write-ahead log with either.
  const std::string name = uriOf(path) + (isWritable ? "" : "?immutable=1");
  const int flags = (isWritable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_URI |
                    SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &database, flags, nullptr);
  database_.reset(database);
  check(code);
  sqlite3_busy_handler(database, waitForOthers, &longestWait_);
}

void SQLite::prepareFile(const Schema& schema, bool isSynchronous) {
  const bool isWritable = sqlite3_db_readonly(database_.get(), "main") == 0;
  if (isWritable)
    execute(isSynchronous ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  if (isOurs(schema)) return;
  execute("PRAGMA journal_mode = WAL");
  write([&] {
    if (isOurs(schema)) return;  // another process was faster
    execute(schema.tables);
    execute(("PRAGMA application_id = " + std::to_string(schema.applicationId)).c_str());
    execute(("PRAGMA user_version = " + std::to_string(schema.version)).c_str());
  });
}

/// False for an empty file. Throws for what is neither.
bool SQLite::isOurs(const Schema& schema) {
  const auto version = number("PRAGMA user_version");
  const auto owner = number("PRAGMA application_id");
  if (version == schema.version && owner == schema.applicationId) return true;
  if (version == 0 && owner == 0 && number("SELECT count(*) FROM sqlite_schema") == 0) return false;
  throw DatabaseError("written by another program or a newer version", false);
}

std::int64_t SQLite::number(const char* sql) {
  Statement statement = prepare(sql);
  statement.next();
  return statement.integer(0);
}

void SQLite::execute(const char* sql) {
  check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr));
}

SQLite::Statement SQLite::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  const int code =
      sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  // Our own statements fail only on a schema that is not ours any more.
  if (code == SQLITE_ERROR) throw DatabaseError(sqlite3_errmsg(database_.get()), true);
  check(code);
  return {*this, statement};
}

void SQLite::check(int code) {
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
  throw DatabaseError(database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(code),
                      isDamage(code));
}

void SQLite::rollBack() noexcept {
  sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SQLite::checkpoint() {
  check(sqlite3_wal_checkpoint_v2(database_.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr,
                                  nullptr));
}

// ---- statements ----

void SQLite::Statement::Finalize::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

void SQLite::Statement::reset() {
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
}

bool SQLite::Statement::next() {
  const int code = sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  reset();
  connection_->check(code);
  return false;
}

void SQLite::Statement::bind(int index, std::int64_t value) {
  connection_->check(sqlite3_bind_int64(statement_.get(), index, value));
}

void SQLite::Statement::bind(int index, double value) {
  connection_->check(sqlite3_bind_double(statement_.get(), index, value));
}

void SQLite::Statement::bind(int index, std::string_view value) {
  // A null pointer would bind NULL, and an empty text is a text.
  connection_->check(sqlite3_bind_blob64(statement_.get(), index, value.empty() ? "" : value.data(),
                                         value.size(), SQLITE_STATIC));
}

std::int64_t SQLite::Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

double SQLite::Statement::real(int column) const {
  return sqlite3_column_double(statement_.get(), column);
}

bool SQLite::Statement::isNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

std::string_view SQLite::Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_.get(), column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

std::optional<std::string_view> SQLite::Statement::optionalText(int column) const {
  return isNull(column) ? std::nullopt : std::optional(text(column));
}

}  // namespace tessarine::detail
