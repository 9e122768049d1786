#pragma once

#include <iterator>
#include <ranges>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/Async.hpp"

namespace tessarine {
namespace detail {

template <class Range>
using ElementOf = decltype(*std::begin(std::declval<Range&>()));

// `Range` is a reference for a range that the caller keeps, else it is moved into the frame.
template <class Range, class F>
Async<std::vector<AsyncResult<F&, ElementOf<Range>>>> mapSequence(Range range, F transform) {
  std::vector<AsyncResult<F&, ElementOf<Range>>> results;
  if constexpr (std::ranges::sized_range<Range>) results.reserve(std::ranges::size(range));
  for (auto&& element : range)
    results.push_back(co_await transform(std::forward<decltype(element)>(element)));
  co_return results;
}

template <class Range, class F>
Async<> forEachOfSequence(Range range, F body) {
  for (auto&& element : range) co_await body(std::forward<decltype(element)>(element));
}

}  // namespace detail

/// Awaits `transform` for each element in order, one at a time, and gives the results in that
/// order. The first exception ends the walk and reaches the awaiter. `transform` answers an
/// `Async`. A range that is a variable must live until the await is over; a temporary one is moved
/// in.
///
///     std::vector<Page> pages = co_await asyncMap(links, [&](const URL& link) { return load(link);
///     });
template <std::ranges::input_range Range, class F>
requires detail::AsyncOperation<F&, detail::ElementOf<Range>>
auto asyncMap(Range&& range, F transform) {
  return detail::mapSequence<Range, F>(std::forward<Range>(range), std::move(transform));
}

/// The same walk without results. Allocates nothing an element once the frames are there.
template <std::ranges::input_range Range, class F>
requires detail::AsyncOperation<F&, detail::ElementOf<Range>> Async<> asyncForEach(Range&& range,
                                                                                   F body) {
  return detail::forEachOfSequence<Range, F>(std::forward<Range>(range), std::move(body));
}

}  // namespace tessarine
