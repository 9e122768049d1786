#include "tessarine/values/AnyHashable.hpp"

#include <algorithm>

namespace tessarine {
namespace {

std::size_t combined(std::size_t seed, std::size_t hash) noexcept {
  return seed ^ (hash + 0x9e3779b97f4a7c15U + (seed << 6U) + (seed >> 2U));
}

std::size_t hashOf(const AnyHashable::Array& elements) noexcept {
  std::size_t seed = elements.size();
  for (const AnyHashable& element : elements) seed = combined(seed, element.hash());
  return seed;
}

std::size_t hashOf(const AnyHashable::Dictionary& pairs) noexcept {
  std::size_t seed = pairs.size();
  for (const auto& [key, value] : pairs) {
    seed = combined(combined(seed, std::hash<std::string>{}(key)), value.hash());
  }
  return seed;
}

}  // namespace

/// A list or dictionary that holds something else than property-list values somewhere.
template <class Contents>
struct AnyHashable::ContentsBox final : AnyBox {
  explicit ContentsBox(Contents c) : contents(std::move(c)) {}
  const std::type_info& type() const noexcept override { return typeid(Contents); }
  bool equals(const AnyBox& other) const noexcept override {
    return other.type() == typeid(Contents) &&
           static_cast<const ContentsBox&>(other).contents == contents;
  }
  std::size_t hash() const noexcept override { return hashOf(contents); }
  Contents contents;
};

AnyHashable::AnyHashable(Array elements) {
  const bool isPropertyList =
      std::all_of(elements.begin(), elements.end(),
                  [](const AnyHashable& element) { return element.preferenceObject() != nullptr; });
  if (!isPropertyList) {
    box_ = std::make_shared<const ContentsBox<Array>>(std::move(elements));
    return;
  }
  PreferenceObject::Array objects;
  objects.reserve(elements.size());
  for (const AnyHashable& element : elements) objects.push_back(*element.preferenceObject());
  object_ = PreferenceObject(std::move(objects));
}

AnyHashable::AnyHashable(Dictionary pairs) {
  const bool isPropertyList = std::all_of(pairs.begin(), pairs.end(), [](const auto& pair) {
    return pair.second.preferenceObject() != nullptr;
  });
  if (!isPropertyList) {
    box_ = std::make_shared<const ContentsBox<Dictionary>>(std::move(pairs));
    return;
  }
  PreferenceObject::Dictionary objects;
  for (const auto& [key, value] : pairs) {
    objects.emplace_hint(objects.end(), key, *value.preferenceObject());
  }
  object_ = PreferenceObject(std::move(objects));
}

std::optional<AnyHashable::Array> AnyHashable::array() const {
  if (box_ != nullptr) {
    if (box_->type() != typeid(Array)) return std::nullopt;
    return static_cast<const ContentsBox<Array>&>(*box_).contents;
  }
  if (object_.array() == nullptr) return std::nullopt;
  return Array(object_.array()->begin(), object_.array()->end());
}

std::optional<AnyHashable::Dictionary> AnyHashable::dictionary() const {
  if (box_ != nullptr) {
    if (box_->type() != typeid(Dictionary)) return std::nullopt;
    return static_cast<const ContentsBox<Dictionary>&>(*box_).contents;
  }
  if (object_.dictionary() == nullptr) return std::nullopt;
  return Dictionary(object_.dictionary()->begin(), object_.dictionary()->end());
}

}  // namespace tessarine
