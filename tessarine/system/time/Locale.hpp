#pragma once

#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

namespace internal {
struct LocaleFacts;
}

/// A language and region by which texts for people are written, such as "de_DE". A small value to
/// pass by copy; its facts are looked up once and kept for the life of the process (those of the
/// first 10,000 identifiers; more count as the root locale). Any thread.
class TESSARINE_EXPORT Locale {
 public:
  /// The root locale, which belongs to nobody: identifier "".
  constexpr Locale() noexcept = default;
  /// Also spelt "de-DE" or "de_DE.UTF-8"; "en_US_POSIX" is the same everywhere, and "C" and "POSIX"
  /// name it. An identifier that is none counts as the nearest that there are data for.
  explicit Locale(std::string_view identifier);

  /// What the host has set, else what LC_ALL, LC_TIME or LANG say when first asked, else
  /// "en_US_POSIX".
  static Locale current() noexcept;
  static void setCurrent(Locale locale) noexcept;

  /// With underscores: "de_DE", "zh_Hant_TW".
  const std::string& identifier() const noexcept;

  bool operator==(const Locale&) const noexcept = default;

  /// What the time services work with.
  const internal::LocaleFacts& facts() const noexcept;

 private:
  const internal::LocaleFacts* facts_ = nullptr;  // of the root locale
};

}  // namespace tessarine
