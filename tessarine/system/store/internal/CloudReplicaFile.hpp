#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/system/store/internal/CloudReplica.hpp"
#include "tessarine/system/store/internal/SQLite.hpp"
#include "tessarine/system/store/internal/cloudColumns.hpp"
#include "tessarine/values/UUID.hpp"

namespace tessarine::detail {

/// The statements on the file of a replica. They throw `DatabaseError`; what belongs together goes
/// inside of a transaction of `database`. To be used by one thread at a time.
class CloudReplica::File {
 public:
  explicit File(const std::string& path);
  /// Carries the log of the file home.
  static void checkpoint(const std::string& path);

  /// Another number than before exactly when another connection has changed the file.
  std::int64_t version();

  struct Present {
    UUID replica;
    std::int64_t account = 0;
    std::string user;
    std::string position;
    std::optional<std::int64_t> exchanged;
  };
  /// Of the account `chosen`; 0: of the one that was chosen last by any process.
  Present present(std::int64_t chosen);

  template <class Visit>
  void forEachChanged(std::int64_t account, std::int64_t since, Visit visit) {
    changed_.run(account, since);
    while (changed_.next()) {
      const Entry entry{stampOf(changed_, 2), ownedText(changed_, 1),
                        static_cast<Standing>(changed_.integer(5))};
      visit(changed_.text(0), entry, changed_.integer(6));
    }
  }

  void put(std::int64_t account, std::string_view key, const Entry& entry, std::int64_t change);
  void moveTo(std::int64_t account, const std::string& position,
              std::optional<std::int64_t> exchanged);

  /// Makes the account of `user` the one that processes begin with, and gives it.
  std::int64_t choose(const std::string& user);

  void forgetRemovals(std::int64_t before);

  SQLite database;

 private:
  /// The account of `user`, made when missing. The first user takes over what was nobody's.
  std::int64_t accountOf(const std::string& user);

  SQLite::Statement version_;
  SQLite::Statement present_;
  SQLite::Statement changed_;
  SQLite::Statement put_;
  SQLite::Statement move_;
};

}  // namespace tessarine::detail
