#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/system/store/internal/Database.hpp"
#include "tessarine/system/store/internal/Journal.hpp"

namespace tessarine::detail {

/// The two files of a domain on disk, PATH.sqlite and PATH.journal, and what is done when they
/// fail.
///
/// Nothing here throws. What the disk refuses is told on standard error, once an outage, and the
/// operation answers false; `mend` tries again later. A damaged file is set aside as
/// PATH.sqlite.damaged-TIME and a new one begun.
///
/// One thread at a time, except for `fold` and what is marked.
class DomainFiles {
 public:
  explicit DomainFiles(std::string path);

  /// Null while the files cannot be used. A journal that was given out stays valid for good.
  Journal* journal() const noexcept { return journal_; }

  /// Settled values, without what the journal holds. False when they could not be read.
  bool find(std::string_view key, const std::function<void(const Database::Row&)>& visit);
  bool forEach(const std::function<void(const Database::Row&)>& visit);

  /// Stores the records for good, all or none: in the journal, or, where they are too large for it,
  /// in the database. `journal` is the one that `journal()` gives.
  bool store(Journal& journal, std::span<const Journal::Record> records)
      TESSARINE_REQUIRES(journal);

  /// Carries what the journal holds into the database, on to the disk itself. Any thread.
  bool fold() TESSARINE_EXCLUDES(folding_);

  /// Opens what could not be opened, or replaces what proved damaged by empty files. `replaced`:
  /// the files are others than before, by whomever, and do not know what was in the former ones.
  enum class Mended { nothing, opened, replaced };
  Mended mend() TESSARINE_EXCLUDES(folding_);
  /// Whether the files proved damaged, or another process has replaced them. Any thread.
  bool needMending() const TESSARINE_EXCLUDES(reporting_);
  /// Notes that another process has replaced the files.
  void abandon() TESSARINE_EXCLUDES(reporting_);

 private:
  void makeFolder() const;
  std::string folder() const;
  void open();
  void openDatabase();
  void openJournal();
  void setAside(const std::string& reason);
  void retireJournal();
  void report(const std::string& reason) TESSARINE_EXCLUDES(reporting_);
  void reportRecovery() TESSARINE_EXCLUDES(reporting_);
  void failed(const DatabaseError& error) TESSARINE_EXCLUDES(reporting_);
  bool storeInDatabase(Journal& journal, std::span<const Journal::Record> records)
      TESSARINE_REQUIRES(journal) TESSARINE_EXCLUDES(folding_);
  bool foldWith(std::span<const Journal::Record> more) TESSARINE_REQUIRES(folding_);

  const std::string path_;
  std::unique_ptr<Database> database_;  // for reading
  std::uint64_t opened_ = 0;            // the number of its file
  bool isReplaced_ = false;             // and not yet told by `mend`
  Journal* journal_ = nullptr;
  std::vector<std::unique_ptr<Journal>> journals_;  // the last one is in use, if any

  Mutex folding_;  // a connection of its own, so that readers never wait for a transaction
  std::unique_ptr<Database> folder_ TESSARINE_GUARDED_BY(folding_);

  mutable Mutex reporting_;
  bool isReported_ TESSARINE_GUARDED_BY(reporting_) = false;
  std::string damage_ TESSARINE_GUARDED_BY(reporting_);  // empty: none was found
  bool isAbandoned_ TESSARINE_GUARDED_BY(reporting_) = false;
};

}  // namespace tessarine::detail
