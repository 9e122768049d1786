// The first two bytes choose an ISO 8601 form, the first line behind them is a pattern, the rest a
// text. What either formatter reads it writes as a text that it reads as the same date.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tessarine/system/time/DateFormatter.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace {

using namespace tessarine;

/// Whether the form says the year, the day and the second; others do not bring a date back.
bool isComplete(int options) {
  using Form = ISO8601DateFormatter;
  constexpr int needed = Form::withYear | Form::withDay | Form::withTime | Form::withTimeZone |
                         Form::withFractionalSeconds;
  return (options & needed) == needed;
}

/// Texts have milliseconds.
bool isSame(Date first, Date second) {
  return std::fabs(first.timeIntervalSinceReferenceDate() -
                   second.timeIntervalSinceReferenceDate()) < 0.002;
}

void checkForm(int options, std::string_view text) {
  const ISO8601DateFormatter form(options);
  const auto parsed = form.parse(text);
  if (parsed.position > text.size() || parsed.date.has_value() != parsed.expected.empty()) {
    std::abort();
  }
  if (!parsed.date || !isComplete(options)) return;
  const std::string written = form.string(*parsed.date);
  if (written.empty()) return;  // an offset led out of the years with four digits
  const auto again = form.date(written);
  if (!again || !isSame(*again, *parsed.date)) std::abort();
}

void checkPattern(std::string_view pattern, std::string_view text) {
  const DateFormatter formatter(
      pattern, {.locale = Locale("en_US_POSIX"),
                .calendar = Calendar(Calendar::Identifier::gregorian,
                                     *TimeZone::withIdentifier("America/New_York"))});
  const auto parsed = formatter.parse(text);
  if (parsed.position > text.size()) std::abort();
  if (parsed.date) formatter.string(*parsed.date);
  formatter.string(Date());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t end = std::min(input.find('\n'), input.size());
  const std::string_view text = input.substr(std::min(end + 1, input.size()));
  checkForm(data[0] | data[1] << 8, text);
  checkPattern(input.substr(0, end), text);
  return 0;
}
