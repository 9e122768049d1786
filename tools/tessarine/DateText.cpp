#include "DateText.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine::tool {
namespace {

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

/// The decimal digits of what is left behind the last whole second; none for whole seconds.
std::string fraction(double seconds) {
  std::array<char, 512> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                    std::fabs(seconds), std::chars_format::fixed);
  const std::string_view text(buffer.data(), static_cast<std::size_t>(result.ptr - buffer.data()));
  const auto point = text.find('.');
  if (point == std::string_view::npos) return {};
  std::string digits(text.substr(point + 1));
  return seconds < 0 ? complement(std::move(digits)) : digits;
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

}  // namespace

std::optional<std::string> isoText(Date date) {
  const double interval = date.timeIntervalSinceReferenceDate();
  std::string text = ISO8601DateFormatter::shared().string(date);
  if (text.empty()) return std::nullopt;
  if (const std::string digits = fraction(interval); !digits.empty()) {
    text.insert(text.size() - 1, "." + digits);  // before the Z
  }
  return text;
}

std::optional<Date> dateFromIso(std::string_view text) {
  constexpr std::size_t point = std::string_view("YYYY-MM-DDThh:mm:ss").size();
  std::string whole(text);
  std::string digits;
  if (text.size() > point && text[point] == '.') {
    const auto end = std::min(text.find_first_not_of("0123456789", point + 1), text.size());
    digits = text.substr(point + 1, end - point - 1);
    if (digits.empty()) return std::nullopt;
    whole.erase(point, end - point);
  }
  const auto date = ISO8601DateFormatter::shared().date(whole);
  if (!date) return std::nullopt;
  const double seconds = date->timeIntervalSinceReferenceDate();
  return Date(join(static_cast<std::int64_t>(seconds), std::move(digits)));
}

}  // namespace tessarine::tool
