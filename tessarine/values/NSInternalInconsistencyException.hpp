#pragma once

#include <stdexcept>

namespace tessarine {

/// Raised where an object is used in a state that its host should not have made; `what()` says
/// which.
class NSInternalInconsistencyException : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

}  // namespace tessarine
