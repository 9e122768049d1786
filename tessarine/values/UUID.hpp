#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// A universally unique identifier (RFC 4122): 16 bytes as a value, ordered bytewise.
class TESSARINE_EXPORT UUID {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  /// The identifier of sixteen zeros.
  constexpr UUID() noexcept = default;
  explicit constexpr UUID(const Bytes& bytes) noexcept : bytes_(bytes) {}

  /// A new random identifier (version 4) from the system's random bytes.
  static UUID random();

  /// The identifier of a text of 32 hexadecimal digits in either case, with hyphens behind the
  /// 8th, 12th, 16th and 20th; absent for any other text.
  static std::optional<UUID> fromString(std::string_view text) noexcept;

  /// The text with hyphens, in upper case.
  std::string uuidString() const;

  constexpr const Bytes& bytes() const noexcept { return bytes_; }

  constexpr bool operator==(const UUID&) const noexcept = default;
  constexpr auto operator<=>(const UUID&) const noexcept = default;

 private:
  Bytes bytes_{};
};

}  // namespace tessarine

template <>
struct std::hash<tessarine::UUID> {
  std::size_t operator()(const tessarine::UUID& uuid) const noexcept {
    std::array<std::uint64_t, 2> words{};
    std::memcpy(words.data(), uuid.bytes().data(), sizeof words);
    return static_cast<std::size_t>(words[0] ^ (words[1] * 0x9e3779b97f4a7c15U));
  }
};
