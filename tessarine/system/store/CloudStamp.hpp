#pragma once

#include <compare>
#include <cstdint>

#include "tessarine/values/UUID.hpp"

namespace tessarine {

/// When, and by which replica, a pair of the cloud store was written: a hybrid logical clock
/// (Kulkarni et al., 2014). Of two writes of one key the one with the greater stamp stays, on every
/// machine and in whatever order they arrive. Stamps of different writes differ by their replica.
struct CloudStamp {
  /// Microseconds since 1970 by the writer's clock, or those of what it had seen, if later.
  std::int64_t time = 0;
  /// Tells writes of one time apart.
  std::uint32_t counter = 0;
  UUID replica;

  constexpr auto operator<=>(const CloudStamp&) const noexcept = default;
  constexpr bool operator==(const CloudStamp&) const noexcept = default;

  /// The stamp of a write made at `now` by someone who has seen `seen`: later than both.
  static constexpr CloudStamp after(const CloudStamp& seen, std::int64_t now,
                                    const UUID& replica) noexcept {
    if (now > seen.time) return {now, 0, replica};
    return {seen.time, seen.counter + 1, replica};
  }
};

}  // namespace tessarine
