#include "tessarine/system/store/internal/Journal.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessarine::detail {
namespace {

constexpr std::uint64_t magic = 0x4c4e524a53534554;  // "TESSJRNL"
constexpr std::size_t headerSize = 4096;
constexpr std::size_t fileSize = headerSize + Journal::capacity;
constexpr std::size_t mappedSize = fileSize + Journal::capacity;

std::error_code lastError() { return {errno, std::generic_category()}; }

/// The first byte is locked while someone opens the file, the second, shared, while someone uses
/// it. Locks of the open file description go with the last descriptor of it, so also with the
/// process.
enum LockedByte : off_t { opening, use };

bool lockFile(int file, LockedByte byte, short type, int command) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  int result = 0;
  do {
    result = ::fcntl(file, command, &lock);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

/// Maps header and ring, and the ring once more behind itself. Null on failure.
char* mapFile(int file) {
  void* const space = ::mmap(nullptr, mappedSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (space == MAP_FAILED) return nullptr;
  char* const base = static_cast<char*>(space);
  constexpr int access = PROT_READ | PROT_WRITE;
  void* const first = ::mmap(base, fileSize, access, MAP_SHARED | MAP_FIXED, file, 0);
  void* const second =
      ::mmap(base + fileSize, Journal::capacity, access, MAP_SHARED | MAP_FIXED, file, headerSize);
  if (first != MAP_FAILED && second != MAP_FAILED) return base;
  const int reason = errno;
  ::munmap(base, mappedSize);
  errno = reason;
  return nullptr;
}

/// A checksum of whole words, for torn records: nobody forges these files.
std::uint32_t checksum(const char* words, std::size_t size) {
  std::uint64_t sum = size;
  for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, words + at, sizeof word);
    sum = (sum ^ word) * 0x9e3779b97f4a7c15U;
    sum ^= sum >> 29U;
  }
  return static_cast<std::uint32_t>(sum ^ (sum >> 32U));
}

/// Whether nobody has come to the end of creating the file: the magic number is written last.
bool isUnfinished(int file, off_t size) {
  std::uint64_t number = 0;
  const bool isRead = ::pread(file, &number, sizeof number, 0) == sizeof number;
  return size == 0 || (size <= static_cast<off_t>(fileSize) && isRead && number == 0);
}

constexpr std::size_t paddedToWord(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

}  // namespace

struct Journal::BatchHeader {
  std::uint32_t checksum;  // of all that follows
  std::uint32_t size;      // of the whole batch, a multiple of eight
  std::uint64_t position;

  static constexpr std::size_t sumBegin = 8;
};

struct Journal::RecordHeader {
  double written;
  Kind kind;
  std::uint32_t keySize;
  std::uint64_t valueSize;
};

std::uint64_t Journal::sizeOf(const Record& record) noexcept {
  return paddedToWord(sizeof(RecordHeader) + record.key.size() + record.value.size());
}

std::uint64_t Journal::sizeOf(std::span<const Record> records) noexcept {
  std::uint64_t size = sizeof(BatchHeader);
  for (const auto& record : records) size += sizeOf(record);
  return size;
}

std::unique_ptr<Journal> Journal::open(const std::string& path, std::uint64_t folded,
                                       std::error_code& error) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) {
    error = lastError();
    return nullptr;
  }
  // Whoever holds the second byte has got through all of this, even if another one died in it.
  const bool isLocked = lockFile(file, opening, F_WRLCK, F_OFD_SETLKW);
  const bool isFirst = isLocked && lockFile(file, use, F_WRLCK, F_OFD_SETLK);
  if (!isLocked || (!isFirst && !lockFile(file, use, F_RDLCK, F_OFD_SETLKW))) {
    error = lastError();
    ::close(file);
    return nullptr;
  }
  auto journal = openLocked(file, isFirst, folded, error);
  if (journal == nullptr) return nullptr;
  if (isFirst) lockFile(file, use, F_RDLCK, F_OFD_SETLK);
  lockFile(file, opening, F_UNLCK, F_OFD_SETLK);
  return journal;
}

/// Takes `file` over, also on failure.
std::unique_ptr<Journal> Journal::openLocked(int file, bool isFirst, std::uint64_t folded,
                                             std::error_code& error) {
  struct stat status {};
  ::fstat(file, &status);
  static_assert(sizeof(Header) <= headerSize);
  const bool isNew = isFirst && isUnfinished(file, status.st_size);
  // All blocks are taken now, so that no write into the mapping can ever find the disk full.
  const int refused = isNew ? ::posix_fallocate(file, 0, fileSize) : 0;
  if (refused != 0) {
    if (::ftruncate(file, 0) != 0) {
    }  // what is left is begun anew by the next one
    ::close(file);
    error = {refused, std::generic_category()};
    return nullptr;
  }
  const bool isWhole = isNew || status.st_size == static_cast<off_t>(fileSize);
  char* const base = isWhole ? mapFile(file) : nullptr;
  if (base == nullptr) {
    error = isWhole ? lastError() : std::make_error_code(std::errc::bad_message);
    ::close(file);
    return nullptr;
  }
  std::unique_ptr<Journal> journal(
      new Journal(file, reinterpret_cast<Header*>(base), base + headerSize));
  if (isNew) journal->create(folded);
  const Header& header = *journal->header_;
  if (header.magic != magic || header.layout != layoutNumber ||
      (isFirst && !journal->recover(folded))) {
    error = std::make_error_code(std::errc::bad_message);
    return nullptr;
  }
  if (journal->isRetired()) {
    error = std::make_error_code(std::errc::device_or_resource_busy);
    return nullptr;
  }
  return journal;
}

Journal::~Journal() {
  ::munmap(reinterpret_cast<char*>(header_), mappedSize);
  ::close(file_);
}

