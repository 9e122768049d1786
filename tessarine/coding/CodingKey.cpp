#include "tessarine/coding/CodingKey.hpp"

namespace tessarine {

std::string description(const AnyCodingKey& key) {
  const auto number = key.intValue();
  return "AnyCodingKey(stringValue: \"" + key.stringValue() +
         "\", intValue: " + (number ? std::to_string(*number) : std::string("nil")) + ")";
}

std::string description(const CodingPath& path) {
  std::string text;
  for (const AnyCodingKey& key : path) {
    if (key.intValue()) {
      text.append("[").append(key.stringValue()).append("]");
    } else {
      if (!text.empty()) text += '.';
      text += key.stringValue();
    }
  }
  return text;
}

}  // namespace tessarine
