#include "tessarine/preferences/PreferenceConversion.hpp"

#include <array>
#include <charconv>
#include <string>

#include "tessarine/system/text/Characters.hpp"
#include "tessarine/system/text/RegularExpression.hpp"

#include <locale.h>

namespace tessarine {
namespace {

struct BooleanWord {
  std::string_view text;
  bool value;
};
constexpr std::array<BooleanWord, 6> booleanWords{
    {{"1", true}, {"true", true}, {"yes", true}, {"0", false}, {"false", false}, {"no", false}}};

template <class Integer>
std::optional<Integer> integerFromText(std::string_view text) {
  std::string_view digits = trimmingWhitespaceAndNewlines(text);
  const bool isNegative = digits.starts_with('-');
  if (isNegative || digits.starts_with('+')) digits.remove_prefix(1);
  if (digits.empty()) return std::nullopt;
  std::uint64_t magnitude = 0;
  const char* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, magnitude);
  if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
  constexpr std::uint64_t greatest = std::numeric_limits<Integer>::max();
  const std::uint64_t limit = !isNegative ? greatest : std::is_signed_v<Integer> ? greatest + 1 : 0;
  if (magnitude > limit) return std::nullopt;
  return static_cast<Integer>(isNegative ? 0 - magnitude : magnitude);
}

template <class Float, Float (*parse)(const char*, char**, locale_t)>
std::optional<Float> floatingFromText(std::string_view text) {
  static const locale_t cLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  const std::string terminated(trimmingWhitespaceAndNewlines(text));
  constexpr std::string_view refusedFirst("\0\t\n\v\f\r ", 7);
  if (terminated.empty() || refusedFirst.find(terminated.front()) != std::string_view::npos) {
    return std::nullopt;
  }
  char* end = nullptr;
  const Float value = parse(terminated.c_str(), &end, cLocale);
  if (end != terminated.c_str() + terminated.size()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<bool> detail::booleanFromText(std::string_view text) {
  const std::string pattern = lowercased(trimmingWhitespaceAndNewlines(text));
  if (pattern.empty()) return std::nullopt;
  for (const auto& word : booleanWords) {
    if (pattern == word.text) return word.value;  // each word is found in none before it
  }
  const auto expression = RegularExpression::compile(pattern);
  if (!expression) return std::nullopt;
  for (const auto& word : booleanWords) {
    if (expression->matchesInside(word.text)) return word.value;
  }
  return std::nullopt;
}

std::optional<std::int64_t> detail::signedFromText(std::string_view text) {
  return integerFromText<std::int64_t>(text);
}

std::optional<std::uint64_t> detail::unsignedFromText(std::string_view text) {
  return integerFromText<std::uint64_t>(text);
}

std::optional<double> detail::doubleFromText(std::string_view text) {
  return floatingFromText<double, ::strtod_l>(text);
}

std::optional<float> detail::floatFromText(std::string_view text) {
  return floatingFromText<float, ::strtof_l>(text);
}

std::optional<NSNumber> userDefaultNumberValue(const std::optional<PreferenceObject>& object) {
  if (!object) return std::nullopt;
  if (const NSNumber* number = object->number()) return *number;
  const std::string* text = object->string();
  if (text == nullptr) return std::nullopt;
  if (const auto integer = detail::signedFromText(*text)) return NSNumber(*integer);
  if (const auto floating = detail::doubleFromText(*text)) return NSNumber(*floating);
  return std::nullopt;
}

}  // namespace tessarine
