#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// A compiled regular expression in ICU's dialect. Ill-formed UTF-8 in pattern or subject counts as
/// U+FFFD. Immutable and safe from any thread.
///
/// Matching is bounded: a search that takes longer than about `timeLimit` or 8 MB of backtracking
/// memory finds nothing, and a pattern of more than `longestPattern` bytes does not compile.
class TESSARINE_EXPORT RegularExpression {
 public:
  static constexpr int timeLimitMilliseconds = 250;
  static constexpr std::size_t longestPattern = std::size_t{4} << 20U;

  /// Absent when `pattern` is no valid regular expression.
  static std::optional<RegularExpression> compile(std::string_view pattern);

  /// Whether a search finds a match somewhere inside `subject`.
  bool matchesInside(std::string_view subject) const;

 private:
  struct Compiled;
  explicit RegularExpression(std::shared_ptr<const Compiled> compiled) noexcept;
  std::shared_ptr<const Compiled> compiled_;
};

}  // namespace tessarine
