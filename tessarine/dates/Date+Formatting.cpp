#include "tessarine/dates/Date+Formatting.hpp"

namespace tessarine {
namespace {

using Style = DateFormatter::Style;

/// Whether the text is a date in the formatter's order, with 15 for its day.
bool isDay15(const DateFormatter& formatter, std::string_view text, const Calendar& calendar) {
  const auto date = formatter.date(text);
  return date && calendar.component(Calendar::Component::day, *date) == 15;
}

}  // namespace

std::string iso8601StringWithFractionalSeconds(Date date) {
  const DateFormatter formatter(
      "yyyy-MM-dd'T'HH:mm:ss.SSS",
      {.locale = Locale("en_US_POSIX"), .timeZone = TimeZone::withAbbreviation("GMT")});
  std::string text = formatter.string(date);
  if (!text.empty()) text += 'Z';
  return text;
}

std::string string(Date date, std::string_view withFormat) {
  return DateFormatter(withFormat).string(date);
}

std::string dateString(Date date, Style style) {
  return DateFormatter::withStyles(style, Style::none).string(date);
}

std::string dateTimeString(Date date, Style style) {
  return DateFormatter::withStyles(style, style).string(date);
}

std::string timeString(Date date, Style style) {
  return DateFormatter::withStyles(Style::none, style).string(date);
}

std::string dayName(Date date, DayNameStyle style) {
  const char* const dateTemplate = style == DayNameStyle::threeLetters ? "EEE"
                                   : style == DayNameStyle::oneLetter  ? "EEEEE"
                                                                       : "EEEE";
  return DateFormatter::withLocalizedDateFormatFromTemplate(dateTemplate).string(date);
}

std::string monthName(Date date, MonthNameStyle style) {
  const char* const dateTemplate = style == MonthNameStyle::threeLetters ? "MMM"
                                   : style == MonthNameStyle::oneLetter  ? "MMMMM"
                                                                         : "MMMM";
  return DateFormatter::withLocalizedDateFormatFromTemplate(dateTemplate).string(date);
}

bool isMonthFirst() {
  const Calendar calendar = Calendar::current();
  const auto formatter = DateFormatter::withLocalizedDateFormatFromTemplate(
      "MMddyyyy", {.locale = Locale::current(), .calendar = calendar});
  if (isDay15(formatter, "12/15/2023", calendar)) return true;
  if (isDay15(formatter, "15/12/2023", calendar)) return false;
  const auto format = DateFormatter::dateFormatFromTemplate("MMddyyyy", Locale::current());
  return !format || !(format->starts_with('d') || format->starts_with('D'));
}

bool is24HourTimeFormat() {
  const auto format = DateFormatter::dateFormatFromTemplate("j", Locale::current());
  return format && format->find('a') == std::string::npos;
}

}  // namespace tessarine
