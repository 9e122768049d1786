#pragma once

#include <cstdint>

#include "tessarine/export.hpp"

namespace tessarine {

class DispatchQueue;

namespace detail {
/// A number never given before in this process. Any thread.
TESSARINE_EXPORT std::uint64_t nextSpecificIdentity() noexcept;
}  // namespace detail

/// Names one value of type `T` that a `DispatchQueue` may hold. The object itself is the name: two
/// keys are never equal, not even when one is made where another lay. Free of any value of its own.
template <class T>
class DispatchSpecificKey {
 public:
  DispatchSpecificKey() noexcept : identity_(detail::nextSpecificIdentity()) {}
  DispatchSpecificKey(const DispatchSpecificKey&) = delete;
  DispatchSpecificKey& operator=(const DispatchSpecificKey&) = delete;

 private:
  friend class DispatchQueue;
  std::uint64_t identity_;
};

}  // namespace tessarine
