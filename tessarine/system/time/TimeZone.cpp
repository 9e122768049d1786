#include "tessarine/system/time/TimeZone.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "tessarine/system/time/internal/Instant.hpp"
#include "tessarine/system/time/internal/ZoneRegistry.hpp"

#include <unicode/locid.h>
#include <unicode/timezone.h>

namespace tessarine {
namespace {

constexpr int greatestOffset = 18 * 3600;

struct Abbreviated {
  std::string_view abbreviation, identifier;
};

/// Those that are in use for one zone's rules only.
constexpr std::array abbreviations = {
    Abbreviated{"AKDT", "America/Anchorage"},  Abbreviated{"AKST", "America/Anchorage"},
    Abbreviated{"CEST", "Europe/Paris"},       Abbreviated{"CET", "Europe/Paris"},
    Abbreviated{"EDT", "America/New_York"},    Abbreviated{"EEST", "Europe/Athens"},
    Abbreviated{"EET", "Europe/Athens"},       Abbreviated{"EST", "America/New_York"},
    Abbreviated{"HST", "Pacific/Honolulu"},    Abbreviated{"JST", "Asia/Tokyo"},
    Abbreviated{"MDT", "America/Denver"},      Abbreviated{"MSK", "Europe/Moscow"},
    Abbreviated{"MST", "America/Denver"},      Abbreviated{"NZDT", "Pacific/Auckland"},
    Abbreviated{"NZST", "Pacific/Auckland"},   Abbreviated{"PDT", "America/Los_Angeles"},
    Abbreviated{"PST", "America/Los_Angeles"}, Abbreviated{"WEST", "Europe/Lisbon"},
    Abbreviated{"WET", "Europe/Lisbon"},
};

bool isZoneFile(const std::filesystem::path& path) {
  std::array<char, 4> magic{};
  std::ifstream(path, std::ios::binary).read(magic.data(), magic.size());
  return std::string_view(magic.data(), magic.size()) == "TZif";
}

icu::TimeZone::EDisplayType displayType(TimeZone::NameStyle style) {
  using Style = TimeZone::NameStyle;
  switch (style) {
    case Style::standard:
    case Style::daylightSaving:
      return icu::TimeZone::LONG;
    case Style::shortStandard:
    case Style::shortDaylightSaving:
      return icu::TimeZone::SHORT;
    case Style::generic:
      return icu::TimeZone::LONG_GENERIC;
    case Style::shortGeneric:
      break;
  }
  return icu::TimeZone::SHORT_GENERIC;
}

}  // namespace

TimeZone::TimeZone() noexcept : rules_(&internal::gmtZone()) {}

TimeZone TimeZone::current() noexcept { return TimeZone(internal::currentZone()); }

void TimeZone::resetSystemTimeZone() noexcept { internal::forgetCurrentZone(); }

std::optional<TimeZone> TimeZone::withIdentifier(std::string_view identifier) {
  const auto* const rules = internal::zoneNamed(identifier);
  if (rules == nullptr) return std::nullopt;
  return TimeZone(*rules);
}

std::optional<TimeZone> TimeZone::withAbbreviation(std::string_view abbreviation) {
  if (abbreviation.starts_with("GMT") || abbreviation.starts_with("UTC")) {
    return withIdentifier(abbreviation);
  }
  const auto* const found =
      std::find_if(abbreviations.begin(), abbreviations.end(),
                   [&](const Abbreviated& each) { return each.abbreviation == abbreviation; });
  if (found == abbreviations.end()) return std::nullopt;
  return withIdentifier(found->identifier);
}

std::optional<TimeZone> TimeZone::withSecondsFromGMT(int seconds) {
  if (seconds < -greatestOffset || seconds > greatestOffset) return std::nullopt;
  return TimeZone(internal::zoneAtOffset(seconds));
}

std::vector<std::string> TimeZone::knownTimeZoneIdentifiers() {
  std::vector<std::string> names;
  std::error_code error;
  const std::filesystem::path root(internal::zoneFolder());
  for (std::filesystem::recursive_directory_iterator file(root, error), end; file != end;
       file.increment(error)) {
    const std::string name = file->path().lexically_relative(root).string();
    if (name == "right" || name == "posix") {
      file.disable_recursion_pending();
    } else if (file->is_regular_file(error) && name != "localtime" && name != "posixrules" &&
               isZoneFile(file->path())) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

const std::string& TimeZone::identifier() const noexcept { return rules_->identifier(); }

int TimeZone::secondsFromGMT(Date date) const noexcept {
  return rules_->offsetAt(internal::Instant(date).second);
}

bool TimeZone::isDaylightSavingTime(Date date) const noexcept {
  return rules_->at(internal::Instant(date).second).isDaylightSaving;
}

const std::string& TimeZone::abbreviation(Date date) const noexcept {
  return rules_->abbreviation(rules_->at(internal::Instant(date).second));
}

std::optional<Date> TimeZone::nextTransition(Date date) const noexcept {
  const auto next = rules_->nextTransition(internal::Instant(date).second);
  if (!next) return std::nullopt;
  return internal::Instant{*next, 0}.date();
}

std::optional<std::string> TimeZone::localizedName(NameStyle style, const Locale& locale) const {
  const std::unique_ptr<icu::TimeZone> zone(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(identifier())));
  const bool isDaylight =
      style == NameStyle::daylightSaving || style == NameStyle::shortDaylightSaving;
  icu::UnicodeString name;
  zone->getDisplayName(static_cast<UBool>(isDaylight), displayType(style),
                       icu::Locale(locale.identifier().c_str()), name);
  if (name.isEmpty()) return std::nullopt;
  std::string text;
  name.toUTF8String(text);
  return text;
}

}  // namespace tessarine
