// A loosely typed value that was read is written as a text that reads as the same value; from then
// on the text stays as it is.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "tessarine/codable/CodableAnyHashable.hpp"
#include "tessarine/codable/CodableDictionary.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"

namespace {

using namespace tessarine;

/// Numbers count as the same when they are as doubles: one that turned out whole becomes an
/// integer, of which a double has the leading 17 digits.
bool isSame(const AnyHashable& a, const AnyHashable& b) {
  const auto elements = a.cast<AnyHashable::Array>();
  const auto otherElements = b.cast<AnyHashable::Array>();
  if (elements && otherElements) {
    return std::equal(elements->begin(), elements->end(), otherElements->begin(),
                      otherElements->end(), isSame);
  }
  const auto pairs = a.cast<AnyHashable::Dictionary>();
  const auto otherPairs = b.cast<AnyHashable::Dictionary>();
  if (pairs && otherPairs) {
    return std::equal(pairs->begin(), pairs->end(), otherPairs->begin(), otherPairs->end(),
                      [](const auto& x, const auto& y) {
                        return x.first == y.first && isSame(x.second, y.second);
                      });
  }
  const auto number = a.cast<NSNumber>();
  const auto otherNumber = b.cast<NSNumber>();
  if (number && otherNumber) return number->doubleValue() == otherNumber->doubleValue();
  return a == b;
}

const AnyHashable& valueOf(const CodableAnyHashable& value) { return value.value(); }
AnyHashable valueOf(const CodableDictionary& value) { return value.dictionary(); }

template <class T>
void check(std::string_view text) {
  std::optional<T> value;
  try {
    value = JSONDecoder().decode<T>(text);
  } catch (const DecodingError&) {
    return;
  }
  const T again = JSONDecoder().decode<T>(JSONEncoder().text(*value));
  if (!isSame(valueOf(again), valueOf(*value))) std::abort();
  const std::string json = JSONEncoder().text(again);
  if (JSONEncoder().text(JSONDecoder().decode<T>(json)) != json) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check<CodableAnyHashable>(text);
  check<CodableDictionary>(text);
  return 0;
}
