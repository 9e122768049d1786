#include "tessarine/web/URLEncodedFormSerializer.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "tessarine/values/utf8.hpp"

namespace tessarine {
namespace {

constexpr std::string_view digits = "0123456789ABCDEF";

void appendPercentEncoded(std::string_view bytes, std::string& out) {
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += '%';
    out += digits[byte >> 4U];
    out += digits[byte & 15U];
  }
}

}  // namespace

URLEncodedFormSerializer::URLEncodedFormSerializer(
    bool alphabetizeKeyValuePairs, URLEncodedFormEncoder::ArrayEncoding arrayEncoding,
    URLEncodedFormEncoder::KeyEncoding keyEncoding,
    URLEncodedFormEncoder::SpaceEncoding spaceEncoding, const CharacterSet& allowedCharacters)
    : alphabetizeKeyValuePairs_(alphabetizeKeyValuePairs),
      arrayEncoding_(arrayEncoding),
      keyEncoding_(std::move(keyEncoding)),
      spaceEncoding_(spaceEncoding),
      allowedCharacters_(allowedCharacters) {
  bytes_.fill(Byte::beyondAscii);
  for (char32_t c = 0; c < 128; ++c) {
    bytes_[c] = c == ' '                        ? Byte::space
                : allowedCharacters.contains(c) ? Byte::plain
                                                : Byte::escaped;
  }
}

std::string URLEncodedFormSerializer::serialize(
    const URLEncodedFormComponent::Object& object) const {
  std::string text;
  append(object, nullptr, text);
  return text;
}

std::string URLEncodedFormSerializer::serialize(const URLEncodedFormComponent::Object& object,
                                                std::string_view key) const {
  std::string text;
  const std::string keyPath(key);
  append(object, &keyPath, text);
  return text;
}

std::string URLEncodedFormSerializer::serialize(const URLEncodedFormComponent::Array& array,
                                                std::string_view key) const {
  std::string text;
  append(array, std::string(key), text);
  return text;
}

/// Each element gives a segment, which is sorted as a whole and joined with the others.
template <class Elements, class Append>
void URLEncodedFormSerializer::appendLevel(const Elements& elements, std::string& out,
                                           Append appendElement) const {
  bool isFirst = true;
  const auto separate = [&] {
    if (!std::exchange(isFirst, false)) out += '&';
  };
  if (!alphabetizeKeyValuePairs_) {
    for (const auto& element : elements) {
      separate();
      appendElement(element, out);
    }
    return;
  }
  std::vector<std::string> segments;
  segments.reserve(elements.size());
  for (const auto& element : elements) appendElement(element, segments.emplace_back());
  std::sort(segments.begin(), segments.end());
  for (const std::string& segment : segments) {
    separate();
    out += segment;
  }
}

void URLEncodedFormSerializer::append(const URLEncodedFormComponent::Object& object,
                                      const std::string* keyPath, std::string& out) const {
  appendLevel(object, out, [&](const URLEncodedFormObject::Pair& pair, std::string& segment) {
    const auto& [key, value] = pair;
    append(value, keyPath == nullptr ? key : *keyPath + "[" + key + "]", segment);
  });
}

void URLEncodedFormSerializer::append(const URLEncodedFormComponent::Array& array,
                                      const std::string& keyPath, std::string& out) const {
  const bool hasBrackets = arrayEncoding_ == URLEncodedFormEncoder::ArrayEncoding::brackets;
  const std::string elementPath = hasBrackets ? keyPath + "[]" : keyPath;
  appendLevel(array, out, [&](const URLEncodedFormComponent& element, std::string& segment) {
    append(element, elementPath, segment);
  });
}

void URLEncodedFormSerializer::append(const URLEncodedFormComponent& component,
                                      const std::string& keyPath, std::string& out) const {
  if (const std::string* text = component.string()) {
    appendPair(keyPath, *text, out);
  } else if (const auto* array = component.array()) {
    append(*array, keyPath, out);
  } else {
    append(*component.object(), &keyPath, out);
  }
}

void URLEncodedFormSerializer::appendPair(const std::string& keyPath, std::string_view value,
                                          std::string& out) const {
  const bool isConverted =
      keyEncoding_.kind() != URLEncodedFormEncoder::KeyEncoding::useDefaultKeys;
  if (isConverted) {
    appendEscaped(keyEncoding_.encode(keyPath), out);
  } else {
    appendEscaped(keyPath, out);
  }
  out += '=';
  appendEscaped(value, out);
}

void URLEncodedFormSerializer::appendEscaped(std::string_view text, std::string& out) const {
  // In steps, so that the room for what may be escaped is small beside the text.
  constexpr std::size_t step = 256;
  while (!text.empty()) {
    const char* const begin = text.data();
    const char* at = appendRun(begin, begin + std::min(text.size(), step), out);
    text.remove_prefix(static_cast<std::size_t>(at - begin));
    if (!text.empty() && static_cast<unsigned char>(text.front()) >= 0x80) {
      text.remove_prefix(appendCharacter(text, out));
    }
  }
}

/// Appends up to the end or the next byte beyond ASCII, and gives that place.
const char* URLEncodedFormSerializer::appendRun(const char* at, const char* end,
                                                std::string& out) const {
  const bool isPlus = spaceEncoding_ == URLEncodedFormEncoder::SpaceEncoding::plusReplaced;
  const std::size_t size = out.size();
  out.resize(size + 3 * static_cast<std::size_t>(end - at));
  char* to = out.data() + size;
  for (; at < end; ++at) {
    const auto byte = static_cast<unsigned char>(*at);
    if (bytes_[byte] == Byte::plain) {
      *to++ = *at;
    } else if (bytes_[byte] == Byte::beyondAscii) {
      break;
    } else if (bytes_[byte] == Byte::space && isPlus) {
      *to++ = '+';
    } else {
      *to++ = '%';
      *to++ = digits[byte >> 4U];
      *to++ = digits[byte & 15U];
    }
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
  return at;
}

/// Appends the character beyond ASCII at the front, and gives its size.
std::size_t URLEncodedFormSerializer::appendCharacter(std::string_view text,
                                                      std::string& out) const {
  const std::size_t size = utf8CharacterSize(text);
  const std::string_view character = size == 0 ? utf8Replacement : text.substr(0, size);
  if (allowedCharacters_.contains(utf8Scalar(character))) {
    out += character;
  } else {
    appendPercentEncoded(character, out);
  }
  return std::max<std::size_t>(size, 1);
}

}  // namespace tessarine
