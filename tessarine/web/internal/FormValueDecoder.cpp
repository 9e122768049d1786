#include "tessarine/web/internal/FormValueDecoder.hpp"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "tessarine/web/internal/FormScalars.hpp"

namespace tessarine::internal {
namespace {

using Component = URLEncodedFormComponent;
using Case = DecodingError::Case;

const Component& emptyObject() {
  static const Component component;
  return component;
}

std::string_view nameOf(const Component& component) {
  return component.string() != nullptr ? "text" : component.array() != nullptr ? "list" : "object";
}

[[noreturn]] void mismatch(std::string_view expected, const Component& found,
                           const CodingPathNode* path) {
  throw DecodingError(
      Case::typeMismatch,
      {tessarine::codingPath(path),
       std::string("Expected ").append(expected).append(" but found ").append(nameOf(found))});
}

/// The elements that a component is as a list, in order: those of a list; of an object whose keys
/// are whole numbers, by number; one text by itself.
std::vector<const Component*> elementsOf(const Component& component, const CodingPathNode* path) {
  std::vector<const Component*> elements;
  if (const auto* array = component.array()) {
    elements.reserve(array->size());
    for (const Component& element : *array) elements.push_back(&element);
    return elements;
  }
  if (component.string() != nullptr) return {&component};
  std::vector<std::pair<UInt128, const Component*>> numbered;
  for (const auto& [key, value] : *component.object()) {
    const auto number = uint128FromText(key);
    if (!number || key.starts_with('-')) mismatch("list", component, path);
    numbered.emplace_back(*number, &value);
  }
  std::stable_sort(numbered.begin(), numbered.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  elements.reserve(numbered.size());
  for (const auto& [number, value] : numbered) elements.push_back(value);
  return elements;
}

/// Whether a value that holds nothing is written as nothing at all.
bool leavesNoTrace(DecodableSlot slot, const URLEncodedFormDecoder::Options& options) {
  switch (slot.shape->kind) {
    case ShapeKind::sequence:
    case ShapeKind::map:
    case ShapeKind::object:
      return true;
    case ShapeKind::data:
      return !isFormScalar(ShapeKind::data, options);
    default:
      return false;
  }
}

class KeyedBackend final : public KeyedDecodingContainer::Backend {
 public:
  KeyedBackend(FormDecodingRun& run, const Component& component, const CodingPathNode* path)
      : run_(run), component_(component), object_(*component.object()), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  std::vector<AnyCodingKey> allKeys() const override {
    std::vector<AnyCodingKey> keys;
    keys.reserve(object_.size());
    for (const auto& [key, value] : object_) keys.emplace_back(key);
    return keys;
  }
  bool contains(CodingKeyView key) const override { return find(key.stringValue()) != nullptr; }
  bool decodeNil(CodingKeyView key) override {
    require(key);
    return false;
  }
  void decode(DecodableSlot slot, CodingKeyView key) override {
    const Component* component = find(key.stringValue());
    if (component == nullptr) {
      component = leavesNoTrace(slot, run_.options) ? &emptyObject() : &require(key);
    }
    const CodingPathNode step{path_, key.stringValue()};
    run_.read(*component, slot, &step);
  }
  KeyedDecodingContainer nestedContainer(CodingKeyView key) override {
    return decoder(key)->container();
  }
  UnkeyedDecodingContainer nestedUnkeyedContainer(CodingKeyView key) override {
    return decoder(key)->unkeyedContainer();
  }
  /// The encoder writes the base part of a value in the value's own place.
  std::unique_ptr<Decoder> superDecoder() override {
    return std::make_unique<FormValueDecoder>(run_, component_, path_);
  }
  std::unique_ptr<Decoder> superDecoder(CodingKeyView key) override { return decoder(key); }

 private:
  /// As the encoder would have written the key, which it converts together with those around it.
  const Component* find(std::string_view key) const {
    using KeyEncoding = URLEncodedFormEncoder::KeyEncoding;
    if (run_.options.keyEncoding.kind() == KeyEncoding::useDefaultKeys) return object_.find(key);
    std::string whole;
    const auto append = [&](std::string_view step) {
      if (whole.empty()) {
        whole += step;
      } else {
        whole.append("[").append(step).append("]");
      }
    };
    for (const AnyCodingKey& step : codingPath()) {
      append(step.intValue() ? std::string_view() : step.stringValue());
    }
    append(key);
    const std::string written = run_.options.keyEncoding.encode(whole);
    std::string_view piece = written;
    if (path_ != nullptr) {
      const std::size_t begin = piece.rfind('[');
      if (begin == std::string_view::npos || !piece.ends_with(']')) return nullptr;
      piece = piece.substr(begin + 1, piece.size() - begin - 2);
    }
    return object_.find(piece);
  }
  const Component& require(CodingKeyView key) const {
    if (const Component* component = find(key.stringValue())) return *component;
    throw DecodingError::keyNotFound(
        key.toKey(),
        {codingPath(), "No value for the key \"" + std::string(key.stringValue()) + "\""});
  }
  std::unique_ptr<Decoder> decoder(CodingKeyView key) {
    return std::make_unique<FormValueDecoder>(run_, require(key), run_.append(path_, key));
  }

  FormDecodingRun& run_;
  const Component& component_;
  const Component::Object& object_;
  const CodingPathNode* path_;
};

class UnkeyedBackend final : public UnkeyedDecodingContainer::Backend {
 public:
  UnkeyedBackend(FormDecodingRun& run, std::vector<const Component*> elements,
                 const CodingPathNode* path)
      : run_(run), elements_(std::move(elements)), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  std::optional<std::size_t> count() const override { return elements_.size(); }
  std::size_t currentIndex() const override { return index_; }
  bool isAtEnd() const override { return index_ == elements_.size(); }
  bool decodeNil() override {
    require();
    return false;
  }
  void decode(DecodableSlot slot) override {
    const CodingPathNode step{path_, {}, static_cast<std::int64_t>(index_)};
    run_.read(require(), slot, &step);
    ++index_;
  }
  KeyedDecodingContainer nestedContainer() override {
    auto nested = decoder()->container();
    ++index_;
    return nested;
  }
  UnkeyedDecodingContainer nestedUnkeyedContainer() override {
    auto nested = decoder()->unkeyedContainer();
    ++index_;
    return nested;
  }
  std::unique_ptr<Decoder> superDecoder() override {
    auto element = decoder();
    ++index_;
    return element;
  }

 private:
  const Component& require() const {
    if (!isAtEnd()) return *elements_[index_];
    throw DecodingError(Case::valueNotFound, {codingPath(), "There are no more elements."});
  }
  std::unique_ptr<Decoder> decoder() {
    const Component& element = require();
    const AnyCodingKey key(static_cast<std::int64_t>(index_));
    return std::make_unique<FormValueDecoder>(run_, element, run_.append(path_, key));
  }

  FormDecodingRun& run_;
  std::vector<const Component*> elements_;
  const CodingPathNode* path_;
  std::size_t index_ = 0;
};

class SingleValueBackend final : public SingleValueDecodingContainer::Backend {
 public:
  SingleValueBackend(FormDecodingRun& run, const Component& component, const CodingPathNode* path)
      : run_(run), component_(component), path_(path) {}

  CodingPath codingPath() const override { return tessarine::codingPath(path_); }
  bool decodeNil() override { return false; }
  void decode(DecodableSlot slot) override { run_.read(component_, slot, path_); }
  DecodingError dataCorrupted(std::string_view why) const override {
    return {Case::dataCorrupted, {codingPath(), std::string(why)}};
  }

 private:
  FormDecodingRun& run_;
  const Component& component_;
  const CodingPathNode* path_;
};

}  // namespace

const CodingPathNode* FormDecodingRun::append(const CodingPathNode* parent, CodingKeyView key) {
  Step& step = steps.emplace_back();
  step.key = key.stringValue();
  step.node = {parent, step.key, key.intValue()};
  return &step.node;
}

void FormDecodingRun::read(const Component& component, DecodableSlot slot,
                           const CodingPathNode* path) {
  const TypeShape& shape = *slot.shape;
  if (shape.decode == nullptr && isFormScalar(shape.kind, options)) {
    const std::string* text = component.string();
    if (text == nullptr) mismatch(tessarine::nameOf(shape.kind), component, path);
    if (readFormScalar(*text, slot, options)) return;
    constexpr std::size_t longestShown = 40;
    throw DecodingError(
        Case::dataCorrupted,
        {tessarine::codingPath(path), "The text \"" + text->substr(0, longestShown) + "\" is no " +
                                          std::string(tessarine::nameOf(shape.kind))});
  }
  FormValueDecoder decoder(*this, component, path);
  tessarine::decode(slot, decoder);
}

KeyedDecodingContainer FormValueDecoder::container() {
  if (component_.object() == nullptr) mismatch("object", component_, path_);
  return KeyedDecodingContainer(std::make_unique<KeyedBackend>(run_, component_, path_));
}

UnkeyedDecodingContainer FormValueDecoder::unkeyedContainer() {
  return UnkeyedDecodingContainer(
      std::make_unique<UnkeyedBackend>(run_, elementsOf(component_, path_), path_));
}

SingleValueDecodingContainer FormValueDecoder::singleValueContainer() {
  return SingleValueDecodingContainer(
      std::make_unique<SingleValueBackend>(run_, component_, path_));
}

}  // namespace tessarine::internal
