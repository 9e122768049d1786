#include "tessarine/system/store/internal/DomainFiles.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <unordered_map>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
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

/// A name beside `file` that nothing has yet.
std::string nameAside(const std::string& file) {
  const std::string stem = file + ".damaged-" + timestamp();
  std::string aside = stem;
  for (int i = 2; ::access(aside.c_str(), F_OK) == 0; ++i) aside = stem + "-" + std::to_string(i);
  return aside;
}

/// What tells one file from another that takes its place while it still exists. 0 for none.
std::uint64_t numberOf(const std::string& file) {
  struct stat status {};
  return ::stat(file.c_str(), &status) == 0 ? status.st_ino : 0;
}

/// Keeps other processes from opening and replacing files in a folder.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder)
      : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (folder_ >= 0 && ::flock(folder_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~FolderLock() {
    if (folder_ >= 0) ::close(folder_);
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  const int folder_;
};

/// What the records come to: the last one of each key. Those that only point into the database say
/// nothing here.
void collect(const Journal::Record& record,
             std::unordered_map<std::string_view, Database::Row>& rows) {
  if (record.kind != Journal::Kind::set && record.kind != Journal::Kind::remove) return;
  auto& row = rows[record.key];
  row.key = record.key;
  row.value = record.kind == Journal::Kind::set ? std::optional(record.value) : std::nullopt;
  row.written = record.written;
}

}  // namespace

DomainFiles::DomainFiles(std::string path) : path_(std::move(path)) {
  makeFolder();
  const FolderLock lock(folder());
  open();
}

std::string DomainFiles::folder() const {
  return std::filesystem::path(path_).parent_path().string();
}

void DomainFiles::makeFolder() const {
  std::error_code ignored;  // the database tells what is wrong with the folder
  if (std::filesystem::exists(folder(), ignored)) return;
  std::filesystem::create_directories(folder(), ignored);
  std::filesystem::permissions(folder(), std::filesystem::perms::owner_all, ignored);
}

/// With the folder locked.
void DomainFiles::open() {
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
  const std::string file = path_ + databaseSuffix;
  opened_ = numberOf(file);
  database_ = std::make_unique<Database>(file);
  opened_ = numberOf(file);
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
    const std::string aside = nameAside(file);
    if (std::rename(file.c_str(), aside.c_str()) != 0) return report("the journal is damaged");
    tell(path_, "the journal is damaged and set aside as " + aside);
    journal = Journal::open(file, folded, error);
  }
  if (!journal) return report(error.message());
  journal_ = journals_.emplace_back(std::move(journal)).get();
}

/// With the folder locked. Does nothing when another process has done it.
void DomainFiles::setAside(const std::string& reason) {
  const std::string file = path_ + databaseSuffix;
  if (numberOf(file) != opened_) return;
  // First, so that no other process carries its journal into the new database.
  retireJournal();
  const std::string aside = nameAside(file);
  if (std::rename(file.c_str(), aside.c_str()) != 0) {
    return report(reason + ", and it cannot be set aside");
  }
  for (const auto* companion : {"-wal", "-shm"}) {
    std::rename((file + companion).c_str(), (aside + companion).c_str());
  }
  std::rename((path_ + journalSuffix).c_str(), (aside + journalSuffix).c_str());
  tell(path_, "the file is damaged (" + reason + ") and set aside as " + aside);
}

/// Tells the other processes to leave the files.
void DomainFiles::retireJournal() {
  const std::string file = path_ + journalSuffix;
  if (::access(file.c_str(), F_OK) != 0) return;
  std::error_code error;
  if (const auto journal = Journal::open(file, 0, error)) journal->retire();
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

bool DomainFiles::find(std::string_view key,
                       const std::function<void(const Database::Row&)>& visit) try {
  if (!database_) return false;
  database_->find(key, visit);
  return true;
} catch (const DatabaseError& error) {
  failed(error);
  return false;
}

bool DomainFiles::forEach(const std::function<void(const Database::Row&)>& visit) try {
  if (!database_) return false;
  database_->forEach(visit);
  return true;
} catch (const DatabaseError& error) {
  failed(error);
  return false;
}

bool DomainFiles::store(Journal& journal, std::span<const Journal::Record> records) {
  if (journal.isRetired()) {
    abandon();
    return false;
  }
  if (!Journal::suits(records)) return storeInDatabase(journal, records);
  return journal.append(records) || (fold() && journal.append(records));
}

bool DomainFiles::storeInDatabase(Journal& journal, std::span<const Journal::Record> records) {
  {
    const MutexLock lock(folding_);
    if (!foldWith(records)) return false;
  }
  // Tells the other processes where to look, in one step. The journal has just been emptied.
  std::vector<Journal::Record> pointers(records.begin(), records.end());
  for (auto& pointer : pointers) {
    pointer.kind = Journal::Kind::inDatabase;
    pointer.value = {};
  }
  if (!Journal::suits(pointers)) pointers = {{Journal::Kind::everything, 0, {}, {}}};
  journal.append(pointers);
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
    if (journal_->isRetired()) throw DatabaseError("the files were replaced", false);
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
  if (journal_->isRetired()) {
    abandon();
  } else {
    failed(error);
  }
  return false;
}

bool DomainFiles::needMending() const {
  const MutexLock lock(reporting_);
  return isAbandoned_ || !damage_.empty();
}

void DomainFiles::abandon() {
  const MutexLock lock(reporting_);
  isAbandoned_ = true;
}

DomainFiles::Mended DomainFiles::mend() {
  std::string damage;
  bool isAbandoned = false;
  {
    const MutexLock lock(reporting_);
    damage = std::exchange(damage_, {});
    isAbandoned = std::exchange(isAbandoned_, false);
  }
  if (damage.empty() && !isAbandoned && journal_ != nullptr) return Mended::nothing;
  if (!damage.empty() || isAbandoned) isReplaced_ = true;
  makeFolder();
  const MutexLock lock(folding_);
  const FolderLock folderLock(folder());
  folder_.reset();
  database_.reset();
  journal_ = nullptr;
  if (!damage.empty()) setAside(damage);
  open();
  if (journal_ == nullptr) return Mended::nothing;
  return std::exchange(isReplaced_, false) ? Mended::replaced : Mended::opened;
}

}  // namespace tessarine::detail
