#include "tessarine/system/json/internal/JSONKeys.hpp"

#include <algorithm>
#include <utility>

#include "tessarine/system/text/Characters.hpp"
#include "tessarine/system/text/KeyWords.hpp"

namespace tessarine::internal {
namespace {

/// "user_id" as "userId"; underscores at the ends stay, and so does a key without any inside.
std::string camelCased(std::string_view key) {
  const std::size_t first = key.find_first_not_of('_');
  if (first == std::string_view::npos) return std::string(key);
  const std::size_t last = key.find_last_not_of('_');
  std::string_view words = key.substr(first, last + 1 - first);
  std::string text(key.substr(0, first));
  if (words.find('_') == std::string_view::npos) {
    text += words;
  } else {
    bool isFirst = true;
    while (!words.empty()) {
      const std::size_t end = std::min(words.find('_'), words.size());
      const std::string word = lowercased(words.substr(0, end));
      text += std::exchange(isFirst, false) ? word : capitalizedFirst(word);
      words.remove_prefix(std::min(end + 1, words.size()));
    }
  }
  text += key.substr(last + 1);
  return text;
}

std::string converted(const JSONKeyStrategy& strategy, std::string_view key,
                      const CodingPathNode* path, std::string (*snakeCase)(std::string_view)) {
  switch (strategy.kind()) {
    case JSONKeyStrategy::useDefaultKeys:
      return std::string(key);
    case JSONKeyStrategy::snakeCase:
      return snakeCase(key);
    case JSONKeyStrategy::custom:
      break;
  }
  CodingPath whole = codingPath(path);
  whole.emplace_back(key);
  return strategy.callback()(whole);
}

}  // namespace

std::string writtenJSONKey(const JSONKeyStrategy& strategy, std::string_view key,
                           const CodingPathNode* path) {
  return converted(strategy, key, path, [](std::string_view own) { return keyWords(own, '_'); });
}

std::string readJSONKey(const JSONKeyStrategy& strategy, std::string_view key,
                        const CodingPathNode* path) {
  return converted(strategy, key, path, camelCased);
}

}  // namespace tessarine::internal
