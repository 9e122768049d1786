#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tessarine {

/// Which values of an enumeration are its cases, told once by the host. Raw values are the
/// underlying integers, or texts where the host names them:
///
///     enum class Size { small, large };
///     template <> struct tessarine::EnumCases<Size> {
///       static constexpr std::array all{Size::small, Size::large};
///     };
///     enum class Theme { light, dark };
///     template <> struct tessarine::EnumCases<Theme> {
///       static constexpr std::array all{std::pair{Theme::light, std::string_view("light")},
///                                       std::pair{Theme::dark, std::string_view("dark")}};
///     };
template <class Enum>
struct EnumCases;

/// An enumeration whose cases are told.
template <class Enum>
concept EnumWithCases = std::is_enum_v<Enum> && requires {
  EnumCases<Enum>::all.size();
};

namespace detail {
template <class Enum>
inline constexpr bool hasTextCases =
    !std::same_as<std::remove_cvref_t<decltype(EnumCases<Enum>::all[0])>, Enum>;
}  // namespace detail

/// One whose raw values are integers.
template <class Enum>
concept EnumWithIntegerCases = EnumWithCases<Enum> && !detail::hasTextCases<Enum>;

/// The raw value: the underlying integer, or the text; absent when the value is no case.
template <EnumWithCases Enum>
auto rawValue(Enum value) noexcept {
  const auto& all = EnumCases<Enum>::all;
  if constexpr (detail::hasTextCases<Enum>) {
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& pair) { return pair.first == value; });
    return found == all.end() ? std::nullopt : std::optional<std::string_view>(found->second);
  } else {
    using Raw = std::underlying_type_t<Enum>;
    const bool isCase = std::find(all.begin(), all.end(), value) != all.end();
    return isCase ? std::optional<Raw>(static_cast<Raw>(value)) : std::nullopt;
  }
}

/// The type of the raw values: the underlying integer, or `std::string_view`.
template <EnumWithCases Enum>
using RawValueOf = typename decltype(rawValue(std::declval<Enum>()))::value_type;

/// The case with that raw value, absent when there is none.
template <EnumWithCases Enum>
std::optional<Enum> enumFromRawValue(RawValueOf<Enum> raw) noexcept {
  const auto& all = EnumCases<Enum>::all;
  if constexpr (detail::hasTextCases<Enum>) {
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& pair) { return pair.second == raw; });
    return found == all.end() ? std::nullopt : std::optional<Enum>(found->first);
  } else {
    // Only a case is ever made: an enumeration need not be able to hold every integer.
    const auto found = std::find_if(all.begin(), all.end(), [&](Enum value) {
      return static_cast<std::underlying_type_t<Enum>>(value) == raw;
    });
    return found == all.end() ? std::nullopt : std::optional<Enum>(*found);
  }
}

}  // namespace tessarine
