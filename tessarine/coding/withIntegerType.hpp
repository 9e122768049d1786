#pragma once

#include <cstdint>

#include "tessarine/coding/TypeShape.hpp"

namespace tessarine {

/// Calls `use.operator()<Integer>()` with the type that an integer kind stands for; false, without
/// a call, for every other kind. For those who write back-ends:
///
///     withIntegerType(kind, [&]<class Integer>() { write(*static_cast<const Integer*>(address));
///     })
template <class Use>
constexpr bool withIntegerType(ShapeKind kind, Use&& use) {
  switch (kind) {
    case ShapeKind::int8:
      return use.template operator()<std::int8_t>(), true;
    case ShapeKind::int16:
      return use.template operator()<std::int16_t>(), true;
    case ShapeKind::int32:
      return use.template operator()<std::int32_t>(), true;
    case ShapeKind::int64:
      return use.template operator()<std::int64_t>(), true;
    case ShapeKind::int128:
      return use.template operator()<Int128>(), true;
    case ShapeKind::uint8:
      return use.template operator()<std::uint8_t>(), true;
    case ShapeKind::uint16:
      return use.template operator()<std::uint16_t>(), true;
    case ShapeKind::uint32:
      return use.template operator()<std::uint32_t>(), true;
    case ShapeKind::uint64:
      return use.template operator()<std::uint64_t>(), true;
    case ShapeKind::uint128:
      return use.template operator()<UInt128>(), true;
    default:
      return false;
  }
}

}  // namespace tessarine
