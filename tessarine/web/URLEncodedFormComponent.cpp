#include "tessarine/web/URLEncodedFormComponent.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace tessarine {
namespace {

/// Up to this many pairs an object is searched from front to back.
constexpr std::size_t smallObject = 16;
/// From this many pairs on it grows fourfold: moving them costs more than room that stays
/// untouched.
constexpr std::size_t largeObject = 1024;
constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

std::uint32_t hashOf(std::string_view key) noexcept {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(key));
}

}  // namespace

// ---- objects ----

std::size_t URLEncodedFormObject::size() const noexcept { return pairs_.size(); }
const URLEncodedFormObject::Pair* URLEncodedFormObject::begin() const noexcept {
  return pairs_.data();
}
const URLEncodedFormObject::Pair* URLEncodedFormObject::end() const noexcept {
  return pairs_.data() + pairs_.size();
}

std::size_t URLEncodedFormObject::indexOf(std::string_view key, std::uint32_t hash) const noexcept {
  if (table_.empty()) {
    const auto found = std::find_if(pairs_.begin(), pairs_.end(),
                                    [&](const Pair& pair) { return pair.first == key; });
    return found == pairs_.end() ? nowhere : static_cast<std::size_t>(found - pairs_.begin());
  }
  const std::size_t mask = table_.size() - 1;
  for (std::size_t at = hash & mask; table_[at].number != 0; at = (at + 1) & mask) {
    const std::size_t index = table_[at].number - 1;
    if (table_[at].hash == hash && pairs_[index].first == key) return index;
  }
  return nowhere;
}

void URLEncodedFormObject::addToTable(Slot slot) noexcept {
  const std::size_t mask = table_.size() - 1;
  std::size_t at = slot.hash & mask;
  while (table_[at].number != 0) at = (at + 1) & mask;
  table_[at] = slot;
}

/// Room for one more pair, and a table of which at most half is taken then.
void URLEncodedFormObject::makeRoom() {
  if (pairs_.size() == pairs_.capacity() && pairs_.size() >= largeObject) {
    pairs_.reserve(4 * pairs_.size());
  }
  const std::size_t count = pairs_.size() + 1;
  if (count <= smallObject || 2 * count <= table_.size()) return;
  std::vector<Slot> slots = std::exchange(table_, {});
  table_.resize(std::max<std::size_t>(slots.size() * 2, 4 * smallObject));
  if (slots.empty()) {
    for (std::uint32_t number = 1; const Pair& pair : pairs_) {
      addToTable({number++, hashOf(pair.first)});
    }
  }
  for (const Slot& slot : slots) {
    if (slot.number != 0) addToTable(slot);
  }
}

const URLEncodedFormComponent* URLEncodedFormObject::find(std::string_view key) const noexcept {
  const std::size_t index = indexOf(key, table_.empty() ? 0 : hashOf(key));
  return index == nowhere ? nullptr : &pairs_[index].second;
}

URLEncodedFormComponent& URLEncodedFormObject::valueFor(std::string_view key) {
  const std::uint32_t hash = pairs_.size() < smallObject ? 0 : hashOf(key);
  const std::size_t index = indexOf(key, hash);
  if (index != nowhere) return pairs_[index].second;
  makeRoom();
  pairs_.emplace_back(key, URLEncodedFormComponent());
  if (!table_.empty()) addToTable({static_cast<std::uint32_t>(pairs_.size()), hash});
  return pairs_.back().second;
}

bool URLEncodedFormObject::operator==(const URLEncodedFormObject& other) const {
  return pairs_ == other.pairs_;
}

// ---- components ----

URLEncodedFormComponent::URLEncodedFormComponent() noexcept : value_(Object()) {}
URLEncodedFormComponent::URLEncodedFormComponent(std::string text) noexcept
    : value_(std::move(text)) {}
URLEncodedFormComponent::URLEncodedFormComponent(const char* text) : value_(std::string(text)) {}
URLEncodedFormComponent::URLEncodedFormComponent(Array array) noexcept : value_(std::move(array)) {}
URLEncodedFormComponent::URLEncodedFormComponent(Object object) noexcept
    : value_(std::move(object)) {}

bool URLEncodedFormComponent::operator==(const URLEncodedFormComponent& other) const {
  return value_ == other.value_;
}

URLEncodedFormComponent& URLEncodedFormComponent::child(std::string_view key) {
  if (object() == nullptr) value_ = Object();
  return object()->valueFor(key);
}

URLEncodedFormComponent& URLEncodedFormComponent::child(std::int64_t index) {
  if (array() == nullptr) value_ = Array();
  Array& elements = *array();
  const auto position = static_cast<std::size_t>(index);  // a negative one is beyond the end
  return position < elements.size() ? elements[position] : elements.emplace_back();
}

void URLEncodedFormComponent::set(URLEncodedFormComponent value, const CodingPath& path) {
  URLEncodedFormComponent* place = this;
  for (const AnyCodingKey& key : path) {
    const auto index = key.intValue();
    place = index ? &place->child(*index) : &place->child(key.stringValue());
  }
  *place = std::move(value);
}

void URLEncodedFormComponent::set(URLEncodedFormComponent value, const CodingPathNode* path) {
  placeAt(path) = std::move(value);
}

URLEncodedFormComponent& URLEncodedFormComponent::placeAt(const CodingPathNode* path) {
  if (path == nullptr) return *this;
  URLEncodedFormComponent& around = placeAt(path->parent);
  return path->index ? around.child(*path->index) : around.child(path->key);
}

std::string URLEncodedFormComponent::description() const {
  if (const std::string* text = string()) return "string(\"" + *text + "\")";
  const bool isArray = array() != nullptr;
  std::string text = isArray ? "array([" : "object([";
  const std::size_t empty = text.size();
  const auto separate = [&] {
    if (text.size() > empty) text += ", ";
  };
  if (isArray) {
    for (const URLEncodedFormComponent& element : *array()) {
      separate();
      text += element.description();
    }
  } else {
    for (const auto& [key, value] : *object()) {
      separate();
      text.append(key).append(": ").append(value.description());
    }
  }
  return text + "])";
}

}  // namespace tessarine
