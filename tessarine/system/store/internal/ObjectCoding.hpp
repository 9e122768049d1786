#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tessarine/values/PreferenceObject.hpp"

namespace tessarine::detail {

/// Nesting beyond this is neither written nor read.
inline constexpr int deepestObject = 512;

/// Appends the stored form of `object` to `bytes`: a tag byte, then the contents in little-endian
/// order; lengths and counts take four bytes. False, with `bytes` in an unspecified state, when
/// arrays and dictionaries nest deeper than `deepestObject`.
bool encodeObject(const PreferenceObject& object, std::string& bytes);

/// The object that exactly all of `bytes` hold, absent when they are no such form. Time and memory
/// are bounded by the length of `bytes`.
std::optional<PreferenceObject> decodeObject(std::string_view bytes);

}  // namespace tessarine::detail
