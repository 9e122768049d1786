#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tessarine {

/// A new folder that goes with its object.
class TemporaryFolder {
 public:
  TemporaryFolder() : TemporaryFolder(std::filesystem::temp_directory_path()) {}
  /// One where no disk is waited for, if the system has such a place.
  static TemporaryFolder inMemory() {
    const std::filesystem::path memory = "/dev/shm";
    return TemporaryFolder(
        std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path());
  }
  explicit TemporaryFolder(const std::filesystem::path& parent) {
    std::string name = parent / "tessarine-store-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string operator/(const std::string& name) const { return path_ / name; }

  /// The names in the folder that contain `part`.
  std::vector<std::string> names(const std::string& part) const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      const std::string name = entry.path().filename();
      if (name.find(part) != std::string::npos) found.push_back(name);
    }
    return found;
  }

 private:
  std::filesystem::path path_;
};

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void overwrite(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
}

}  // namespace tessarine
