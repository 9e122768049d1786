#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "tessarine/system/time/Calendar.hpp"
#include "tessarine/system/time/DateParsing.hpp"
#include "tessarine/system/time/Locale.hpp"

#include <unicode/calendar.h>
#include <unicode/smpdtfmt.h>

namespace tessarine::internal {

/// A pattern with names of months, days, eras or zones, with other calendars or digits, as ICU
/// writes and reads it. Offsets are those of the system's zones. Any thread: ICU's objects change
/// while they work, so each call works with a calendar of its own.
class IcuDateFormat {
 public:
  IcuDateFormat(const std::string& pattern, const Locale& locale, const Calendar& calendar);

  /// Empty for a pattern that is none.
  std::string string(Date date) const;
  DateParsing parse(std::string_view text) const;

 private:
  std::unique_ptr<icu::Calendar> calendarAt(Date date) const;

  TimeZone zone_;
  bool hasZoneField_;
  std::unique_ptr<icu::SimpleDateFormat> format_;  // null for a pattern that is none
  std::unique_ptr<icu::Calendar> calendar_;
};

icu::UnicodeString icuText(std::string_view utf8);
std::string utf8Text(const icu::UnicodeString& text);
/// The locale with the calendar in it, as ICU's formats want it.
icu::Locale icuLocale(const Locale& locale, Calendar::Identifier calendar);

}  // namespace tessarine::internal
