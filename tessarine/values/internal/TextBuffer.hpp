#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

namespace tessarine::internal {

/// Grows like a text, without writing its bytes twice. `room` gives where to write; `advance` says
/// how far that went.
class TextBuffer {
 public:
  /// At least `count` bytes to write to, until the next call.
  char* room(std::size_t count) {
    if (capacity_ - size_ < count) grow(count);
    return bytes_.get() + size_;
  }
  void advanceTo(const char* end) noexcept { size_ = static_cast<std::size_t>(end - bytes_.get()); }

  void append(char c) {
    *room(1) = c;
    ++size_;
  }
  void append(std::string_view text) {
    if (text.empty()) return;
    std::memcpy(room(text.size()), text.data(), text.size());
    size_ += text.size();
  }
  void append(std::size_t count, char c) {
    if (count == 0) return;
    std::memset(room(count), c, count);
    size_ += count;
  }

  std::string_view text() const noexcept { return {bytes_.get(), size_}; }
  std::size_t size() const noexcept { return size_; }
  std::size_t capacity() const noexcept { return capacity_; }
  /// Back to what it was at a smaller size.
  void truncate(std::size_t size) noexcept { size_ = size; }
  void clear() noexcept { size_ = 0; }

 private:
  void grow(std::size_t count) {
    const std::size_t capacity = std::max(capacity_ * 2, size_ + count + 256);
    // Large blocks are moved by the kernel's tables, not by copying.
    void* const bytes = std::realloc(bytes_.get(), capacity);
    if (bytes == nullptr) throw std::bad_alloc();
    (void)bytes_.release();
    bytes_.reset(static_cast<char*>(bytes));
    capacity_ = capacity;
  }

  struct Free {
    void operator()(char* bytes) const noexcept { std::free(bytes); }
  };

  std::unique_ptr<char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace tessarine::internal
