#include "tessarine/dates/Formatter.hpp"

namespace tessarine {
namespace {

DateFormatter fixedFormatter(std::string_view pattern) {
  return {pattern,
          {.locale = Locale("en_US_POSIX"),
           .calendar = Calendar(Calendar::Identifier::gregorian, TimeZone::gmt())}};
}

}  // namespace

const ISO8601DateFormatter& Formatter::iso8601() { return ISO8601DateFormatter::shared(); }

const ISO8601DateFormatter& Formatter::iso8601withFractionalSeconds() {
  static const ISO8601DateFormatter formatter(ISO8601DateFormatter::withInternetDateTime |
                                              ISO8601DateFormatter::withFractionalSeconds);
  return formatter;
}

const ISO8601DateFormatter& Formatter::iso8601DateOnly() {
  static const ISO8601DateFormatter formatter(ISO8601DateFormatter::withFullDate);
  return formatter;
}

const DateFormatter& Formatter::iso8601withFractionalSecondsLegacy() {
  static const DateFormatter formatter = fixedFormatter("yyyy-MM-dd'T'HH:mm:ss.SSSXXXXX");
  return formatter;
}

const DateFormatter& Formatter::iso8601withFractionalSecondsUTC() {
  static const DateFormatter formatter = fixedFormatter("yyyy-MM-dd'T'HH:mm:ss.SSSSSSS");
  return formatter;
}

const DateFormatter& Formatter::iso8601withDateOnlyLegacy() {
  static const DateFormatter formatter = fixedFormatter("yyyy-MM-dd");
  return formatter;
}

}  // namespace tessarine
