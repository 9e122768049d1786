// A decoded difference, whatever it holds, is applied without harm; one that fits and is valid is
// undone by its inverse, and is written as a text that reads as the same difference.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tessarine/differencing.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace tessarine;
  using Changes = CollectionChanges<std::int64_t>;
  // The first byte is the length of the collection.
  if (size == 0) return 0;
  std::vector<std::int64_t> old(data[0] % 16);
  for (std::size_t i = 0; i < old.size(); ++i) old[i] = static_cast<std::int64_t>(i);
  Changes decoded;
  try {
    decoded = JSONDecoder().decode<Changes>(
        std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
  } catch (const DecodingError&) {
    return 0;
  }
  const auto now = applying(old, decoded);
  if (JSONDecoder().decode<Changes>(JSONEncoder().text(decoded)) != decoded) std::abort();
  (void)decoded.inferringMoves();
  const auto valid = Changes::fromChanges(decoded);
  if (!now || !valid || *valid != decoded) return 0;
  const auto found = changes(*now, old);
  if (applying(old, found) != now || found.size() > decoded.size()) std::abort();
  if (applying(*now, found.inverse()) != old) std::abort();
  return 0;
}
