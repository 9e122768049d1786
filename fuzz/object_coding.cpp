// What decodes encodes to bytes that decode to the same object.
#include <cstdlib>
#include <string>

#include "tessarine/system/store/internal/ObjectCoding.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace tessarine::detail;
  const auto object = decodeObject({reinterpret_cast<const char*>(data), size});
  if (!object) return 0;
  std::string bytes;
  if (!encodeObject(*object, bytes)) std::abort();
  const auto again = decodeObject(bytes);
  if (!again || !again->isIdenticalTo(*object)) std::abort();
  return 0;
}
