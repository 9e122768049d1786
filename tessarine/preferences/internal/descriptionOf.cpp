#include "tessarine/preferences/internal/descriptionOf.hpp"

#include "tessarine/system/time/ISO8601DateFormatter.hpp"

namespace tessarine::internal {

std::string descriptionOf(const PreferenceObject& object) {
  if (const auto* number = object.number()) return number->stringValue();
  if (const auto* text = object.string()) return *text;
  if (const auto* date = object.date()) return ISO8601DateFormatter().string(*date);
  if (const auto* data = object.data()) {
    return std::to_string(data->bytes().size()).append(" bytes");
  }
  std::string all = "[";
  const auto append = [&](const std::string& part) {
    if (all.size() > 1) all += ", ";
    all += part;
  };
  if (const auto* array = object.array()) {
    for (const auto& element : *array) append(descriptionOf(element));
  } else if (const auto* dictionary = object.dictionary()) {
    for (const auto& [key, value] : *dictionary) append(key + ": " + descriptionOf(value));
  }
  return all + "]";
}

}  // namespace tessarine::internal
