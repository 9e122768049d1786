#include "tessarine/codable/CodableDictionary.hpp"

#include "tessarine/codable/CodableAnyHashable.hpp"

namespace tessarine {

void CodableDictionary::encode(Encoder& encoder) const {
  auto container = encoder.container();
  for (const auto& [key, value] : dictionary_) container.encode(CodableAnyHashable(value), key);
}

CodableDictionary CodableDictionary::decode(Decoder& decoder) {
  auto container = decoder.container();
  Dictionary dictionary;
  for (const CodingKeys& key : container.allKeys<CodingKeys>()) {
    dictionary.insert_or_assign(key.stringValue(),
                                container.decode<CodableAnyHashable>(key).value());
  }
  return CodableDictionary(std::move(dictionary));
}

}  // namespace tessarine
