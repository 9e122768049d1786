#include "tessarine/values/fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace tessarine {

void fatal(std::string_view message) noexcept {
  std::fprintf(stderr, "Tessarine: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace tessarine
