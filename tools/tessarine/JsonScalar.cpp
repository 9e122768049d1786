#include "JsonScalar.hpp"

#include <cstdint>
#include <string>

#include "tessarine/system/json/JSONEncoder.hpp"

namespace tessarine::tool {

JsonScalar JsonScalar::decode(Decoder& decoder) {
  auto container = decoder.singleValueContainer();
  JsonScalar scalar;
  if (container.decodeNil()) return scalar;
  const auto isRead = [&]<class T>(T) {
    auto value = container.tryDecode<T>();
    if (!value) return false;
    scalar.value_ = *std::move(value);
    return true;
  };
  if (isRead(bool()) || isRead(std::int64_t()) || isRead(std::uint64_t()) || isRead(double()) ||
      isRead(std::string())) {
    return scalar;
  }
  throw container.dataCorrupted("a text, a number, a boolean or null is expected");
}

std::string JsonScalar::text() const {
  const auto* const own = std::get_if<std::string>(&value_);
  return own != nullptr ? *own : JSONEncoder().text(*this);
}

}  // namespace tessarine::tool
