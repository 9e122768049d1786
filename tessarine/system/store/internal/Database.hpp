#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tessarine/system/store/internal/SQLite.hpp"

namespace tessarine::detail {

/// The settled values of one domain: an SQLite file with one row a key ever written. A removed key
/// keeps its row, with the time of the removal and no value.
///
/// One thread at a time. Every operation throws `DatabaseError`.
class Database {
 public:
  struct Row {
    std::string_view key;
    std::optional<std::string_view> value;  // absent: removed
    double written;
  };

  /// Opens or creates the file at `path`. A file that cannot be opened for writing is opened for
  /// reading; `apply` then throws.
  explicit Database(const std::string& path);

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
  SQLite file_;
  SQLite::Statement find_;
  std::optional<SQLite::Statement> upsert_;
};

}  // namespace tessarine::detail
