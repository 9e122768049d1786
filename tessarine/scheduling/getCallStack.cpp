#include "tessarine/scheduling/getCallStack.hpp"

#include <array>
#include <cstdlib>
#include <memory>

#include <execinfo.h>

namespace tessarine {

std::string getCallStack() {
  std::array<void*, 128> calls{};
  const int count = backtrace(calls.data(), static_cast<int>(calls.size()));
  const std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(calls.data(), count),
                                                             &std::free);
  std::string text;
  // The first is this function itself.
  for (int i = 1; symbols && i < count; ++i)
    text += std::to_string(i - 1) + " " + symbols.get()[i] + "\n";
  return text;
}

}  // namespace tessarine
