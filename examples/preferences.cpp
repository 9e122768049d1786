#include "tessarine/preferences.hpp"

#include <cstdio>
#include <filesystem>

int main() {
  using namespace tessarine;
  UserDefaults::setDirectory(std::filesystem::temp_directory_path() / "tessarine-example");
  UserDefault<int> fontSize{"fontSize", {.defaultValue = 12, .cacheValues = true}};
  const auto observation = UserDefaults::standard()->observe("fontSize", [](const auto& change) {
    std::printf("changed to %d\n", dynamicCast<int>(change.at(NSKeyValueChangeNewKey)).value_or(0));
  });
  fontSize.setWrappedValue(fontSize.wrappedValue() + 1);
  UserDefaults::standard()->set("9", "fontSize");  // as an older program stored it
  std::printf("read as %d\n", fontSize.wrappedValue());
}
