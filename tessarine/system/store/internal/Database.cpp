#include "tessarine/system/store/internal/Database.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

constexpr int applicationId = 0x54455353;  // "TESS"
constexpr int schemaVersion = 1;

bool isDamage(int code) {
  const int primary = code & 0xff;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

/// Waits for another process in short steps at first: most transactions take microseconds.
int waitForOthers(void* /*unused*/, int round) {
  constexpr int doublings = 8;
  const auto wait = std::chrono::microseconds(50 << std::min(round, doublings));
  if (wait * (round - doublings) > std::chrono::milliseconds(Database::longestWaitMilliseconds)) {
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

int bindText(sqlite3_stmt* statement, int index, std::string_view text) {
  // A null pointer would bind NULL, and an empty text is a text.
  return sqlite3_bind_blob64(statement, index, text.empty() ? "" : text.data(), text.size(),
                             SQLITE_STATIC);
}

std::string_view textOf(sqlite3_stmt* statement, int column) {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
}

/// Lets a statement be used again, whatever becomes of its run.
class Run {
 public:
  explicit Run(sqlite3_stmt* statement) : statement_(statement) {}
  ~Run() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

 private:
  sqlite3_stmt* statement_;
};

}  // namespace

void Database::CloseDatabase::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

void Database::FinalizeStatement::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Database::Database(const std::string& path) {
  openFile(path);
  prepareFile();
  find_ = prepare("SELECT key, value, written FROM entries WHERE key = ?1");
}

Database::~Database() = default;

void Database::openFile(const std::string& path) {
  // SQLite would create the file readable for everybody. An existing file must not be opened here:
  // closing any descriptor of it would drop the locks of other connections in this process.
  const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (created >= 0) ::close(created);
  const bool isWritable =
      created >= 0 || ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
  // Without the right to write there is nobody to share a write-ahead log with either.
  const std::string name = uriOf(path) + (isWritable ? "" : "?immutable=1");
  const int flags = (isWritable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_URI |
                    SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  sqlite3* database = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &database, flags, nullptr);
  database_.reset(database);
  check(code);
  sqlite3_busy_handler(database, waitForOthers, nullptr);
}

void Database::prepareFile() {
  const bool isWritable = sqlite3_db_readonly(database_.get(), "main") == 0;
  if (isWritable) execute("PRAGMA synchronous = FULL");
  if (isOurs()) return;
  execute("PRAGMA journal_mode = WAL; BEGIN IMMEDIATE");
  if (!isOurs()) {  // else another process was faster
    execute(
        "CREATE TABLE entries(key BLOB PRIMARY KEY, value BLOB, written REAL NOT NULL)"
        " WITHOUT ROWID;"
        "CREATE TABLE journal(folded INTEGER NOT NULL);"
        "INSERT INTO journal VALUES(0)");
    execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    execute(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
  }
  execute("COMMIT");
}

/// False for an empty file. Throws for what is neither.
bool Database::isOurs() {
  const auto version = number("PRAGMA user_version");
  const auto owner = number("PRAGMA application_id");
  if (version == schemaVersion && owner == applicationId) return true;
  if (version == 0 && owner == 0 && number("SELECT count(*) FROM sqlite_schema") == 0) return false;
  throw DatabaseError("written by another program or a newer version", false);
}

std::int64_t Database::number(const char* sql) {
  const Statement statement = prepare(sql);
  check(sqlite3_step(statement.get()));
  return sqlite3_column_int64(statement.get(), 0);
}

void Database::execute(const char* sql) {
  check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr));
}

Database::Statement Database::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  const int code =
      sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  // Our own statements fail only on a schema that is not ours any more.
  if (code == SQLITE_ERROR) throw DatabaseError(sqlite3_errmsg(database_.get()), true);
  check(code);
  return Statement(statement);
}

void Database::check(int code) {
  if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
  throw DatabaseError(database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(code),
                      isDamage(code));
}

Database::Row Database::rowOf(sqlite3_stmt* statement) {
  const bool isRemoved = sqlite3_column_type(statement, 1) == SQLITE_NULL;
  return {.key = textOf(statement, 0),
          .value = isRemoved ? std::nullopt : std::optional(textOf(statement, 1)),
          .written = sqlite3_column_double(statement, 2)};
}

void Database::find(std::string_view key, const std::function<void(const Row&)>& visit) {
  const Run run(find_.get());
  check(bindText(find_.get(), 1, key));
  const int code = sqlite3_step(find_.get());
  check(code);
  if (code == SQLITE_ROW) visit(rowOf(find_.get()));
}

void Database::forEach(const std::function<void(const Row&)>& visit) {
  const Statement all = prepare("SELECT key, value, written FROM entries");
  int code = sqlite3_step(all.get());
  for (; code == SQLITE_ROW; code = sqlite3_step(all.get())) visit(rowOf(all.get()));
  check(code);
}

std::uint64_t Database::folded() {
  return static_cast<std::uint64_t>(number("SELECT folded FROM journal"));
}

void Database::upsert(const Row& row) {
  const Run run(upsert_.get());
  check(bindText(upsert_.get(), 1, row.key));
  if (row.value) check(bindText(upsert_.get(), 2, *row.value));
  sqlite3_bind_double(upsert_.get(), 3, row.written);
  check(sqlite3_step(upsert_.get()));
}

void Database::apply(const std::function<Batch(std::uint64_t)>& rows) {
  if (!upsert_) {
    upsert_ = prepare(
        "INSERT INTO entries VALUES(?1, ?2, ?3) ON CONFLICT(key) DO UPDATE"
        " SET value = excluded.value, written = excluded.written");
  }
  execute("BEGIN IMMEDIATE");
  try {
    const Batch batch = rows(folded());
    for (const Row& row : batch.rows) upsert(row);
    const Statement end = prepare("UPDATE journal SET folded = ?1");
    sqlite3_bind_int64(end.get(), 1, static_cast<std::int64_t>(batch.folded));
    check(sqlite3_step(end.get()));
    execute("COMMIT");
  } catch (...) {
    sqlite3_exec(database_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
}

}  // namespace tessarine::detail
