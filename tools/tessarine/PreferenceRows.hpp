#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::tool {

/// Texts as they are, dates as ISO texts, data as base64, containers as JSON.
std::string plainText(const PreferenceObject& object);

/// A row's cells: key, kind and value with tabs between; "removed" and nothing for a missing one.
/// Tabs, line ends and backslashes in them are written with a backslash.
std::string rowOf(std::string_view key, const std::optional<PreferenceObject>& object);

void printLine(std::string_view text);

}  // namespace tessarine::tool
