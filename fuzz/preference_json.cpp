// What is read is written as a text that reads as the same object.
#include <cstdlib>

#include "tools/tessarine/PreferenceJson.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  using namespace tessarine;
  using namespace tessarine::tool;
  PreferenceObject object;
  try {
    object = objectFromJson({reinterpret_cast<const char*>(data), size});
  } catch (const JsonError&) {
    return 0;
  }
  if (!objectFromJson(jsonText(object)).isIdenticalTo(object)) std::abort();
  return 0;
}
