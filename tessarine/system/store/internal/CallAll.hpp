#pragma once

#include <exception>

namespace tessarine::detail {

/// Calls `call` for each element of `range`, whatever the others do: when some throw, the rest are
/// still called, and the first exception goes on to the caller at the end.
template <class Range, class Call>
void callAll(Range& range, Call call) {
  std::exception_ptr first;
  for (auto& element : range) {
    try {
      call(element);
    } catch (...) {
      if (!first) first = std::current_exception();
    }
  }
  if (first) std::rethrow_exception(first);
}

}  // namespace tessarine::detail
