#include "tessarine/dates/JSONDateStrategies.hpp"

#include "tessarine/dates/Formatter.hpp"

namespace tessarine {
namespace {

/// Calls `use` with each formatter of a chain until one gives what is not empty.
template <class Use>
auto firstOf(bool dateOnly, const Use& use) {
  auto result = use(dateOnly ? Formatter::iso8601DateOnly() : Formatter::iso8601());
  if (dateOnly) return result ? result : use(Formatter::iso8601withDateOnlyLegacy());
  if (!result) result = use(Formatter::iso8601withFractionalSecondsUTC());
  if (!result) result = use(Formatter::iso8601withFractionalSeconds());
  if (!result) result = use(Formatter::iso8601DateOnly());
  if (!result) result = use(Formatter::iso8601withFractionalSecondsLegacy());
  return result;
}

DateDecodingStrategy::Strategy decoding(bool dateOnly) {
  return DateDecodingStrategy::Strategy::withCallback([dateOnly](Decoder& decoder) {
    auto container = decoder.singleValueContainer();
    const auto text = container.decode<std::string>();
    const auto date = dateByTolerantChain(text, dateOnly);
    if (!date) throw container.dataCorrupted("Cannot parse date: " + text);
    return *date;
  });
}

DateEncodingStrategy::Strategy encoding(bool dateOnly) {
  return DateEncodingStrategy::Strategy::withCallback([dateOnly](Date date, Encoder& encoder) {
    std::optional<std::string> text;
    if (date != Date::distantPast()) {
      text = firstOf(dateOnly, [&](const auto& formatter) {
        std::string written = formatter.string(date);
        return written.empty() ? std::nullopt : std::optional(std::move(written));
      });
    }
    encoder.singleValueContainer().encode(text);
  });
}

}  // namespace

std::optional<Date> dateByTolerantChain(std::string_view text, bool dateOnly) {
  if (text.empty()) return Date::distantPast();
  return firstOf(dateOnly, [&](const auto& formatter) { return formatter.date(text); });
}

const DateDecodingStrategy::Strategy& DateDecodingStrategy::iso8601withFractionalSeconds() {
  static const Strategy strategy = decoding(false);
  return strategy;
}

const DateDecodingStrategy::Strategy& DateDecodingStrategy::iso8601DateOnly() {
  static const Strategy strategy = decoding(true);
  return strategy;
}

const DateEncodingStrategy::Strategy& DateEncodingStrategy::iso8601withFractionalSeconds() {
  static const Strategy strategy = encoding(false);
  return strategy;
}

const DateEncodingStrategy::Strategy& DateEncodingStrategy::iso8601DateOnly() {
  static const Strategy strategy = encoding(true);
  return strategy;
}

}  // namespace tessarine
