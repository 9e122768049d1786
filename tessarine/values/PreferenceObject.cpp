#include "tessarine/values/PreferenceObject.hpp"

#include <algorithm>
#include <bit>

namespace tessarine {
namespace {

std::size_t combined(std::size_t seed, std::size_t hash) {
  return seed ^ (hash + 0x9e3779b97f4a7c15U + (seed << 6U) + (seed >> 2U));
}

bool identicalBits(double left, double right) {
  return std::bit_cast<std::uint64_t>(left) == std::bit_cast<std::uint64_t>(right);
}

bool identicalNumbers(const NSNumber& left, const NSNumber& right) {
  if (left.kind() != right.kind()) return false;
  if (!left.isFloat()) return left.unsignedIntegerValue() == right.unsignedIntegerValue();
  return identicalBits(left.doubleValue(), right.doubleValue());
}

/// Equality of everything but numbers and what holds them.
template <class SameElement>
bool equalContents(const PreferenceObject& left, const PreferenceObject& right, SameElement same) {
  switch (left.kind()) {
    case PreferenceObject::Kind::number:
      return *left.number() == *right.number();
    case PreferenceObject::Kind::string:
      return *left.string() == *right.string();
    case PreferenceObject::Kind::date:
      return *left.date() == *right.date();
    case PreferenceObject::Kind::data:
      return *left.data() == *right.data();
    case PreferenceObject::Kind::array:
      return left.array() == right.array() ||
             std::equal(left.array()->begin(), left.array()->end(), right.array()->begin(),
                        right.array()->end(), same);
    case PreferenceObject::Kind::dictionary:
      return left.dictionary() == right.dictionary() ||
             std::equal(left.dictionary()->begin(), left.dictionary()->end(),
                        right.dictionary()->begin(), right.dictionary()->end(),
                        [&](const auto& a, const auto& b) {
                          return a.first == b.first && same(a.second, b.second);
                        });
  }
  return false;
}

}  // namespace

bool PreferenceObject::operator==(const PreferenceObject& other) const noexcept {
  return kind() == other.kind() &&
         equalContents(*this, other, [](const auto& a, const auto& b) { return a == b; });
}

bool PreferenceObject::isIdenticalTo(const PreferenceObject& other) const noexcept {
  if (kind() != other.kind()) return false;
  if (kind() == Kind::number) return identicalNumbers(*number(), *other.number());
  if (kind() == Kind::date) {
    return identicalBits(date()->timeIntervalSinceReferenceDate(),
                         other.date()->timeIntervalSinceReferenceDate());
  }
  return equalContents(*this, other,
                       [](const auto& a, const auto& b) { return a.isIdenticalTo(b); });
}

std::size_t PreferenceObject::hash() const noexcept {
  switch (kind()) {
    case Kind::number:
      return number()->hash();
    case Kind::string:
      return std::hash<std::string>{}(*string());
    case Kind::date:
      return std::hash<Date>{}(*date());
    case Kind::data:
      return std::hash<Data>{}(*data());
    case Kind::array: {
      std::size_t seed = array()->size();
      for (const auto& element : *array()) seed = combined(seed, element.hash());
      return seed;
    }
    case Kind::dictionary: {
      std::size_t seed = dictionary()->size();
      for (const auto& [key, element] : *dictionary()) {
        seed = combined(combined(seed, std::hash<std::string>{}(key)), element.hash());
      }
      return seed;
    }
  }
  return 0;
}

}  // namespace tessarine
