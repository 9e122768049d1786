#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tessarine::detail {

/// What the database answered when it could not do its work.
struct DatabaseError : std::runtime_error {
  DatabaseError(const std::string& text, bool isDamage)
      : std::runtime_error(text), damage(isDamage) {}
  bool damage;  // the file is no database, or a broken one
};

/// The settled values of one domain: an SQLite file in WAL mode with one row a key ever written. A
/// removed key keeps its row, with the time of the removal and no value.
///
/// One thread at a time. Every operation throws `DatabaseError`. Another process that is writing is
/// waited for, up to `longestWait`.
class Database {
 public:
  static constexpr int longestWaitMilliseconds = 10'000;

  struct Row {
    std::string_view key;
    std::optional<std::string_view> value;  // absent: removed
    double written;
  };

  /// Opens or creates the file at `path`, with mode 0600. A file that cannot be opened for writing
  /// is opened for reading; `apply` then throws.
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Calls `visit` with the row of `key`, if there is one. The row's texts last for the call.
  void find(std::string_view key, const std::function<void(const Row&)>& visit);
  void forEach(const std::function<void(const Row&)>& visit);

  /// Where in the journal the last `apply` ended.
  std::uint64_t folded();

  /// Runs `rows(folded)` under the write lock of the file and stores what it gives, together with
  /// the new end, in one transaction that is on the disk when the call returns.
  struct Batch {
    std::span<const Row> rows;
    std::uint64_t folded;
  };
  void apply(const std::function<Batch(std::uint64_t folded)>& rows);

 private:
  struct CloseDatabase {
    void operator()(sqlite3* database) const;
  };
  struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

  void openFile(const std::string& path);
  void prepareFile();
  bool isOurs();
  std::int64_t number(const char* sql);
  void execute(const char* sql);
  Statement prepare(const char* sql);
  void check(int code);
  void upsert(const Row& row);
  static Row rowOf(sqlite3_stmt* statement);

  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Statement find_;
  Statement upsert_;
};

}  // namespace tessarine::detail
