#pragma once

#include <string>
#include <string_view>

#include "tessarine/export.hpp"
#include "tessarine/system/text/CharacterSet.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

namespace tessarine {

/// Writes a form's tree as text: `key=value` pairs joined by "&", a nested key in brackets behind
/// the one around it, "[]" or nothing for an element of a list. Immutable; any thread. A callback
/// for keys runs on the caller's.
class TESSARINE_EXPORT URLEncodedFormSerializer {
 public:
  URLEncodedFormSerializer(bool alphabetizeKeyValuePairs,
                           URLEncodedFormEncoder::ArrayEncoding arrayEncoding,
                           URLEncodedFormEncoder::KeyEncoding keyEncoding,
                           URLEncodedFormEncoder::SpaceEncoding spaceEncoding,
                           CharacterSet allowedCharacters);

  /// The whole text of a form whose root is `object`.
  std::string serialize(const URLEncodedFormComponent::Object& object) const;
  /// The text of everything under a key; empty when there is nothing.
  std::string serialize(const URLEncodedFormComponent::Object& object, std::string_view key) const;
  std::string serialize(const URLEncodedFormComponent::Array& array, std::string_view key) const;

 private:
  template <class Component>
  std::string text(const Component& component, const std::string_view* key) const;

  bool alphabetizeKeyValuePairs_;
  URLEncodedFormEncoder::ArrayEncoding arrayEncoding_;
  URLEncodedFormEncoder::KeyEncoding keyEncoding_;
  URLEncodedFormEncoder::SpaceEncoding spaceEncoding_;
  CharacterSet allowedCharacters_;
};

}  // namespace tessarine
