#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tessarine/export.hpp"

namespace tessarine {

class URLEncodedFormComponent;

/// The pairs of an object in the order in which their keys first came. Keys are unique as long as
/// they are put in by `valueFor`; looking one up takes constant time, also in a large object. A
/// plain value.
class TESSARINE_EXPORT URLEncodedFormObject {
 public:
  using Pair = std::pair<std::string, URLEncodedFormComponent>;

  /// From pair to pair; good until one is put in.
  class TESSARINE_EXPORT Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Pair;
    using difference_type = std::ptrdiff_t;
    using pointer = const Pair*;
    using reference = const Pair&;

    Iterator() noexcept = default;
    reference operator*() const noexcept { return *pair_; }
    pointer operator->() const noexcept { return pair_; }
    Iterator& operator++() noexcept;
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const Iterator& other) const noexcept { return pair_ == other.pair_; }

   private:
    friend class URLEncodedFormObject;
    explicit Iterator(const URLEncodedFormObject& object) noexcept;
    /// To the first pair of the next block, if there is one.
    void enterNextBlock() noexcept;

    const Pair* pair_ = nullptr;  // null at the end
    const Pair* blockEnd_ = nullptr;
    const std::vector<Pair>* nextBlock_ = nullptr;
    const std::vector<Pair>* lastBlock_ = nullptr;  // behind it
  };

  URLEncodedFormObject() noexcept;
  URLEncodedFormObject(const URLEncodedFormObject& other);
  URLEncodedFormObject(URLEncodedFormObject&& other) noexcept;
  URLEncodedFormObject& operator=(const URLEncodedFormObject& other);
  URLEncodedFormObject& operator=(URLEncodedFormObject&& other) noexcept;
  ~URLEncodedFormObject();

  std::size_t size() const noexcept;
  bool empty() const noexcept { return size() == 0; }
  Iterator begin() const noexcept { return Iterator(*this); }
  // NOLINTNEXTLINE(readability-convert-member-functions-to-static): what ranges ask for
  Iterator end() const noexcept { return {}; }

  /// The value under a key, null when there is none.
  const URLEncodedFormComponent* find(std::string_view key) const noexcept;
  /// The value under a key; an empty object is put in behind the others when there is none.
  URLEncodedFormComponent& valueFor(std::string_view key);

  bool operator==(const URLEncodedFormObject& other) const;

 private:
  struct Large;

  const Pair& pairAt(std::size_t index) const noexcept;
  Pair& pairAt(std::size_t index) noexcept;
  std::size_t indexOf(std::string_view key, std::uint32_t hash) const noexcept;
  std::vector<Pair>& lastBlock() noexcept;
  void makeRoom();

  std::vector<Pair> pairs_;       // the first of them
  std::unique_ptr<Large> large_;  // null while there are few
};

}  // namespace tessarine
