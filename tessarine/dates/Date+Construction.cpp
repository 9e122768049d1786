#include <string>

#include "tessarine/dates/Date+Construction.hpp"
#include "tessarine/system/time/DateFormatter.hpp"

namespace tessarine {

std::optional<Date> dateWithComponents(const DateComponents& components) {
  return components.date();
}

std::optional<Date> dateWithIntegerLiteral(std::int64_t literal) {
  return DateFormatter("yyyyMMdd").date(std::to_string(literal));
}

std::optional<Date> dateWithISO8601String(std::string_view text) {
  const DateFormatter formatter("yyyy-MM-dd'T'HH:mm:ss.SSSZ",
                                {.locale = Locale("en_US_POSIX"), .timeZone = TimeZone::current()});
  return formatter.date(text);
}

std::mt19937_64& detail::randomGenerator() {
  thread_local std::mt19937_64 generator = [] {
    std::random_device system;
    std::seed_seq seed{system(), system(), system(), system()};
    return std::mt19937_64(seed);
  }();
  return generator;
}

}  // namespace tessarine
