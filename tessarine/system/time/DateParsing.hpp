#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "tessarine/values/Date.hpp"

namespace tessarine {

/// What became of reading a date. Where there is none, it says which byte of the text does not fit
/// and what would have.
struct DateParsing {
  std::optional<Date> date;
  std::size_t position = 0;
  std::string_view expected;  ///< such as "a month of two digits"; lives as long as the process
};

}  // namespace tessarine
