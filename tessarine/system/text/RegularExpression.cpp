#include "tessarine/system/text/RegularExpression.hpp"

#include <utility>

#include <unicode/regex.h>
#include <unicode/unistr.h>

namespace tessarine {
namespace {

icu::UnicodeString utf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<int32_t>(text.size())});
}

// ICU counts its limit in steps that take "about a millisecond"; the stack limit is in bytes.
constexpr int32_t stackLimit = 8 << 20;

}  // namespace

struct RegularExpression::Compiled {
  std::unique_ptr<icu::RegexPattern> pattern;
};

RegularExpression::RegularExpression(std::shared_ptr<const Compiled> compiled) noexcept
    : compiled_(std::move(compiled)) {}

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern) {
  if (pattern.size() > longestPattern) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  UParseError position;
  std::unique_ptr<icu::RegexPattern> compiled(
      icu::RegexPattern::compile(utf16(pattern), position, status));
  if (U_FAILURE(status) != 0) return std::nullopt;
  return RegularExpression(std::make_shared<const Compiled>(Compiled{std::move(compiled)}));
}

bool RegularExpression::matchesInside(std::string_view subject) const {
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString text = utf16(subject);
  const std::unique_ptr<icu::RegexMatcher> matcher(compiled_->pattern->matcher(text, status));
  if (U_FAILURE(status) != 0) return false;
  matcher->setTimeLimit(timeLimitMilliseconds, status);
  matcher->setStackLimit(stackLimit, status);
  const bool found = matcher->find(status) != 0;
  return found && U_SUCCESS(status) != 0;
}

}  // namespace tessarine
