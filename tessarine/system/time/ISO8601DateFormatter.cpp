#include "tessarine/system/time/ISO8601DateFormatter.hpp"

#include <cmath>
#include <cstdint>

#include "tessarine/system/time/internal/DatePattern.hpp"

namespace tessarine {
namespace {

using internal::DatePattern;
using Field = DatePattern::Field;
using Form = ISO8601DateFormatter;

/// The pieces of a form, in the order of ISO 8601.
class Layout {
 public:
  explicit Layout(int options) : options_(options) {
    const bool hasDate = addDate();
    const bool hasTime = has(Form::withTime);
    if (hasDate && hasTime) {
      pattern_.addLiteral(has(Form::withSpaceBetweenDateAndTime) ? ' ' : 'T');
    }
    if (hasTime) addTime();
    if (has(Form::withTimeZone)) {
      pattern_.add(
          {.field = Field::zone,
           .zone = {.hasColon = has(Form::withColonSeparatorInTimeZone), .writesZ = true}});
    }
  }

  const DatePattern& pattern() const { return pattern_; }

 private:
  bool has(int option) const { return (options_ & option) != 0; }

  void addNumber(Field field, std::uint8_t width) {
    pattern_.add({.field = field, .width = width, .longest = width});
  }

  /// Whether there is one.
  bool addDate() {
    bool isFirst = true;
    const auto separate = [&] {
      if (!isFirst && has(Form::withDashSeparatorInDate)) pattern_.addLiteral('-');
      isFirst = false;
    };
    const bool hasWeek = has(Form::withWeekOfYear);
    if (has(Form::withYear)) {
      separate();
      addNumber(hasWeek ? Field::weekYear : Field::year, 4);
    }
    if (hasWeek) {
      separate();
      pattern_.addLiteral('W');
      addNumber(Field::week, 2);
    } else if (has(Form::withMonth)) {
      separate();
      addNumber(Field::month, 2);
    }
    if (has(Form::withDay)) {
      separate();
      if (hasWeek) {
        addNumber(Field::isoWeekday, 1);
      } else if (has(Form::withMonth)) {
        addNumber(Field::day, 2);
      } else {
        addNumber(Field::dayOfYear, 3);
      }
    }
    return !isFirst;
  }

  void addTime() {
    addNumber(Field::hour, 2);
    for (const Field field : {Field::minute, Field::second}) {
      if (has(Form::withColonSeparatorInTime)) pattern_.addLiteral(':');
      addNumber(field, 2);
    }
    if (!has(Form::withFractionalSeconds)) return;
    pattern_.addLiteral('.');
    pattern_.add({.field = Field::fraction, .width = 3, .longest = 9});
  }

  int options_;
  DatePattern pattern_{DatePattern::Days::iso};
};

/// Of clocks before there were zones, that of the next clock of whole minutes, for texts to say it.
std::int32_t shownOffset(TimeZone zone, int options, const internal::Instant& instant) {
  const std::int32_t offset = zone.rules().offsetAt(instant.second);
  return (options & Form::withTimeZone) != 0 ? offset - offset % 60 : offset;
}

}  // namespace

ISO8601DateFormatter::ISO8601DateFormatter(int formatOptions, TimeZone timeZone)
    : formatOptions_(formatOptions),
      zone_(timeZone),
      pattern_(std::make_shared<const DatePattern>(Layout(formatOptions).pattern())) {}

const ISO8601DateFormatter& ISO8601DateFormatter::shared() noexcept {
  static const ISO8601DateFormatter formatter;
  return formatter;
}

std::string ISO8601DateFormatter::string(Date date) const {
  if (std::isnan(date.timeIntervalSinceReferenceDate())) return {};
  const internal::Instant instant(date);
  return pattern_->string(instant, shownOffset(zone_, formatOptions_, instant));
}

void ISO8601DateFormatter::append(Date date, std::string& text) const {
  if (std::isnan(date.timeIntervalSinceReferenceDate())) return;
  const internal::Instant instant(date);
  pattern_->append(text, instant, shownOffset(zone_, formatOptions_, instant));
}

DateParsing ISO8601DateFormatter::parse(std::string_view text) const noexcept {
  return pattern_->parse(text, zone_.rules());
}

}  // namespace tessarine
