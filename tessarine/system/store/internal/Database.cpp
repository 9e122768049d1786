#include "tessarine/system/store/internal/Database.hpp"

namespace tessarine::detail {
namespace {

constexpr SQLite::Schema schema{
    .applicationId = 0x54455353,  // "TESS"
    .version = 1,
    .tables =
        "CREATE TABLE entries(key BLOB PRIMARY KEY, value BLOB, written REAL NOT NULL)"
        " WITHOUT ROWID;"
        "CREATE TABLE journal(folded INTEGER NOT NULL);"
        "INSERT INTO journal VALUES(0)"};

Database::Row rowOf(const SQLite::Statement& statement) {
  return {
      .key = statement.text(0), .value = statement.optionalText(1), .written = statement.real(2)};
}

}  // namespace

Database::Database(const std::string& path)
    : file_(path, schema, {.readsUnwritable = true}),
      find_(file_.prepare("SELECT key, value, written FROM entries WHERE key = ?1")) {}

void Database::find(std::string_view key, const std::function<void(const Row&)>& visit) {
  find_.run(key);
  while (find_.next()) visit(rowOf(find_));
}

void Database::forEach(const std::function<void(const Row&)>& visit) {
  auto all = file_.prepare("SELECT key, value, written FROM entries");
  while (all.next()) visit(rowOf(all));
}

std::uint64_t Database::folded() {
  return static_cast<std::uint64_t>(file_.number("SELECT folded FROM journal"));
}

void Database::apply(const std::function<Batch(std::uint64_t)>& rows) {
  if (!upsert_) {
    upsert_ = file_.prepare(
        "INSERT INTO entries VALUES(?1, ?2, ?3) ON CONFLICT(key) DO UPDATE"
        " SET value = excluded.value, written = excluded.written");
  }
  file_.write([&] {
    const Batch batch = rows(folded());
    for (const Row& row : batch.rows) upsert_->execute(row.key, row.value, row.written);
    file_.prepare("UPDATE journal SET folded = ?1")
        .execute(static_cast<std::int64_t>(batch.folded));
  });
}

}  // namespace tessarine::detail
