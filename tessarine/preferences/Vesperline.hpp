#pragma once

#include <array>
#include <concepts>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>

namespace tessarine {

/// Kinds of messages. The cloud controller uses the first, the third and `error`.
enum class LogType : std::uint8_t { debug, info, verbose, notice, warning, error, fault };

/// Where messages go: a callback of the host, and the kinds that it wants. A value.
///
///     controller->setVesperline({[](const std::string& text, LogType) { log(text); },
///                                {LogType::error}});
class Vesperline {
 public:
  using Callback = std::function<void(const std::string& text, LogType type)>;

  Vesperline(Callback callback, std::set<LogType> enabledLogTypes)
      : callback_(std::move(callback)), enabledLogTypes_(std::move(enabledLogTypes)) {}

  bool isLogTypeEnabled(LogType type) const { return enabledLogTypes_.contains(type); }

  /// Hands the text on if its kind is wanted; `text`, a callable, is not even called otherwise.
  template <std::invocable Text>
  void debugLog(Text&& text) const {
    log(LogType::debug, std::forward<Text>(text));
  }
  template <std::invocable Text>
  void verboseLog(Text&& text) const {
    log(LogType::verbose, std::forward<Text>(text));
  }
  template <std::invocable Text>
  void errorLog(Text&& text) const {
    log(LogType::error, std::forward<Text>(text));
  }

 private:
  template <class Text>
  void log(LogType type, Text&& text) const {
    if (callback_ && isLogTypeEnabled(type)) callback_(std::forward<Text>(text)(), type);
  }

  Callback callback_;
  std::set<LogType> enabledLogTypes_;
};

}  // namespace tessarine
