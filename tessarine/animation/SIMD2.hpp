#pragma once

#include <cstddef>

namespace tessarine {

namespace detail {

/// Two doubles in one register of the machine; the compiler's own vector type.
using DoublePair = double __attribute__((vector_size(16)));

/// Keeps a compiler from fusing a product with the sum it goes into, which would round once instead
/// of twice and give other results on other machines. Costs nothing but that.
template <class T>
inline void keepRounded(T& product) noexcept {
#if defined(__aarch64__)
  asm("" : "+w"(product));
#elif defined(__FMA__) || defined(__FMA4__)
  asm("" : "+x"(product));
#elif !defined(__x86_64__)
  asm("" : "+m"(product));
#else
  static_cast<void>(product);
#endif
}

}  // namespace detail

/// Two doubles that are worked on lane by lane. The operators act on each lane alone and round as
/// written, so the same operands give the same bits on every machine. Values of one dimension are
/// carried in lane 0, with lane 1 at 0.
struct SIMD2 {
  static constexpr std::size_t scalarCount = 2;

  SIMD2() noexcept = default;
  SIMD2(double lane0, double lane1) noexcept : lanes{lane0, lane1} {}
  explicit SIMD2(detail::DoublePair pair) noexcept : lanes(pair) {}

  static SIMD2 filledWith(double lane) noexcept { return {lane, lane}; }
  double operator[](std::size_t lane) const noexcept { return lanes[lane]; }

  friend SIMD2 operator+(SIMD2 a, SIMD2 b) noexcept { return SIMD2(a.lanes + b.lanes); }
  friend SIMD2 operator-(SIMD2 a, SIMD2 b) noexcept { return SIMD2(a.lanes - b.lanes); }
  friend SIMD2 operator*(SIMD2 a, SIMD2 b) noexcept {
    detail::DoublePair product = a.lanes * b.lanes;
    detail::keepRounded(product);
    return SIMD2(product);
  }
  /// Every lane times `scale`.
  friend SIMD2 operator*(double scale, SIMD2 a) noexcept { return filledWith(scale) * a; }
  friend bool operator==(SIMD2 a, SIMD2 b) noexcept {
    return static_cast<int>(a[0] == b[0]) & static_cast<int>(a[1] == b[1]);
  }

  /// Lane by lane: what lies below `min` becomes `min`, else what lies above `max` becomes `max`.
  /// Not a number stays what it is.
  friend SIMD2 clamp(SIMD2 value, SIMD2 min, SIMD2 max) noexcept {
    const auto inner = value.lanes > max.lanes ? max.lanes : value.lanes;
    return SIMD2(min.lanes > value.lanes ? min.lanes : inner);
  }

  detail::DoublePair lanes{0, 0};
};

}  // namespace tessarine
