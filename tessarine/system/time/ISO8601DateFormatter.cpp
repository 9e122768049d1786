#include "tessarine/system/time/ISO8601DateFormatter.hpp"

#include <cmath>
#include <cstdint>

#include "tessarine/system/time/internal/CivilDay.hpp"

namespace tessarine {
namespace {

constexpr std::int64_t secondsADay = 86400;
constexpr auto referenceSince1970 =
    static_cast<std::int64_t>(Date::timeIntervalBetween1970AndReferenceDate);
constexpr std::int64_t firstSecond =
    internal::daysFromCivil({0, 1, 1}) * secondsADay - referenceSince1970;
constexpr std::int64_t endSecond =
    internal::daysFromCivil({10000, 1, 1}) * secondsADay - referenceSince1970;

constexpr std::string_view layout = "0000-00-00T00:00:00";

void write(std::string& text, std::size_t at, std::size_t digits, std::int64_t value) {
  for (std::size_t i = at + digits; i-- > at; value /= 10) {
    text[i] = static_cast<char>('0' + value % 10);
  }
}

/// The number that the digits at that place make, negative when they are not all digits.
int read(std::string_view text, std::size_t at, std::size_t digits) noexcept {
  int value = 0;
  for (std::size_t i = at; i < at + digits; ++i) {
    const int digit = text[i] - '0';
    if (digit < 0 || digit > 9) return -1;
    value = value * 10 + digit;
  }
  return value;
}

bool isWithin(int value, int least, int greatest) noexcept {
  return value >= least && value <= greatest;
}

/// Seconds that the zone is ahead of GMT.
std::optional<int> zoneOffset(std::string_view text) noexcept {
  if (text == "Z") return 0;
  if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') return std::nullopt;
  const int hours = read(text, 1, 2);
  const int minutes = read(text, 4, 2);
  if (!isWithin(hours, 0, 23) || !isWithin(minutes, 0, 59)) return std::nullopt;
  const int seconds = (hours * 60 + minutes) * 60;
  return text[0] == '+' ? seconds : -seconds;
}

}  // namespace

const ISO8601DateFormatter& ISO8601DateFormatter::shared() noexcept {
  static const ISO8601DateFormatter formatter;
  return formatter;
}

std::string ISO8601DateFormatter::string(Date date) const {
  const double interval = std::floor(date.timeIntervalSinceReferenceDate());
  if (!(interval >= double(firstSecond) && interval < double(endSecond))) return {};
  const std::int64_t sinceYearZero = static_cast<std::int64_t>(interval) - firstSecond;
  const std::int64_t second = sinceYearZero % secondsADay;
  const auto day =
      internal::civilFromDays(sinceYearZero / secondsADay + internal::daysFromCivil({0, 1, 1}));
  std::string text(layout);
  text += 'Z';
  write(text, 0, 4, day.year);
  write(text, 5, 2, day.month);
  write(text, 8, 2, day.day);
  write(text, 11, 2, second / 3600);
  write(text, 14, 2, second / 60 % 60);
  write(text, 17, 2, second % 60);
  return text;
}

std::optional<Date> ISO8601DateFormatter::date(std::string_view text) const noexcept {
  if (text.size() < layout.size()) return std::nullopt;
  for (const std::size_t at : {4, 7, 10, 13, 16}) {
    if (text[at] != layout[at]) return std::nullopt;
  }
  const int year = read(text, 0, 4);
  const int month = read(text, 5, 2);
  const int day = read(text, 8, 2);
  const int hour = read(text, 11, 2);
  const int minute = read(text, 14, 2);
  const int second = read(text, 17, 2);
  if (year < 0 || !isWithin(month, 1, 12) ||
      !isWithin(day, 1, internal::daysInMonth(year, month)) || !isWithin(hour, 0, 23) ||
      !isWithin(minute, 0, 59) || !isWithin(second, 0, 59)) {
    return std::nullopt;
  }
  const auto ahead = zoneOffset(text.substr(layout.size()));
  if (!ahead) return std::nullopt;
  const std::int64_t since1970 = internal::daysFromCivil({year, month, day}) * secondsADay +
                                 std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second -
                                 *ahead;
  return Date(static_cast<double>(since1970 - referenceSince1970));
}

}  // namespace tessarine
