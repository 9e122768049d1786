#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "tessarine/export.hpp"
#include "tessarine/web/URLEncodedFormComponent.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

namespace tessarine {

/// Writes a form's tree as text: `key=value` pairs joined by "&", a nested key in brackets behind
/// the one around it, "[]" or nothing for an element of a list. Immutable; any thread.
class TESSARINE_EXPORT URLEncodedFormSerializer {
 public:
  URLEncodedFormSerializer(bool alphabetizeKeyValuePairs,
                           URLEncodedFormEncoder::ArrayEncoding arrayEncoding,
                           URLEncodedFormEncoder::KeyEncoding keyEncoding,
                           URLEncodedFormEncoder::SpaceEncoding spaceEncoding,
                           const CharacterSet& allowedCharacters);

  /// The whole text of a form whose root is `object`.
  std::string serialize(const URLEncodedFormComponent::Object& object) const;
  /// The text of everything under a key; empty when there is nothing.
  std::string serialize(const URLEncodedFormComponent::Object& object, std::string_view key) const;
  std::string serialize(const URLEncodedFormComponent::Array& array, std::string_view key) const;

  /// Appends one pair. `keyPath` has its brackets and is converted and escaped here.
  void appendPair(const std::string& keyPath, std::string_view value, std::string& out) const;
  void appendEscaped(std::string_view text, std::string& out) const;

 private:
  void append(const URLEncodedFormComponent& component, const std::string& keyPath,
              std::string& out) const;
  void append(const URLEncodedFormComponent::Object& object, const std::string* keyPath,
              std::string& out) const;
  void append(const URLEncodedFormComponent::Array& array, const std::string& keyPath,
              std::string& out) const;
  template <class Elements, class Append>
  void appendLevel(const Elements& elements, std::string& out, Append appendElement) const;

  bool alphabetizeKeyValuePairs_;
  URLEncodedFormEncoder::ArrayEncoding arrayEncoding_;
  URLEncodedFormEncoder::KeyEncoding keyEncoding_;
  URLEncodedFormEncoder::SpaceEncoding spaceEncoding_;
  CharacterSet allowedCharacters_;
  enum class Byte : std::uint8_t { plain, space, escaped, beyondAscii };
  const char* appendRun(const char* at, const char* end, std::string& out) const;
  std::size_t appendCharacter(std::string_view text, std::string& out) const;
  std::array<Byte, 256> bytes_;  // what becomes of each
};

}  // namespace tessarine
