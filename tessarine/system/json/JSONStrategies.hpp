#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "tessarine/coding/CodingKey.hpp"
#include "tessarine/coding/Decoder.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/system/time/DateFormatter.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"

namespace tessarine {

struct JSONDateForms {
  enum class Case : std::uint8_t {
    deferredToDate,  ///< seconds since the reference date
    secondsSince1970,
    millisecondsSince1970,
    iso8601,    ///< text of `ISO8601DateFormatter`
    formatted,  ///< text of a `DateFormatter`
    custom
  };
  using enum Case;
};

/// How dates stand in JSON. An ISO 8601 text whose offset leads out of the years 0 to 9999 in GMT,
/// which could not be written again, is refused at reading. A callback runs on the coder's thread,
/// once a date; what it throws is passed on.
template <class Custom>
class JSONDateStrategy : public JSONDateForms {
 public:
  /// `deferredToDate`.
  JSONDateStrategy() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the strategy
  JSONDateStrategy(Case plain) : case_(plain) {}
  static JSONDateStrategy withFormatter(DateFormatter formatter) {
    JSONDateStrategy strategy(Case::formatted);
    strategy.formatter_ = std::make_shared<const DateFormatter>(std::move(formatter));
    return strategy;
  }
  static JSONDateStrategy withCallback(Custom callback) {
    JSONDateStrategy strategy(Case::custom);
    strategy.callback_ = std::move(callback);
    return strategy;
  }

  Case kind() const noexcept { return case_; }
  /// Of `formatted`.
  const DateFormatter& formatter() const noexcept { return *formatter_; }
  /// Of `custom`.
  const Custom& callback() const noexcept { return callback_; }

 private:
  Case case_ = Case::deferredToDate;
  std::shared_ptr<const DateFormatter> formatter_;
  Custom callback_;
};

struct JSONDataForms {
  enum class Case : std::uint8_t { deferredToData, base64, custom };
  using enum Case;
};

/// How bytes stand in JSON: as base64 text, as an array of numbers, or as a callback has it.
template <class Custom>
class JSONDataStrategy : public JSONDataForms {
 public:
  /// `base64`.
  JSONDataStrategy() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the strategy
  JSONDataStrategy(Case plain) : case_(plain) {}
  static JSONDataStrategy withCallback(Custom callback) {
    return {Case::custom, std::move(callback)};
  }

  Case kind() const noexcept { return case_; }
  const Custom& callback() const noexcept { return callback_; }

 private:
  JSONDataStrategy(Case kind, Custom callback) : case_(kind), callback_(std::move(callback)) {}

  Case case_ = Case::base64;
  Custom callback_;
};

/// What NaN and the infinities become, which JSON has no numbers for: an error, or three texts.
class JSONNonConformingFloatStrategy {
 public:
  /// An error.
  JSONNonConformingFloatStrategy() = default;
  static JSONNonConformingFloatStrategy asTexts(std::string positiveInfinity,
                                                std::string negativeInfinity, std::string nan) {
    JSONNonConformingFloatStrategy strategy;
    strategy.isText_ = true;
    strategy.positiveInfinity_ = std::move(positiveInfinity);
    strategy.negativeInfinity_ = std::move(negativeInfinity);
    strategy.nan_ = std::move(nan);
    return strategy;
  }

  bool isText() const noexcept { return isText_; }
  const std::string& positiveInfinity() const noexcept { return positiveInfinity_; }
  const std::string& negativeInfinity() const noexcept { return negativeInfinity_; }
  const std::string& nan() const noexcept { return nan_; }

 private:
  bool isText_ = false;
  std::string positiveInfinity_, negativeInfinity_, nan_;
};

/// What becomes of keys between a host's type and JSON. The keys of maps are data and stay as they
/// are. A callback is given the path to the value, the key itself last, and gives the new key.
class JSONKeyStrategy {
 public:
  using Custom = std::function<std::string(const CodingPath&)>;
  enum class Case : std::uint8_t {
    useDefaultKeys,
    snakeCase,  ///< "userIDValue" here, "user_id_value" in JSON
    custom
  };
  using enum Case;

  /// `useDefaultKeys`.
  JSONKeyStrategy() = default;
  // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the strategy
  JSONKeyStrategy(Case plain) : case_(plain) {}
  static JSONKeyStrategy withCallback(Custom callback) {
    JSONKeyStrategy strategy(Case::custom);
    strategy.callback_ = std::move(callback);
    return strategy;
  }

  Case kind() const noexcept { return case_; }
  const Custom& callback() const noexcept { return callback_; }

 private:
  Case case_ = Case::useDefaultKeys;
  Custom callback_;
};

}  // namespace tessarine
