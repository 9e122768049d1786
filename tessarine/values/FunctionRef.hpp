#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace tessarine {

template <class Signature>
class FunctionRef;

/// A callable, borrowed for the length of one call: two words, no allocation. What it is made from
/// has to outlive it, so it is a type for parameters only.
template <class Result, class... Arguments>
class FunctionRef<Result(Arguments...)> {
 public:
  template <class Function>
  requires(!std::is_same_v<std::remove_cvref_t<Function>, FunctionRef> &&
           std::is_invocable_r_v<Result, Function&, Arguments...>)
      // NOLINTNEXTLINE(google-explicit-constructor, bugprone-forwarding-reference-overload)
      FunctionRef(Function&& function)
  noexcept
      : object_(const_cast<void*>(static_cast<const void*>(std::addressof(function)))),
        call_([](void* object, Arguments... arguments) -> Result {
          return (*static_cast<std::remove_reference_t<Function>*>(object))(
              std::forward<Arguments>(arguments)...);
        }) {}

  Result operator()(Arguments... arguments) const {
    return call_(object_, std::forward<Arguments>(arguments)...);
  }

 private:
  void* object_;
  Result (*call_)(void*, Arguments...);
};

}  // namespace tessarine
