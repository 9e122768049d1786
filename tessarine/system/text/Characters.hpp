#pragma once

#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// `text` without the white space and line ends at both of its ends: tab, the space separators
/// (general category Zs), LF, CR, U+0085, U+2028 and U+2029. Points into `text`. Any thread; time
/// is that of what is trimmed.
TESSARINE_EXPORT std::string_view trimmingWhitespaceAndNewlines(std::string_view text) noexcept;

/// `text` in lower case by the full, locale-independent mapping of Unicode. Ill-formed UTF-8
/// becomes U+FFFD. Any thread.
TESSARINE_EXPORT std::string lowercased(std::string_view text);

/// The same in upper case.
TESSARINE_EXPORT std::string uppercased(std::string_view text);

/// `text` with its first character (extended grapheme cluster) in upper case. Any thread.
TESSARINE_EXPORT std::string capitalizedFirst(std::string_view text);

}  // namespace tessarine
