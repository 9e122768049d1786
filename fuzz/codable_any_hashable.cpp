// A loosely typed value that was read is written as a text that reads as the same value.
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

template <class T>
void check(std::string_view text) {
  std::optional<T> value;
  try {
    value = JSONDecoder().decode<T>(text);
  } catch (const DecodingError&) {
    return;
  }
  const std::string json = JSONEncoder().text(*value);
  const T again = JSONDecoder().decode<T>(json);
  if (!(again == *value) || JSONEncoder().text(again) != json) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check<CodableAnyHashable>(text);
  check<CodableDictionary>(text);
  return 0;
}
