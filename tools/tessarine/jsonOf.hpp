#pragma once

#include <string>

#include "tessarine/system/json/JSONEncoder.hpp"

namespace tessarine::tool {

/// The JSON that commands print: on one line unless `pretty`, with slashes as they are.
template <Encodable T>
std::string jsonOf(const T& value, bool pretty = false) {
  return JSONEncoder(
             {.outputFormatting = {.prettyPrinted = pretty, .withoutEscapingSlashes = true}})
      .text(value);
}

}  // namespace tessarine::tool
