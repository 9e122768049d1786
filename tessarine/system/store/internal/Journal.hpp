#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "tessarine/thread_annotations.hpp"

#include <pthread.h>

namespace tessarine::detail {

/// The latest writes of one domain, in a file that every process holding the domain maps: a ring of
/// records between `tail` and `head`, both counted in bytes since the domain began.
///
/// What lies in a shared mapping belongs to the kernel, so a record whose end `head` has passed
/// survives the death of the process at any instruction, without a system call for the write. A
/// record becomes visible to the other processes in the moment that `head` moves, and comparing
/// `head` with the place where one left off tells, for the price of a load, whether there is news.
/// From time to time someone carries the records into the database ("folding") and moves `tail`.
///
/// The lock is a robust mutex in the mapping: when its holder dies, the next one gets it. The first
/// process to open the file makes the lock anew, so none is left over from a crashed machine, and
/// looks through the records. What is appended together carries one checksum and its place, so a
/// torn batch is never taken for half of one.
class TESSARINE_CAPABILITY("journal") Journal {
 public:
  static constexpr std::uint64_t capacity = std::uint64_t{1} << 20U;

  /// What may be appended at once, at most.
  static constexpr std::uint64_t largestBatch = capacity / 4;

  /// `inDatabase`: the database has the key's new value; `everything`: and maybe that of any key.
  enum class Kind : std::uint32_t { set, remove, inDatabase, everything };

  /// One write. The texts point into the ring and last until `tail` has passed the record by
  /// `capacity`.
  struct Record {
    Kind kind;
    double written;
    std::string_view key;
    std::string_view value;
  };

  /// Opens or creates the file at `path`. `folded` is where the database ends; a new journal begins
  /// there. Null, with the reason in `error`, when the file cannot be had or is damaged
  /// (`std::errc::bad_message`).
  static std::unique_ptr<Journal> open(const std::string& path, std::uint64_t folded,
                                       std::error_code& error);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  const std::atomic<std::uint64_t>& head() const noexcept { return header_->head; }
  std::uint64_t tail() const noexcept { return header_->tail.load(std::memory_order_acquire); }

  void lock() TESSARINE_ACQUIRE();
  void unlock() TESSARINE_RELEASE();

  /// Whether these records together are no more than `largestBatch`.
  static bool suits(std::span<const Record> records) noexcept;

  /// Writes the records, which suit, behind `head` and then publishes all of them at once. False,
  /// with nothing written, when there is no room before `tail`.
  bool append(std::span<const Record> records) TESSARINE_REQUIRES(this);

  /// Whether everything from `position` to `head` is still in the ring. Behind `head` a writer that
  /// died may have overwritten the oldest `largestBatch` bytes.
  bool holds(std::uint64_t position) const noexcept {
    return head().load(std::memory_order_acquire) - position <= capacity - largestBatch;
  }

  /// Calls `visit(record)` for each record from `begin` up to `end`, which must be ends of batches
  /// that the ring holds, and go on being held: either the lock is taken, or `begin` is not before
  /// `tail` and nobody else folds.
  template <class Visit>
  void forEach(std::uint64_t begin, std::uint64_t end,
               Visit visit) const TESSARINE_NO_THREAD_SAFETY_ANALYSIS {  // of the visitor's locks
    for (auto position = begin; position < end;) {
      for (auto batch = batchAt(position); !batch.empty();) visit(takeRecord(batch));
    }
  }

  /// Tells every process that the files have been set aside and others stand in their place.
  void retire();
  bool isRetired() const noexcept { return header_->retired.load() != 0; }

  /// Gives the space up to `position` free. Needs no lock: `tail` only ever grows.
  void moveTail(std::uint64_t position) noexcept;

  /// Sleeps until someone calls `wake`, in this process or another, or `timeout` nanoseconds have
  /// passed. `ticket` is what `ticket()` gave before the caller looked for work, so no wake is
  /// lost.
  std::uint32_t ticket() noexcept;
  void sleep(std::uint32_t ticket, std::int64_t timeout) noexcept;
  /// Wakes every sleeper. Costs two loads when nobody sleeps.
  void wake() noexcept;

 private:
  struct Header {
    std::uint64_t magic;
    std::uint64_t layout;  // tells versions and word sizes apart
    std::atomic<std::uint32_t> retired;
    pthread_mutex_t mutex;
    alignas(64) std::atomic<std::uint64_t> head;
    alignas(64) std::atomic<std::uint64_t> tail;
    alignas(64) std::atomic<std::uint32_t> bell;
    std::atomic<std::uint32_t> asked;     // counts who wanted to sleep
    std::atomic<std::uint32_t> answered;  // up to which of them all have been woken
  };
  static constexpr std::uint64_t formatVersion = 1;
  static constexpr std::uint64_t layoutNumber = (formatVersion << 32U) | sizeof(Header);
  struct BatchHeader;
  struct RecordHeader;

  Journal(int file, Header* header, char* ring) noexcept
      : file_(file), header_(header), ring_(ring) {}
  static std::unique_ptr<Journal> openLocked(int file, bool isFirst, std::uint64_t folded,
                                             std::error_code& error);
  static std::uint64_t sizeOf(const Record& record) noexcept;
  static std::uint64_t sizeOf(std::span<const Record> records) noexcept;
  void create(std::uint64_t folded);
  bool recover(std::uint64_t folded);
  void prepareLock();
  bool isValidAt(std::uint64_t position) const;
  std::string_view batchAt(std::uint64_t& position) const;
  static Record takeRecord(std::string_view& batch);
  static char* write(char* place, const Record& record);

  const int file_;
  Header* const header_;
  char* const ring_;  // mapped twice in a row, so that no record is ever split
};

/// Holds a journal's lock from construction to destruction.
class TESSARINE_SCOPED_CAPABILITY JournalLock {
 public:
  explicit JournalLock(Journal& journal) TESSARINE_ACQUIRE(journal) : journal_(journal) {
    journal_.lock();
  }
  ~JournalLock() TESSARINE_RELEASE() { journal_.unlock(); }
  JournalLock(const JournalLock&) = delete;
  JournalLock& operator=(const JournalLock&) = delete;

 private:
  Journal& journal_;
};

}  // namespace tessarine::detail
