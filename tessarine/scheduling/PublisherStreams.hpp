#pragma once

#include <concepts>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "tessarine/system/dispatch/AnyCancellable.hpp"
#include "tessarine/system/dispatch/AsyncStream.hpp"
#include "tessarine/system/dispatch/Publisher.hpp"

namespace tessarine {
namespace detail {

template <class Error>
std::exception_ptr generalError(const Error& error) {
  if constexpr (std::is_same_v<Error, std::exception_ptr>)
    return error;
  else
    return std::make_exception_ptr(error);
}

/// Keeps the subscription until the stream ends, which is when nobody needs it any more.
template <class Continuation>
void keepUntilTermination(const Continuation& continuation, AnyCancellable subscription) {
  continuation.setOnTermination([held = std::make_shared<AnyCancellable>(std::move(subscription))](
                                    const StreamTermination&) { held->cancel(); });
}

}  // namespace detail

/// The values of any publisher as a stream that subscribes at once and keeps, without bound, what
/// nobody has taken. It ends as the publisher completes, with its failure as an exception (as it is
/// if it is an `std::exception_ptr`). A consumer that stops iterating ends the subscription.
template <Publisher P>
AsyncThrowingStream<typename P::Output> throwingStream(const P& publisher) {
  using Stream = AsyncThrowingStream<typename P::Output>;
  return Stream([&publisher](const typename Stream::Continuation& continuation) {
    detail::keepUntilTermination(
        continuation,
        publisher.sink(
            [continuation](const Completion<typename P::Failure>& completion) {
              if constexpr (!std::same_as<typename P::Failure, Never>) {
                if (completion.failure)
                  return continuation.finish(detail::generalError(*completion.failure));
              }
              continuation.finish();
            },
            [continuation](const typename P::Output& value) { continuation.yield(value); }));
  });
}

/// The same for a publisher that can fail; one that cannot becomes a stream that cannot.
template <Publisher P>
auto stream(const P& publisher) {
  if constexpr (std::same_as<typename P::Failure, Never>) {
    using Stream = AsyncStream<typename P::Output>;
    return Stream([&publisher](const typename Stream::Continuation& continuation) {
      detail::keepUntilTermination(
          continuation,
          publisher.sink(
              [continuation](const Completion<Never>&) { continuation.finish(); },
              [continuation](const typename P::Output& value) { continuation.yield(value); }));
    });
  } else {
    return throwingStream(publisher);
  }
}

}  // namespace tessarine
