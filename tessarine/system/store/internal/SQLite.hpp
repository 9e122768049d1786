#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tessarine::detail {

/// What a database answered when it could not do its work.
struct DatabaseError : std::runtime_error {
  DatabaseError(const std::string& text, bool isDamage)
      : std::runtime_error(text), damage(isDamage) {}
  bool damage;  // the file is no database, or a broken one
};

/// One connection to an SQLite file of our own in WAL mode, created with mode 0600 when missing.
///
/// One thread at a time. Every operation throws `DatabaseError`.
class SQLite {
 public:
  struct Schema {
    std::int32_t applicationId;  // tells our kinds of files apart, and from those of others
    int version;
    const char* tables;  // SQL that makes a new file
  };
  struct Options {
    /// Whether a commit is on the disk itself when it returns; else it survives only the process.
    bool isSynchronous = true;
    /// How long another process that is writing is waited for.
    int longestWaitMilliseconds = 10'000;
    /// Whether a file that may not be written is read as one that nobody writes.
    bool readsUnwritable = false;
  };

  SQLite(const std::string& path, const Schema& schema, const Options& options);
  ~SQLite();
  SQLite(const SQLite&) = delete;
  SQLite& operator=(const SQLite&) = delete;

  class Statement;
  Statement prepare(const char* sql);
  void execute(const char* sql);
  /// The one number that `sql` gives.
  std::int64_t number(const char* sql);

  /// Runs `work` under the write lock of the file, in one transaction that an exception undoes.
  template <class Work>
  void write(Work work) {
    execute("BEGIN IMMEDIATE");
    Rollback rollback{this};
    work();
    execute("COMMIT");
    rollback.connection = nullptr;
  }

  /// Runs `work` on one state of the file.
  template <class Work>
  void read(Work work) {
    execute("BEGIN");
    Rollback rollback{this};
    work();
    execute("COMMIT");
    rollback.connection = nullptr;
  }

  /// Brings what is committed to the disk itself.
  void checkpoint();

 private:
  struct Rollback {
    SQLite* connection;
    ~Rollback() {
      if (connection != nullptr) connection->rollBack();
    }
  };
  struct Close {
    void operator()(sqlite3* database) const;
  };

  void open(const std::string& path, bool readsUnwritable);
  void prepareFile(const Schema& schema, bool isSynchronous);
  bool isOurs(const Schema& schema);
  void check(int code);
  void rollBack() noexcept;

  std::unique_ptr<sqlite3, Close> database_;
  int longestWait_;
};

/// A prepared statement: bind, then walk the rows; a new `run` begins it anew.
class SQLite::Statement {
 public:
  /// Runs it with `values` bound in order: integers, doubles, texts (as blobs) and optionals of
  /// texts (NULL when absent). `next` then gives row after row.
  template <class... Values>
  Statement& run(const Values&... values) {
    reset();
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }
  /// Steps to the next row; false at the end, where the statement is reset.
  bool next();
  /// Runs it to its end, for statements without rows.
  template <class... Values>
  void execute(const Values&... values) {
    run(values...);
    while (next()) continue;
  }

  /// Columns of the row, from 0. Texts last until the next step.
  std::int64_t integer(int column) const;
  double real(int column) const;
  bool isNull(int column) const;
  std::string_view text(int column) const;
  std::optional<std::string_view> optionalText(int column) const;

 private:
  friend class SQLite;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  Statement(SQLite& connection, sqlite3_stmt* statement)
      : connection_(&connection), statement_(statement) {}

  void reset();
  void bind(int index, std::int64_t value);
  void bind(int index, double value);
  void bind(int index, std::string_view value);
  template <class Text>
  void bind(int index, const std::optional<Text>& value) {
    if (value) bind(index, std::string_view(*value));  // else NULL, as after a reset
  }

  SQLite* connection_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace tessarine::detail
