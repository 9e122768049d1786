#include "tessarine/dates.hpp"

#include <cstdio>

int main() {
  using namespace tessarine;
  using Unit = Calendar::Component;
  const Calendar paris(Calendar::Identifier::gregorian, *TimeZone::withIdentifier("Europe/Paris"));
  const Date start = *paris.dateFrom({.year = 2024, .month = 1, .day = 31, .hour = 9});
  const DateFormatter shown("yyyy-MM-dd HH:mm",
                            {.locale = Locale("en_US_POSIX"), .calendar = paris});

  std::puts(shown.string(adding(start, Unit::month, 1, paris)).c_str());  // 2024-02-29 09:00
  std::puts(shown.string(*end(start, Unit::weekOfYear, paris)).c_str());  // 2024-02-03 23:59
  std::puts(Formatter::iso8601().string(start).c_str());                  // 2024-01-31T08:00:00Z
  const auto until =
      paris.dateComponents({Unit::month, Unit::day}, start, *shown.date("2024-12-24 18:00"));
  std::printf("%d months and %d days\n", int(*until.month),
              int(*until.day));  // 10 months and 24 days
}
