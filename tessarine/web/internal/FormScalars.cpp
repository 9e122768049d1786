#include "tessarine/web/internal/FormScalars.hpp"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "tessarine/coding/internal/writableDate.hpp"
#include "tessarine/coding/withIntegerType.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine::internal {
namespace {

using DateEncoding = URLEncodedFormEncoder::DateEncoding;
using DataEncoding = URLEncodedFormEncoder::DataEncoding;

constexpr double millisecondsASecond = 1000;

template <class T>
bool assign(DecodableSlot slot, std::optional<T> value) {
  if (value) *static_cast<T*>(slot.address) = std::move(*value);
  return value.has_value();
}

template <class Integer>
bool assignInteger(DecodableSlot slot, std::string_view text) {
  if constexpr (Integer(-1) < Integer(0)) {
    const auto value = int128FromText(text);
    if (!value || static_cast<Int128>(static_cast<Integer>(*value)) != *value) return false;
    return assign(slot, std::optional(static_cast<Integer>(*value)));
  } else {
    const auto value = uint128FromText(text);
    if (!value || static_cast<UInt128>(static_cast<Integer>(*value)) != *value) return false;
    return assign(slot, std::optional(static_cast<Integer>(*value)));
  }
}

template <class Float>
std::optional<Float> floatFrom(std::string_view text) {
  if (text == "nan") return std::numeric_limits<Float>::quiet_NaN();
  if (text == "inf") return std::numeric_limits<Float>::infinity();
  if (text == "-inf") return -std::numeric_limits<Float>::infinity();
  Float value = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  const bool isNumber = result.ec == std::errc() && result.ptr == end && std::isfinite(value);
  return isNumber ? std::optional(value) : std::nullopt;
}

std::optional<bool> boolFrom(std::string_view text) {
  if (text == "1" || text == "true") return true;
  if (text == "0" || text == "false") return false;
  return std::nullopt;
}

std::optional<Date> dateFrom(const std::string& text,
                             const URLEncodedFormDecoder::Options& options) {
  const auto number = [&](double unit, bool isSince1970) -> std::optional<Date> {
    const auto value = floatFrom<double>(text);
    if (!value) return std::nullopt;
    return isSince1970 ? Date::since1970(*value / unit) : Date(*value);
  };
  switch (options.dateEncoding) {
    case DateEncoding::deferredToDate:
      return number(1, false);
    case DateEncoding::secondsSince1970:
      return number(1, true);
    case DateEncoding::millisecondsSince1970:
      return number(millisecondsASecond, true);
    case DateEncoding::iso8601:
      return writableDate(ISO8601DateFormatter::shared(), text);
    case DateEncoding::formatted:
      return options.formatter ? options.formatter->date(text) : std::nullopt;
    case DateEncoding::custom:
      return options.dateCallback(text);
  }
  return std::nullopt;
}

}  // namespace

bool isFormScalar(ShapeKind kind, const URLEncodedFormDecoder::Options& options) noexcept {
  if (kind == ShapeKind::data) return options.dataEncoding != DataEncoding::deferredToData;
  return kind <= ShapeKind::decimal;
}

bool readFormScalar(const std::string& text, DecodableSlot slot,
                    const URLEncodedFormDecoder::Options& options) {
  bool isRead = false;
  const bool isInteger = withIntegerType(
      slot.shape->kind, [&]<class Integer>() { isRead = assignInteger<Integer>(slot, text); });
  if (isInteger) return isRead;
  switch (slot.shape->kind) {
    case ShapeKind::boolean:
      return assign(slot, boolFrom(text));
    case ShapeKind::float32:
      return assign(slot, floatFrom<float>(text));
    case ShapeKind::float64:
      return assign(slot, floatFrom<double>(text));
    case ShapeKind::text:
      return assign(slot, std::optional(text));
    case ShapeKind::date:
      return assign(slot, dateFrom(text, options));
    case ShapeKind::data:
      return assign(slot, options.dataEncoding == DataEncoding::custom
                              ? std::optional(options.dataCallback(text))
                              : Data::fromBase64(text));
    case ShapeKind::uuid:
      return assign(slot, UUID::fromString(text));
    case ShapeKind::decimal:
      return assign(slot, Decimal::fromString(text));
    default:
      return false;
  }
}

}  // namespace tessarine::internal
