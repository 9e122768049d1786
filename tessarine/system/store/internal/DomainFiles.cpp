#include "tessarine/system/store/internal/DomainFiles.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include <unistd.h>

namespace tessarine::detail {
namespace {

constexpr auto databaseSuffix = ".sqlite";
constexpr auto journalSuffix = ".journal";

void tell(const std::string& path, const std::string& text) {
  std::fprintf(stderr, "tessarine: preferences %s: %s\n", path.c_str(), text.c_str());
}

std::string timestamp() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &parts);
  return text.data();
}

/// What the records come to: the last one of each key. A record that only points into the database
/// says nothing here.
void collect(const Journal::Record& record,
             std::unordered_map<std::string_view, Database::Row>& rows) {
  if (record.kind == Journal::Kind::inDatabase) return;
  auto& row = rows[record.key];
  row.key = record.key;
  row.value = record.kind == Journal::Kind::set ? std::optional(record.value) : std::nullopt;
  row.written = record.written;
}

}  // namespace

DomainFiles::DomainFiles(std::string path) : path_(std::move(path)) { open(); }

void DomainFiles::open() {
  std::error_code ignored;  // the database tells what is wrong with the folder
  const auto folder = std::filesystem::path(path_).parent_path();
  if (!std::filesystem::exists(folder, ignored)) {
    std::filesystem::create_directories(folder, ignored);
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ignored);
  }
  try {
    openDatabase();
  } catch (const DatabaseError& error) {
    database_.reset();
    if (!error.damage) return report(error.what());
    setAside(error.what());
    try {
      openDatabase();
    } catch (const DatabaseError& again) {
      database_.reset();
      return report(again.what());
    }
  }
  openJournal();
}

void DomainFiles::openDatabase() {
  database_ = std::make_unique<Database>(path_ + databaseSuffix);
  database_->folded();  // reads a page: a damaged file shows now rather than later
}

void DomainFiles::openJournal() {
  const std::string file = path_ + journalSuffix;
  std::error_code error;
  std::uint64_t folded = 0;
  try {
    folded = database_->folded();
  } catch (const DatabaseError& reason) {
    return failed(reason);
  }
  auto journal = Journal::open(file, folded, error);
  if (!journal && error == std::errc::bad_message) {
    const std::string aside = file + ".damaged-" + timestamp();
    std::rename(file.c_str(), aside.c_str());
    tell(path_, "the journal is damaged and set aside as " + aside);
    journal = Journal::open(file, folded, error);
  }
  if (!journal) return report(error.message());
  journal_ = journals_.emplace_back(std::move(journal)).get();
}

void DomainFiles::setAside(const std::string& reason) {
  const std::string file = path_ + databaseSuffix;
  const std::string stem = file + ".damaged-" + timestamp();
  std::string aside = stem;
  for (int i = 2; ::access(aside.c_str(), F_OK) == 0; ++i) aside = stem + "-" + std::to_string(i);
  std::rename(file.c_str(), aside.c_str());
  for (const auto* companion : {"-wal", "-shm"}) {
    std::rename((file + companion).c_str(), (aside + companion).c_str());
  }
  std::rename((path_ + journalSuffix).c_str(), (aside + journalSuffix).c_str());
  tell(path_, "the file is damaged (" + reason + ") and set aside as " + aside);
}

void DomainFiles::report(const std::string& reason) {
  const MutexLock lock(reporting_);
  if (!std::exchange(isReported_, true)) {
    tell(path_, "cannot be written (" + reason + "); values are kept in memory and tried again");
  }
}

void DomainFiles::reportRecovery() {
  const MutexLock lock(reporting_);
  isReported_ = false;
}

void DomainFiles::failed(const DatabaseError& error) {
  if (!error.damage) return report(error.what());
  const MutexLock lock(reporting_);
  damage_ = error.what();
}

void DomainFiles::find(std::string_view key,
                       const std::function<void(const Database::Row&)>& visit) try {
  if (database_) database_->find(key, visit);
} catch (const DatabaseError& error) {
  failed(error);
}

void DomainFiles::forEach(const std::function<void(const Database::Row&)>& visit) try {
  if (database_) database_->forEach(visit);
} catch (const DatabaseError& error) {
  failed(error);
}

bool DomainFiles::store(Journal& journal, std::span<const Journal::Record> records) {
  if (!Journal::suits(records)) return storeInDatabase(journal, records);
  return journal.append(records) || (fold() && journal.append(records));
}

bool DomainFiles::storeInDatabase(Journal& journal, std::span<const Journal::Record> records) {
  {
    const MutexLock lock(folding_);
    if (!foldWith(records)) return false;
  }
  // Tells the other processes where to look. These records need no folding, so space can be had.
  for (auto record : records) {
    record.kind = Journal::Kind::inDatabase;
    record.value = {};
    const std::span one(&record, 1);
    if (journal.append(one)) continue;
    journal.moveTail(journal.head());
    journal.append(one);
  }
  return true;
}

bool DomainFiles::fold() {
  const MutexLock lock(folding_);
  if (journal_ == nullptr) return false;
  if (journal_->tail() == journal_->head().load()) return true;
  return foldWith({});
}

bool DomainFiles::foldWith(std::span<const Journal::Record> more) try {
  if (!folder_) folder_ = std::make_unique<Database>(path_ + databaseSuffix);
  std::vector<Database::Row> rows;
  std::uint64_t end = 0;
  folder_->apply([&](std::uint64_t folded) {
    std::unordered_map<std::string_view, Database::Row> last;
    const auto visit = [&](const Journal::Record& record) { collect(record, last); };
    end = journal_->head();
    journal_->forEach(std::max(folded, journal_->tail()), end, visit);
    for (const auto& record : more) visit(record);
    rows.reserve(last.size());
    for (const auto& [key, row] : last) rows.push_back(row);
    return Database::Batch{.rows = rows, .folded = end};
  });
  journal_->moveTail(end);
  reportRecovery();
  return true;
} catch (const DatabaseError& error) {
  folder_.reset();
  failed(error);
  return false;
}

DomainFiles::Mended DomainFiles::mend() {
  std::string damage;
  {
    const MutexLock lock(reporting_);
    damage = std::exchange(damage_, {});
  }
  if (damage.empty() && journal_ != nullptr) return Mended::nothing;
  const MutexLock lock(folding_);
  folder_.reset();
  database_.reset();
  journal_ = nullptr;
  if (!damage.empty()) setAside(damage);
  open();
  if (journal_ == nullptr) return Mended::nothing;
  return damage.empty() ? Mended::opened : Mended::replaced;
}

}  // namespace tessarine::detail
