#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/export.hpp"
#include "tessarine/system/json/JSONSerialization.hpp"
#include "tessarine/system/text/StringEncoding.hpp"
#include "tessarine/values/AnyHashable.hpp"
#include "tessarine/values/Data.hpp"

namespace tessarine {

// Short forms on bytes. Any thread.

/// A copy of all bytes, in order.
TESSARINE_EXPORT std::vector<std::uint8_t> bytes(const Data& data);

/// The text that the bytes are in an encoding; absent when they are none.
TESSARINE_EXPORT std::optional<std::string> string(const Data& data, StringEncoding encoding);

/// `JSONSerialization::jsonObject` of the bytes; throws `DecodingError`.
TESSARINE_EXPORT AnyHashable jsonObject(const Data& data,
                                        JSONSerialization::ReadingOptions options = {});

/// Writes the bytes to a file of that name in the folder for temporary files, whole or not at all,
/// in place of a file that is there; gives its path. The file can be read by its owner only. Throws
/// `std::system_error` that names the file when it cannot be written, or when `name` is no name of
/// a file: empty, "." or "..", or with a slash or a NUL in it.
TESSARINE_EXPORT std::filesystem::path write(const Data& data, std::string_view name);

}  // namespace tessarine
