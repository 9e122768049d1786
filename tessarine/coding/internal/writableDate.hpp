#pragma once

#include <optional>
#include <string>

#include "tessarine/values/Date.hpp"

namespace tessarine::internal {

/// The date that a text is in a formatter's form. Absent also for one that has no text in that
/// form: an offset may lead out of the years that have, and what is read can be written again.
template <class Formatter>
std::optional<Date> writableDate(const Formatter& formatter, const std::string& text) {
  const std::optional<Date> date = formatter.date(text);
  return date && !formatter.string(*date).empty() ? date : std::nullopt;
}

}  // namespace tessarine::internal
