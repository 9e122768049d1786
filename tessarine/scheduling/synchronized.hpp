#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "tessarine/export.hpp"

namespace tessarine {

namespace detail {

/// Holds the lock that belongs to the object at `identity`, for its life.
class TESSARINE_EXPORT ObjectLock {
 public:
  explicit ObjectLock(const void* identity);
  ~ObjectLock();
  ObjectLock(const ObjectLock&) = delete;
  ObjectLock& operator=(const ObjectLock&) = delete;

 private:
  struct Entry;
  Entry& entry_;
};

}  // namespace detail

/// Runs `closure` under the lock of `object` and answers its result. The lock goes with the
/// object's address, needs no field in it, and is recursive; it exists only while somebody holds or
/// awaits it. Any thread. An exception leaves the lock free. The object must outlive the call.
///
///     synchronized(*document, [&] { document->lines.push_back(line); });
template <class Object, class Closure>
requires std::invocable<Closure>
decltype(auto) synchronized(const Object& object, Closure&& closure) {
  static_assert(!std::is_pointer_v<Object>, "pass the object itself: a copied pointer is another");
  const detail::ObjectLock lock(std::addressof(object));
  return std::invoke(std::forward<Closure>(closure));
}

/// The same for a shared object: all its handles share its lock. A null one is a programmer error.
template <class Object, class Closure>
requires std::invocable<Closure>
decltype(auto) synchronized(const std::shared_ptr<Object>& object, Closure&& closure) {
  const detail::ObjectLock lock(object.get());
  return std::invoke(std::forward<Closure>(closure));
}

}  // namespace tessarine
