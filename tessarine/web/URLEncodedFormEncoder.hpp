#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <utility>
#include <variant>

#include "tessarine/coding/Encoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/system/text/CharacterSet.hpp"
#include "tessarine/system/time/DateFormatter.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"

namespace tessarine {

/// What stands in a form as it is by RFC 3986: letters, digits and -._~/? of ASCII.
TESSARINE_EXPORT const CharacterSet& afURLQueryAllowed();

/// Turns encodable values into application/x-www-form-urlencoded text:
///
///     URLEncodedFormEncoder encoder;
///     encoder.text(order);  // id=A1&lines%5B%5D%5Bsku%5D=9
///
/// A nested key stands in brackets. Lists and objects that hold nothing leave no trace. A key that
/// is written twice keeps its first place and its second value. `URLEncodedFormDecoder` reads such
/// texts back.
///
/// All three entries throw `EncodingError` for an explicit absent value and for nesting beyond 512
/// levels, and pass on what a callback or the value itself throws. Many threads may encode at once
/// while none writes `allowedCharacters`; callbacks run on the caller's thread. Linear time.
class TESSARINE_EXPORT URLEncodedFormEncoder {
 public:
  enum class ArrayEncoding : std::uint8_t {
    brackets,   ///< the key of each element ends in "[]"
    noBrackets  ///< the key of each element is the list's
  };
  enum class BoolEncoding : std::uint8_t { numeric /* 1, 0 */, literal /* true, false */ };
  enum class SpaceEncoding : std::uint8_t { percentEscaped /* %20 */, plusReplaced /* + */ };

  /// How bytes are written.
  class DataEncoding {
   public:
    enum class Case : std::uint8_t {
      deferredToData,  ///< a list of numbers
      base64,
      custom
    };
    using enum Case;
    using Custom = std::function<std::string(const Data&)>;

    // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the encoding
    DataEncoding(Case plain) : case_(plain) {}
    static DataEncoding withCallback(Custom callback);

    Case kind() const noexcept { return case_; }
    const Custom& callback() const noexcept { return callback_; }

   private:
    Case case_;
    Custom callback_;
  };

  /// How dates are written.
  class DateEncoding {
   public:
    enum class Case : std::uint8_t {
      deferredToDate,  ///< seconds since the reference date
      secondsSince1970,
      millisecondsSince1970,
      iso8601,    ///< text of the shared `ISO8601DateFormatter`
      formatted,  ///< text of a `DateFormatter`
      custom
    };
    using enum Case;
    using Custom = std::function<std::string(Date)>;

    // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the encoding
    DateEncoding(Case plain) : case_(plain) {}
    static DateEncoding withFormatter(DateFormatter formatter);
    static DateEncoding withCallback(Custom callback);

    Case kind() const noexcept { return case_; }
    const DateFormatter& formatter() const { return std::get<DateFormatter>(payload_); }
    const Custom& callback() const { return std::get<Custom>(payload_); }

   private:
    Case case_;
    std::variant<std::monostate, DateFormatter, Custom> payload_;
  };

  /// What becomes of a whole key with its brackets, before it is escaped.
  class KeyEncoding {
   public:
    enum class Case : std::uint8_t {
      useDefaultKeys,
      convertToSnakeCase,  ///< see `keyWords`
      convertToKebabCase,
      capitalized,  ///< the first character
      uppercased,
      lowercased,
      custom
    };
    using enum Case;
    using Custom = std::function<std::string(const std::string&)>;

    // NOLINTNEXTLINE(google-explicit-constructor): a case without a payload is the encoding
    KeyEncoding(Case plain) : case_(plain) {}
    static KeyEncoding withCallback(Custom callback);

    Case kind() const noexcept { return case_; }
    std::string encode(const std::string& key) const;

   private:
    Case case_;
    Custom callback_;
  };

  struct Options {
    /// Every level's finished pairs are put in ascending order of their text.
    bool alphabetizeKeyValuePairs = false;
    ArrayEncoding arrayEncoding = ArrayEncoding::brackets;
    BoolEncoding boolEncoding = BoolEncoding::numeric;
    DataEncoding dataEncoding = DataEncoding::base64;
    DateEncoding dateEncoding = DateEncoding::deferredToDate;
    KeyEncoding keyEncoding = KeyEncoding::useDefaultKeys;
    SpaceEncoding spaceEncoding = SpaceEncoding::percentEscaped;
    /// What is not percent-escaped; the space goes by `spaceEncoding` in any case.
    CharacterSet allowedCharacters = afURLQueryAllowed();
  };

  /// The root of the value is no object: a text, a number, a list.
  class TESSARINE_EXPORT Error : public std::exception {
   public:
    enum class Case : std::uint8_t { invalidRootObject };
    explicit Error(std::string rootDescription);
    Case kind() const noexcept { return Case::invalidRootObject; }
    /// The root that was built, as text.
    const std::string& rootDescription() const noexcept { return rootDescription_; }
    const char* what() const noexcept override { return text_.c_str(); }

   private:
    std::string rootDescription_;
    std::string text_;
  };

  URLEncodedFormEncoder();
  explicit URLEncodedFormEncoder(Options options);

  bool alphabetizeKeyValuePairs() const noexcept { return options_.alphabetizeKeyValuePairs; }
  ArrayEncoding arrayEncoding() const noexcept { return options_.arrayEncoding; }
  BoolEncoding boolEncoding() const noexcept { return options_.boolEncoding; }
  const DataEncoding& dataEncoding() const noexcept { return options_.dataEncoding; }
  const DateEncoding& dateEncoding() const noexcept { return options_.dateEncoding; }
  const KeyEncoding& keyEncoding() const noexcept { return options_.keyEncoding; }
  SpaceEncoding spaceEncoding() const noexcept { return options_.spaceEncoding; }
  const CharacterSet& allowedCharacters() const noexcept { return options_.allowedCharacters; }
  void setAllowedCharacters(CharacterSet characters) {
    options_.allowedCharacters = std::move(characters);
  }

  /// The form as a tree.
  template <Encodable T>
  URLEncodedFormComponent component(const T& value) const {
    URLEncodedFormComponent component;
    detail::withEncodable(value, [&](EncodableValue any) { component = componentOf(any); });
    return component;
  }
  /// The form as text. Throws `Error` unless the root is an object; no fields give the empty text.
  template <Encodable T>
  std::string text(const T& value) const {
    std::string text;
    detail::withEncodable(value, [&](EncodableValue any) { text = textOf(any); });
    return text;
  }
  /// The bytes of the text.
  template <Encodable T>
  Data encode(const T& value) const {
    return Data::fromText(text(value));
  }

 private:
  URLEncodedFormComponent componentOf(EncodableValue value) const;
  std::string textOf(EncodableValue value) const;

  Options options_;
};

}  // namespace tessarine
