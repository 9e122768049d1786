#include <algorithm>
#include <cstdlib>
#include <limits>

#include "tessarine/dates/TimeZone+Names.hpp"
#include "tessarine/dates/internal/NameCache.hpp"
#include "tessarine/system/desktop/Bundle.hpp"

namespace tessarine {
namespace {

using Style = TimeZone::NameStyle;

internal::NameCache& nameCache() {
  static auto& cache = *new internal::NameCache;  // outlives what other statics do at exit
  return cache;
}

/// Which of a zone's names is meant at a date, and the offset that goes with it.
struct NameChoice {
  Style style = Style::generic;
  std::int64_t seconds = std::numeric_limits<std::int64_t>::min();

  NameChoice(const TimeZone& zone, std::optional<Date> date) {
    if (!date) return;
    style = zone.isDaylightSavingTime(*date) ? Style::daylightSaving : Style::standard;
    seconds = zone.secondsFromGMT(*date);
  }
  std::string number() const { return std::to_string(static_cast<int>(style)); }
};

/// The kept text of that key, else what `make` gives in the current locale, which is then kept.
template <class Make>
std::optional<std::string> kept(const std::string& key, const Make& make) {
  const Locale locale = Locale::current();
  if (auto name = nameCache().find(locale, key)) return name;
  std::optional<std::string> name = make(locale);
  if (name) nameCache().store(locale, key, *name);
  return name;
}

/// Hours and minutes of an offset.
struct ClockOffset {
  std::string sign;
  int hours, minutes;

  explicit ClockOffset(int seconds)
      : sign(seconds < 0 ? "-" : "+"),
        hours(std::abs(seconds) / 3600),
        minutes(std::abs(seconds) / 60 % 60) {}
};

}  // namespace

std::optional<std::string> localName(const TimeZone& zone, std::optional<Date> date) {
  const NameChoice choice(zone, date);
  std::string key = zone.identifier();
  key.append("#").append(choice.number()).append("#name#").append(std::to_string(choice.seconds));
  return kept(key, [&](const Locale& locale) { return zone.localizedName(choice.style, locale); });
}

std::optional<std::string> localName(const TimeZone& zone, std::optional<Date> date,
                                     bool includeCity) {
  const NameChoice choice(zone, date);
  std::string key = zone.identifier();
  key.append("#").append(choice.number()).append(includeCity ? "#1#" : "#0#");
  key.append(std::to_string(choice.seconds));
  return kept(key, [&](const Locale& locale) {
    auto name = zone.localizedName(choice.style, locale);
    const auto city = includeCity ? cityName(zone) : std::nullopt;
    if (name && city && !city->empty()) name->append(" (").append(*city).append(")");
    return name;
  });
}

std::optional<std::string> cityName(const TimeZone& zone) {
  const std::string& name = zone.name();
  std::string city = name.substr(name.rfind('/') + 1);
  std::replace(city.begin(), city.end(), '_', ' ');
  return city;
}

std::string offsetString(const TimeZone& zone) {
  const ClockOffset offset(zone.secondsFromGMT(Date::now()));
  std::string text("GMT ");
  text.append(offset.sign).append(std::to_string(offset.hours));
  if (offset.minutes != 0) text.append(":").append(std::to_string(offset.minutes));
  return text;
}

std::string offset(const TimeZone& zone, const TimeZone& from, bool isShort) {
  const Date now = Date::now();
  const ClockOffset offset(zone.secondsFromGMT(now) - from.secondsFromGMT(now));
  std::string text = offset.sign;
  text.append(std::to_string(offset.hours));
  if (isShort && offset.minutes == 30) return text.append(".5");
  if (offset.minutes != 0) text.append(":").append(std::to_string(offset.minutes));
  if (isShort) return text;
  return text.append(" ").append(Bundle::main().localizedString(offset.hours == 1 ? "hr" : "hrs"));
}

}  // namespace tessarine
