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

/// Locks of the open file description go with the last descriptor of it, so also with the process.
bool lockFile(int file, short type, int command) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  return ::fcntl(file, command, &lock) == 0;
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

constexpr std::size_t paddedToWord(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

}  // namespace

struct Journal::RecordHeader {
  std::uint32_t checksum;  // of all that follows
  std::uint32_t size;      // of the whole record, a multiple of eight
  std::uint64_t position;
  double written;
  Kind kind;
  std::uint32_t keySize;
  std::uint64_t valueSize;

  static constexpr std::size_t sumBegin = 8;
};

std::uint64_t Journal::sizeOf(const Record& record) noexcept {
  return paddedToWord(sizeof(RecordHeader) + record.key.size() + record.value.size());
}

std::unique_ptr<Journal> Journal::open(const std::string& path, std::uint64_t folded,
                                       std::error_code& error) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) {
    error = lastError();
    return nullptr;
  }
  const bool isFirst = lockFile(file, F_WRLCK, F_OFD_SETLK);
  if (!isFirst) lockFile(file, F_RDLCK, F_OFD_SETLKW);  // waits while the first one prepares it

  struct stat status {};
  ::fstat(file, &status);
  static_assert(sizeof(Header) <= headerSize);
  const bool isNew = isFirst && status.st_size == 0;
  // All blocks are taken now, so that no write into the mapping can ever find the disk full.
  const int refused = isNew ? ::posix_fallocate(file, 0, fileSize) : 0;
  if (refused != 0) {
    ::ftruncate(file, 0);
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
  if (header.magic != magic || header.layout != sizeof(Header) ||
      (isFirst && !journal->recover(folded))) {
    error = std::make_error_code(std::errc::bad_message);
    return nullptr;
  }
  if (isFirst) lockFile(file, F_RDLCK, F_OFD_SETLK);
  return journal;
}

Journal::~Journal() {
  ::munmap(reinterpret_cast<char*>(header_), mappedSize);
  ::close(file_);
}

void Journal::create(std::uint64_t folded) {
  header_->magic = magic;
  header_->layout = sizeof(Header);
  header_->tail.store(folded);
  header_->head.store(folded);
}

/// For the first opener only: nobody else has the file.
bool Journal::recover(std::uint64_t folded) {
  const std::uint64_t begin = std::max(folded, tail());
  if (begin % 8 != 0) return false;
  std::uint64_t end = begin;
  while (isValidAt(end)) recordAt(end);
  header_->tail.store(begin);
  header_->head.store(end);
  header_->sleepers.store(0);

  pthread_mutexattr_t attributes;
  ::pthread_mutexattr_init(&attributes);
  ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  ::pthread_mutex_init(&header_->mutex, &attributes);
  ::pthread_mutexattr_destroy(&attributes);
  return true;
}

bool Journal::isValidAt(std::uint64_t position) const {
  const char* const place = ring_ + position % capacity;
  RecordHeader header;
  std::memcpy(&header, place, sizeof header);
  const bool isShaped =
      header.position == position && header.size >= sizeof header && header.size % 8 == 0 &&
      header.size <= capacity / 2 && header.valueSize < header.size &&
      paddedToWord(sizeof header + header.keySize + header.valueSize) == header.size &&
      header.kind <= Kind::inDatabase;
  return isShaped && checksum(place + RecordHeader::sumBegin,
                              header.size - RecordHeader::sumBegin) == header.checksum;
}

Journal::Record Journal::recordAt(std::uint64_t& position) const {
  const char* const place = ring_ + position % capacity;
  RecordHeader header;
  std::memcpy(&header, place, sizeof header);
  position += header.size;
  const char* const key = place + sizeof header;
  return {
      header.kind, header.written, {key, header.keySize}, {key + header.keySize, header.valueSize}};
}

void Journal::lock() {
  // The holder died. Nothing needs repair: what it was writing lies behind `head`.
  if (::pthread_mutex_lock(&header_->mutex) == EOWNERDEAD) {
    ::pthread_mutex_consistent(&header_->mutex);
  }
}

void Journal::unlock() { ::pthread_mutex_unlock(&header_->mutex); }

bool Journal::suits(std::span<const Record> records) noexcept {
  std::uint64_t size = 0;
  for (const auto& record : records) size += sizeOf(record);
  return size <= capacity / 4;
}

bool Journal::append(std::span<const Record> records) {
  std::uint64_t position = header_->head.load(std::memory_order_relaxed);
  const std::uint64_t end = tail() + capacity;
  for (const auto& record : records) {
    if (position + sizeOf(record) > end) return false;
    position = write(position, record);
  }
  header_->head.store(position, std::memory_order_seq_cst);
  return true;
}

/// Returns where the record ends.
std::uint64_t Journal::write(std::uint64_t position, const Record& record) {
  const std::uint64_t size = sizeOf(record);
  RecordHeader header{.checksum = 0,
                      .size = static_cast<std::uint32_t>(size),
                      .position = position,
                      .written = record.written,
                      .kind = record.kind,
                      .keySize = static_cast<std::uint32_t>(record.key.size()),
                      .valueSize = record.value.size()};
  char* const place = ring_ + position % capacity;
  char* next = place + sizeof header;
  std::memcpy(place, &header, sizeof header);
  next = std::copy(record.key.begin(), record.key.end(), next);
  next = std::copy(record.value.begin(), record.value.end(), next);
  std::fill(next, place + size, '\0');
  header.checksum = checksum(place + RecordHeader::sumBegin, size - RecordHeader::sumBegin);
  std::memcpy(place, &header.checksum, sizeof header.checksum);
  return position + size;
}

void Journal::moveTail(std::uint64_t position) noexcept {
  std::uint64_t tail = header_->tail.load();
  while (tail < position && !header_->tail.compare_exchange_weak(tail, position)) {
  }
}

std::uint32_t Journal::ticket() noexcept {
  const std::uint32_t ticket = header_->bell.load();
  header_->sleepers.store(1);
  return ticket;
}

void Journal::sleep(std::uint32_t ticket, std::int64_t timeout) noexcept {
  constexpr std::int64_t second = 1'000'000'000;
  const timespec duration{.tv_sec = timeout / second, .tv_nsec = timeout % second};
  ::syscall(SYS_futex, &header_->bell, FUTEX_WAIT, ticket, &duration, nullptr, 0);
}

void Journal::wake() noexcept {
  if (header_->sleepers.load() == 0 || header_->sleepers.exchange(0) == 0) return;
  header_->bell.fetch_add(1);
  ::syscall(SYS_futex, &header_->bell, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

}  // namespace tessarine::detail
