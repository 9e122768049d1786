#pragma once

#include <functional>
#include <optional>
#include <string_view>
#include <variant>

#include "tessarine/coding/Decoder.hpp"
#include "tessarine/export.hpp"
#include "tessarine/values/Data.hpp"
#include "tessarine/values/Date.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

namespace tessarine {

/// Reads what `URLEncodedFormEncoder` writes:
///
///     Order order = URLEncodedFormDecoder().decode<Order>("id=A1&lines%5B%5D%5Bsku%5D=9");
///
/// "%20" and "+" are spaces. "a[b]" is the key b in the object a; "a[]", and a key that comes more
/// than once, are lists; an object whose keys are all whole numbers is read as a list by their
/// order where a list is asked for; one text is read as a list of one. "a[][x]" goes to the last
/// object of the list while that has no x yet, else to a new one. A list or a map that is missing
/// is empty. A key with brackets in any other form is a key like any other. Booleans are 1, 0, true
/// or false. What a form cannot tell is lost: a list of lists comes back as one inner list, and a
/// list of objects needs brackets.
///
/// Throws `DecodingError` with the path, and with the byte where the text itself is at fault: an
/// escape that there is not, bytes that are no UTF-8, one path that stands for a text and an
/// object, more than 512 levels. Immutable; any thread. Linear time.
class TESSARINE_EXPORT URLEncodedFormDecoder {
 public:
  /// How dates and bytes were written; a callback gets the text.
  struct Options {
    using DateEncoding = URLEncodedFormEncoder::DateEncoding;
    DateEncoding::Case dateEncoding = DateEncoding::deferredToDate;
    std::optional<DateFormatter> formatter = std::nullopt;    ///< of `formatted`
    std::function<Date(std::string_view)> dateCallback = {};  ///< of `custom`
    URLEncodedFormEncoder::DataEncoding::Case dataEncoding =
        URLEncodedFormEncoder::DataEncoding::base64;
    std::function<Data(std::string_view)> dataCallback = {};  ///< of `custom`
    /// The encoder's: keys are looked up as it would have written them.
    URLEncodedFormEncoder::KeyEncoding keyEncoding =
        URLEncodedFormEncoder::KeyEncoding::useDefaultKeys;
    CodingUserInfo userInfo = {};
  };

  URLEncodedFormDecoder();
  explicit URLEncodedFormDecoder(Options options);

  /// The tree of a form, whose root is an object.
  static URLEncodedFormComponent component(std::string_view form);

  template <Decodable T>
  T decode(std::string_view form) const {
    return decodeComponent<T>(component(form));
  }
  template <Decodable T>
  T decode(const Data& form) const {
    return decode<T>(form.text());
  }
  template <Decodable T>
  T decodeComponent(const URLEncodedFormComponent& root) const {
    return detail::decoded<T>([&](DecodableSlot slot) { decodeInto(slot, root); });
  }

 private:
  void decodeInto(DecodableSlot slot, const URLEncodedFormComponent& root) const;

  Options options_;
};

}  // namespace tessarine
