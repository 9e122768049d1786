#include "DateText.hpp"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace tessarine::tool {
namespace {

constexpr std::int64_t referenceSince1970 = 978307200;
constexpr std::int64_t secondsADay = 86400;

/// Whole seconds since the reference date, rounded down, and the decimal digits of what is left.
struct Split {
  std::int64_t seconds;
  std::string fraction;
};

/// One minus the fraction: "25" becomes "75".
std::string complement(std::string digits) {
  bool carries = true;  // from behind the last digit
  for (std::size_t i = digits.size(); i-- > 0;) {
    const int digit = (carries ? 10 : 9) - (digits[i] - '0');
    carries = digit == 10;
    digits[i] = static_cast<char>('0' + digit % 10);
  }
  return digits;
}

Split split(double seconds) {
  std::array<char, 512> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                    std::fabs(seconds), std::chars_format::fixed);
  const std::string_view text(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
  const auto point = text.find('.');
  Split parts{static_cast<std::int64_t>(std::trunc(seconds)),
              point == std::string_view::npos ? "" : std::string(text.substr(point + 1))};
  if (seconds < 0 && !parts.fraction.empty()) {
    parts.fraction = complement(std::move(parts.fraction));
    --parts.seconds;
  }
  return parts;
}

double join(std::int64_t seconds, std::string fraction) {
  const bool isNegative = seconds < 0;
  if (fraction.find_first_not_of('0') == std::string::npos) return static_cast<double>(seconds);
  if (isNegative) {
    fraction = complement(std::move(fraction));
    ++seconds;
  }
  const std::string text = std::to_string(std::llabs(seconds)) + "." + fraction;
  double value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return isNegative ? -value : value;
}

/// Takes texts from the front.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}
  bool take(char c) {
    if (!rest_.starts_with(c)) return false;
    rest_.remove_prefix(1);
    return true;
  }
  /// Exactly `count` digits whose value lies in the range; -1 else.
  int number(std::size_t count, int least, int greatest) {
    int value = 0;
    if (rest_.size() < count) return -1;
    for (std::size_t i = 0; i < count; ++i) {
      if (rest_[i] < '0' || rest_[i] > '9') return -1;
      value = value * 10 + (rest_[i] - '0');
    }
    rest_.remove_prefix(count);
    return value >= least && value <= greatest ? value : -1;
  }
  std::string digits() {
    const auto end = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    std::string taken(rest_.substr(0, end));
    rest_.remove_prefix(end);
    return taken;
  }
  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

/// Seconds that the zone is ahead of UTC.
std::optional<int> offset(Scanner& scanner) {
  if (scanner.take('Z')) return 0;
  const bool isAhead = scanner.take('+');
  if (!isAhead && !scanner.take('-')) return std::nullopt;
  const int hours = scanner.number(2, 0, 23);
  if (hours < 0 || !scanner.take(':')) return std::nullopt;
  const int minutes = scanner.number(2, 0, 59);
  if (minutes < 0) return std::nullopt;
  const int seconds = (hours * 60 + minutes) * 60;
  return isAhead ? seconds : -seconds;
}

std::optional<std::int64_t> civilSeconds(Scanner& scanner) {
  const int year = scanner.number(4, 0, 9999);
  if (year < 0 || !scanner.take('-')) return std::nullopt;
  const int month = scanner.number(2, 1, 12);
  if (month < 0 || !scanner.take('-')) return std::nullopt;
  const int day = scanner.number(2, 1, 31);
  if (day < 0 || !scanner.take('T')) return std::nullopt;
  const int hour = scanner.number(2, 0, 23);
  if (hour < 0 || !scanner.take(':')) return std::nullopt;
  const int minute = scanner.number(2, 0, 59);
  if (minute < 0 || !scanner.take(':')) return std::nullopt;
  const int second = scanner.number(2, 0, 59);
  const std::chrono::year_month_day date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  if (second < 0 || !date.ok()) return std::nullopt;
  const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  return days * secondsADay + std::int64_t{hour} * 3600 + std::int64_t{minute} * 60 + second -
         referenceSince1970;
}

}  // namespace

std::optional<std::string> isoText(Date date) {
  constexpr double leastSeconds = -63145526400.0;  // year 0 begins
  constexpr double endSeconds = 252423993600.0;    // year 9999 ends
  const double interval = date.timeIntervalSinceReferenceDate();
  if (!(interval >= leastSeconds && interval < endSeconds)) return std::nullopt;
  const auto [seconds, fraction] = split(interval);
  const auto sinceEpoch = std::chrono::seconds(seconds + referenceSince1970);
  const auto days = std::chrono::floor<std::chrono::days>(sinceEpoch);
  const std::chrono::year_month_day civil{std::chrono::sys_days(days)};
  const std::chrono::hh_mm_ss time(sinceEpoch - days);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d",
                static_cast<int>(civil.year()), static_cast<unsigned>(civil.month()),
                static_cast<unsigned>(civil.day()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return std::string(text.data()) + (fraction.empty() ? "" : "." + fraction) + "Z";
}

std::optional<Date> dateFromIso(std::string_view text) {
  Scanner scanner(text);
  const auto seconds = civilSeconds(scanner);
  if (!seconds) return std::nullopt;
  std::string fraction;
  if (scanner.take('.')) {
    fraction = scanner.digits();
    if (fraction.empty()) return std::nullopt;
  }
  const auto ahead = offset(scanner);
  if (!ahead || !scanner.atEnd()) return std::nullopt;
  return Date(join(*seconds - *ahead, std::move(fraction)));
}

}  // namespace tessarine::tool
