#include "tessarine/scheduling/synchronized.hpp"

#include <array>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::detail {

struct ObjectLock::Entry {
  explicit Entry(const void* itsIdentity) : identity(itsIdentity) {}
  const void* const identity;
  std::recursive_mutex mutex;
  unsigned users = 0;  // holders and waiters, under the lock of the shelf
};

namespace {

/// The locks in use; objects are spread over several shelves so that they seldom meet.
template <class Entry>
struct Shelf {
  Mutex mutex;
  std::unordered_map<const void*, Entry> entries TESSARINE_GUARDED_BY(mutex);
};

template <class Entry>
Shelf<Entry>& shelfOf(const void* identity) {
  static auto& shelves = *new std::array<Shelf<Entry>, 16>;
  return shelves[(reinterpret_cast<std::uintptr_t>(identity) >> 6U) % shelves.size()];
}

template <class Entry>
Entry& enter(const void* identity) {
  if (!identity) fatal("synchronized is given a null object.");
  Shelf<Entry>& shelf = shelfOf<Entry>(identity);
  const MutexLock lock(shelf.mutex);
  Entry& entry = shelf.entries.try_emplace(identity, identity).first->second;
  ++entry.users;
  return entry;
}

}  // namespace

ObjectLock::ObjectLock(const void* identity) : entry_(enter<Entry>(identity)) {
  entry_.mutex.lock();
}

ObjectLock::~ObjectLock() {
  entry_.mutex.unlock();
  Shelf<Entry>& shelf = shelfOf<Entry>(entry_.identity);
  const MutexLock lock(shelf.mutex);
  if (--entry_.users == 0) shelf.entries.erase(entry_.identity);
}

}  // namespace tessarine::detail
