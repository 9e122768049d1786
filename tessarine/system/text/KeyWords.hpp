#pragma once

#include <string>
#include <string_view>

#include "tessarine/export.hpp"

namespace tessarine {

/// A key such as "userIDValue" as lower-case words with a separator between: "user_id_value". A
/// word begins at each capital behind the first character; a run of capitals stays together but for
/// its last, which begins the next word. The first character is never looked at, so a key that
/// begins with a run gives up its first capital: "URLValue" is "u_rl_value". Works on characters;
/// capitals are general categories Lu and Lt, small letters Ll. Any thread.
TESSARINE_EXPORT std::string keyWords(std::string_view key, char separator);

}  // namespace tessarine
