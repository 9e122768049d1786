#pragma once

#include <string>

#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::internal {

/// A value as a line of a log shows it: numbers and texts as they are, dates as ISO 8601 texts,
/// bytes by their count, lists in brackets.
std::string descriptionOf(const PreferenceObject& object);

}  // namespace tessarine::internal
