#pragma once

#include <exception>

#include "tessarine/export.hpp"

namespace tessarine {

/// Thrown where a task that has been cancelled ends its work early, as `Task<>::sleep` does.
class TESSARINE_EXPORT CancellationError : public std::exception {
 public:
  CancellationError() noexcept = default;
  CancellationError(const CancellationError&) noexcept = default;
  CancellationError& operator=(const CancellationError&) noexcept = default;
  ~CancellationError() override;
  const char* what() const noexcept override;
};

}  // namespace tessarine
