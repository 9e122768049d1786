#pragma once

#include <stdexcept>

namespace tessarine::tool {

/// A text that is not the JSON that is asked for; the message says what is wrong.
struct JsonError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace tessarine::tool
