#include "tessarine/system/store/internal/CloudReplicaFile.hpp"

namespace tessarine::detail {
namespace {

constexpr SQLite::Schema schema{
    .applicationId = 0x54455352,  // "TESR"
    .version = 1,
    .tables =
        "CREATE TABLE accounts(account INTEGER PRIMARY KEY, user BLOB UNIQUE NOT NULL,"
        " position BLOB NOT NULL, exchanged INTEGER);"
        "INSERT INTO accounts VALUES(1, x'', x'', NULL);"
        "CREATE TABLE present(replica BLOB NOT NULL, account INTEGER NOT NULL);"
        "INSERT INTO present VALUES(randomblob(16), 1);"
        "CREATE TABLE entries(account INTEGER, key BLOB, value BLOB, time INTEGER NOT NULL,"
        " counter INTEGER NOT NULL, replica BLOB NOT NULL, standing INTEGER NOT NULL,"
        " change INTEGER NOT NULL, PRIMARY KEY(account, key)) WITHOUT ROWID"};

}  // namespace

CloudReplica::File::File(const std::string& path)
    : database(path, schema, {.isSynchronous = false}),
      version_(database.prepare("PRAGMA data_version")),
      present_(database.prepare("SELECT replica, accounts.account, user, position, exchanged"
                                " FROM present JOIN accounts ON accounts.account ="
                                " iif(?1 = 0, present.account, ?1)")),
      changed_(database.prepare("SELECT key, value, time, counter, replica, standing, change"
                                " FROM entries WHERE account = ?1 AND change > ?2")),
      put_(database.prepare("INSERT INTO entries VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)"
                            " ON CONFLICT(account, key) DO UPDATE SET value = excluded.value,"
                            " time = excluded.time, counter = excluded.counter,"
                            " replica = excluded.replica, standing = excluded.standing,"
                            " change = excluded.change")),
      move_(database.prepare("UPDATE accounts SET position = ?2, exchanged = ?3"
                             " WHERE account = ?1")) {}

void CloudReplica::File::checkpoint(const std::string& path) {
  SQLite(path, schema, {.isSynchronous = false}).checkpoint();
}

std::int64_t CloudReplica::File::version() {
  version_.run();
  std::int64_t version = 0;
  while (version_.next()) version = version_.integer(0);
  return version;
}

CloudReplica::File::Present CloudReplica::File::present(std::int64_t chosen) {
  Present present;
  present_.run(chosen);
  while (present_.next()) {
    present = {uuidOf(present_.text(0)), present_.integer(1), std::string(present_.text(2)),
               std::string(present_.text(3)), std::nullopt};
    if (!present_.isNull(4)) present.exchanged = present_.integer(4);
  }
  return present;
}

void CloudReplica::File::put(std::int64_t account, std::string_view key, const Entry& entry,
                             std::int64_t change) {
  put_.execute(account, key, entry.value, entry.stamp.time, std::int64_t{entry.stamp.counter},
               bytesOf(entry.stamp.replica), static_cast<std::int64_t>(entry.standing), change);
}

void CloudReplica::File::moveTo(std::int64_t account, const std::string& position,
                                std::optional<std::int64_t> exchanged) {
  move_.execute(account, position, exchanged.value_or(0));
}

std::int64_t CloudReplica::File::choose(const std::string& user) {
  const std::int64_t account = accountOf(user);
  database.prepare("UPDATE present SET account = ?1").execute(account);
  return account;
}

void CloudReplica::File::forgetRemovals(std::int64_t before) {
  database.prepare("DELETE FROM entries WHERE value IS NULL AND standing = 0 AND time < ?1")
      .execute(before);
}

std::int64_t CloudReplica::File::accountOf(const std::string& user) {
  auto find = database.prepare("SELECT account FROM accounts WHERE user = ?1");
  find.run(user);
  if (find.next()) return find.integer(0);
  if (database.number("SELECT count(*) FROM accounts") == 1 &&
      database.number("SELECT length(user) FROM accounts") == 0) {
    database.prepare("UPDATE accounts SET user = ?1").execute(user);
    return database.number("SELECT account FROM accounts");
  }
  database.prepare("INSERT INTO accounts(user, position) VALUES(?1, x'')").execute(user);
  return database.number("SELECT last_insert_rowid()");
}

}  // namespace tessarine::detail
