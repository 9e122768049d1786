#include "tessarine/system/text/StringEncoding.hpp"

#include <array>
#include <limits>
#include <memory>

#include <unicode/ucnv.h>
#include <unicode/unistr.h>

namespace tessarine {
namespace {

/// ICU's names, in the order of the enumeration.
constexpr std::array<const char*, 14> names{
    "US-ASCII", "UTF-8",      "UTF-16",     "UTF-16BE",     "UTF-16LE",  "UTF-32",    "UTF-32BE",
    "UTF-32LE", "ISO-8859-1", "ISO-8859-2", "windows-1252", "macintosh", "Shift_JIS", "EUC-JP"};

}  // namespace

std::optional<std::string> stringFromBytes(std::string_view bytes, StringEncoding encoding) {
  if (bytes.size() > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UConverter, decltype(&ucnv_close)> converter(
      ucnv_open(names[static_cast<std::size_t>(encoding)], &status), &ucnv_close);
  if (U_FAILURE(status)) return std::nullopt;
  // Stops at what is ill-formed, where the default writes U+FFFD.
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  const icu::UnicodeString wide(bytes.data(), static_cast<std::int32_t>(bytes.size()),
                                converter.get(), status);
  if (U_FAILURE(status)) return std::nullopt;
  std::string text;
  wide.toUTF8String(text);
  return text;
}

}  // namespace tessarine
