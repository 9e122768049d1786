#include "tessarine/system/text/KeyWords.hpp"

#include <algorithm>

#include "tessarine/system/text/Characters.hpp"
#include "tessarine/system/text/Graphemes.hpp"
#include "tessarine/values/utf8.hpp"

#include <unicode/uchar.h>

namespace tessarine {
namespace {

int categoryOf(std::string_view character) {
  const std::size_t size = utf8CharacterSize(character);
  if (size == 0) return U_UNASSIGNED;
  return u_charType(static_cast<UChar32>(utf8Scalar(character.substr(0, size))));
}

bool isUpper(std::string_view character) {
  const int category = categoryOf(character);
  return category == U_UPPERCASE_LETTER || category == U_TITLECASE_LETTER;
}

bool isLower(std::string_view character) { return categoryOf(character) == U_LOWERCASE_LETTER; }

}  // namespace

std::string keyWords(std::string_view key, char separator) {
  const auto characters = graphemeClusters(key);
  if (characters.empty()) return std::string(key);
  using Place = std::vector<std::string_view>::const_iterator;
  std::string words;
  const auto record = [&](Place begin, Place end) {  // no word is empty
    if (begin != characters.begin()) words += separator;
    const char* const last = std::prev(end)->data() + std::prev(end)->size();
    words += lowercased({begin->data(), static_cast<std::size_t>(last - begin->data())});
  };
  Place word = characters.begin();
  Place search = std::next(word);
  for (;;) {
    const Place upper = std::find_if(search, characters.end(), isUpper);
    if (upper == characters.end()) break;
    record(word, upper);
    word = upper;
    const Place lower = std::find_if(upper, characters.end(), isLower);
    if (lower == characters.end()) break;
    if (lower != std::next(upper)) {
      word = std::prev(lower);
      record(upper, word);
    }
    search = std::next(lower);
  }
  record(word, characters.end());
  return words;
}

}  // namespace tessarine
