#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "tessarine/codable/Data+Helpers.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace tessarine {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(int error, const std::string& path) {
  throw std::system_error(error, std::generic_category(), "cannot write " + path);
}

bool isFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

/// A new file beside the one to be replaced, removed unless it took its place.
class ReplacingFile {
 public:
  explicit ReplacingFile(const fs::path& target)
      : target_(target.string()), path_(target_ + ".XXXXXX"), file_(::mkstemp(path_.data())) {
    if (file_ < 0) fail(errno, target_);
  }
  ReplacingFile(const ReplacingFile&) = delete;
  ReplacingFile& operator=(const ReplacingFile&) = delete;
  ~ReplacingFile() {
    if (file_ >= 0) ::close(file_);
    if (!isInPlace_) ::unlink(path_.c_str());
  }

  void write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t written = ::write(file_, bytes.data(), bytes.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail(errno, target_);
      bytes.remove_prefix(static_cast<std::size_t>(written));
    }
  }
  void replace() {
    if (::close(std::exchange(file_, -1)) != 0 ||
        std::rename(path_.c_str(), target_.c_str()) != 0) {
      fail(errno, target_);
    }
    isInPlace_ = true;
  }

 private:
  std::string target_;
  std::string path_;
  int file_;
  bool isInPlace_ = false;
};

}  // namespace

std::vector<std::uint8_t> bytes(const Data& data) { return data.bytes(); }

std::optional<std::string> string(const Data& data, StringEncoding encoding) {
  return stringFromBytes(data.text(), encoding);
}

AnyHashable jsonObject(const Data& data, JSONSerialization::ReadingOptions options) {
  return JSONSerialization::jsonObject(data, options);
}

fs::path write(const Data& data, std::string_view name) {
  if (!isFileName(name)) fail(EINVAL, std::string(name));
  fs::path path = fs::temp_directory_path() / name;
  ReplacingFile file(path);
  file.write(data.text());
  file.replace();
  return path;
}

}  // namespace tessarine