void Journal::create(std::uint64_t folded) {
  header_->layout = layoutNumber;
  header_->tail.store(folded);
  header_->head.store(folded);
  header_->magic = magic;
}

/// For the first opener only: nobody else has the file.
bool Journal::recover(std::uint64_t folded) {
  const std::uint64_t head = header_->head.load();
  const std::uint64_t begin = std::max(folded, tail());
  if (head % 8 != 0 || begin % 8 != 0 || head - tail() > capacity) return false;
  std::uint64_t end = begin;
  while (isValidAt(end)) batchAt(end);
  // Batches that a power cut tore out of their row must not come back behind later ones.
  for (auto position = end; head != end && position < begin + capacity; position += 8) {
    std::fill_n(ring_ + position % capacity, 8, '\0');
  }
  header_->tail.store(begin);
  header_->head.store(end);
  header_->retired.store(0);
  prepareLock();
  return true;
}

void Journal::prepareLock() {
  pthread_mutexattr_t attributes;
  ::pthread_mutexattr_init(&attributes);
  ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  ::pthread_mutex_init(&header_->mutex, &attributes);
  ::pthread_mutexattr_destroy(&attributes);
}

bool Journal::isValidAt(std::uint64_t position) const {
  const char* const place = ring_ + position % capacity;
  BatchHeader header;
  std::memcpy(&header, place, sizeof header);
  const bool isShaped = header.position == position && header.size > sizeof header &&
                        header.size % 8 == 0 && header.size <= largestBatch;
  return isShaped && checksum(place + BatchHeader::sumBegin, header.size - BatchHeader::sumBegin) ==
                         header.checksum;
}

/// The records of the batch, one behind the other; `position` becomes the end of it.
std::string_view Journal::batchAt(std::uint64_t& position) const {
  const char* const place = ring_ + position % capacity;
  BatchHeader header;
  std::memcpy(&header, place, sizeof header);
  position += header.size;
  return {place + sizeof header, header.size - sizeof header};
}

Journal::Record Journal::takeRecord(std::string_view& batch) {
  RecordHeader header;
  std::memcpy(&header, batch.data(), sizeof header);
  const char* const key = batch.data() + sizeof header;
  const Record record{
      header.kind, header.written, {key, header.keySize}, {key + header.keySize, header.valueSize}};
  batch.remove_prefix(sizeOf(record));
  return record;
}

void Journal::lock() TESSARINE_NO_THREAD_SAFETY_ANALYSIS {
  if (::pthread_mutex_lock(&header_->mutex) != EOWNERDEAD) return;
  // The holder died. What it was writing here lies behind `head`, but what it stored in the
  // database nobody has been told.
  ::pthread_mutex_consistent(&header_->mutex);
  const Record record{Kind::everything, 0, {}, {}};
  append({&record, 1});
}

void Journal::unlock() { ::pthread_mutex_unlock(&header_->mutex); }

bool Journal::suits(std::span<const Record> records) noexcept {
  return sizeOf(records) <= largestBatch;
}

bool Journal::append(std::span<const Record> records) {
  const std::uint64_t position = header_->head.load(std::memory_order_relaxed);
  const std::uint64_t size = sizeOf(records);
  if (position + size > tail() + capacity) return false;
  BatchHeader header{.checksum = 0, .size = static_cast<std::uint32_t>(size), .position = position};
  char* const place = ring_ + position % capacity;
  std::memcpy(place, &header, sizeof header);
  char* next = place + sizeof header;
  for (const auto& record : records) next = write(next, record);
  header.checksum = checksum(place + BatchHeader::sumBegin, size - BatchHeader::sumBegin);
  std::memcpy(place, &header.checksum, sizeof header.checksum);
  header_->head.store(position + size, std::memory_order_seq_cst);
  return true;
}

/// Returns where the record ends.
char* Journal::write(char* place, const Record& record) {
  const RecordHeader header{.written = record.written,
                            .kind = record.kind,
                            .keySize = static_cast<std::uint32_t>(record.key.size()),
                            .valueSize = record.value.size()};
  std::memcpy(place, &header, sizeof header);
  char* next = std::copy(record.key.begin(), record.key.end(), place + sizeof header);
  next = std::copy(record.value.begin(), record.value.end(), next);
  char* const end = place + sizeOf(record);
  std::fill(next, end, '\0');
  return end;
}

void Journal::moveTail(std::uint64_t position) noexcept {
  std::uint64_t tail = header_->tail.load();
  while (tail < position && !header_->tail.compare_exchange_weak(tail, position)) {
  }
}

void Journal::retire() {
  {
    const JournalLock lock(*this);
    header_->retired.store(1);
    const Record record{Kind::everything, 0, {}, {}};
    append({&record, 1});
  }
  wake();
}

std::uint32_t Journal::ticket() noexcept {
  const std::uint32_t ticket = header_->bell.load();
  header_->asked.fetch_add(1);
  // Between this and the caller's look at `head`, as between the stores of `head` and the look at
  // `asked`: one of the two sees the other.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  return ticket;
}

void Journal::sleep(std::uint32_t ticket, std::int64_t timeout) noexcept {
  constexpr std::int64_t second = 1'000'000'000;
  const timespec duration{.tv_sec = timeout / second, .tv_nsec = timeout % second};
  ::syscall(SYS_futex, &header_->bell, FUTEX_WAIT, ticket, &duration, nullptr, 0);
}

void Journal::wake() noexcept {
  const std::uint32_t asked = header_->asked.load();
  if (asked == header_->answered.load()) return;
  header_->bell.fetch_add(1);
  ::syscall(SYS_futex, &header_->bell, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  header_->answered.store(asked);  // last, or a death before it would leave them asleep
}

}  // namespace tessarine::detail
