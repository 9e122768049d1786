#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/differencing/textForm.hpp"
#include "tessarine/values/Hashable.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// A map whose shape is fixed when it is made: it never grows and never rehashes, and each bucket
/// keeps its entries in the order of their arrival. For showing and for keeping a known order;
/// where only speed counts, take `std::unordered_map`. A keyed operation costs one hash and the
/// scan of one chain.
///
/// A value: a copy costs one reference count and becomes its own when either side is written.
/// Shared values may be read from any thread; a writer needs its copy to itself.
///
///     HashTable<std::string, int> ages(64);
///     ages["Ada"] = 36;
///     std::optional<int> age = ages["Ada"];
///     ages["Ada"] = std::nullopt;
template <Hashable Key, std::copyable Value>
class HashTable {
 public:
  /// `capacity` is the number of buckets; a negative one ends the process. With 0 every keyed
  /// operation ends the process.
  explicit HashTable(std::int64_t capacity) : shape_(new Shape(sizeOf(capacity))) {}

  std::int64_t count() const noexcept { return count_; }
  bool isEmpty() const noexcept { return count_ == 0; }

  /// The value of `key`; absent when there is none.
  std::optional<Value> value(const Key& key) const {
    const Bucket& bucket = shape_->buckets[index(key)];
    const auto found = find(bucket, key);
    if (found == bucket.size()) return std::nullopt;
    return bucket[found].second;
  }

  /// Sets the value of `key`, in the place of the one that it had; a new key goes to the end of its
  /// chain. Gives the value that was replaced.
  std::optional<Value> updateValue(Value value, const Key& key) {
    Bucket& bucket = ownBuckets()[index(key)];
    const auto found = find(bucket, key);
    if (found == bucket.size()) {
      bucket.emplace_back(key, std::move(value));
      ++count_;
      return std::nullopt;
    }
    return std::exchange(bucket[found].second, std::move(value));
  }

  /// Removes `key` and gives its value; absent when there is none. The order behind it stays.
  std::optional<Value> removeValue(const Key& key) {
    const auto chosen = index(key);
    const auto found = find(shape_->buckets[chosen], key);
    if (found == shape_->buckets[chosen].size()) return std::nullopt;
    Bucket& bucket = ownBuckets()[chosen];
    std::optional<Value> removed(std::move(bucket[found].second));
    bucket.erase(bucket.begin() + static_cast<std::ptrdiff_t>(found));
    --count_;
    return removed;
  }

  /// Removes every entry; the number of buckets stays.
  void removeAll() {
    shape_ = Reference(new Shape(shape_->buckets.size()));
    count_ = 0;
  }

  /// What `table[key]` gives when the table may be written: reads as the value or absent, takes a
  /// value or absent. Lives no longer than the expression.
  class Place {
   public:
    Place& operator=(std::optional<Value> value) {
      if (value) {
        table_.updateValue(*std::move(value), key_);
      } else {
        table_.removeValue(key_);
      }
      return *this;
    }
    operator std::optional<Value>() const { return table_.value(key_); }  // NOLINT

   private:
    friend HashTable;
    Place(HashTable& table, const Key& key) : table_(table), key_(key) {}
    HashTable& table_;
    const Key& key_;
  };

  std::optional<Value> operator[](const Key& key) const { return value(key); }
  Place operator[](const Key& key) { return Place(*this, key); }

  /// Every entry as `key = value`, in bucket order and then chain order, joined by ", ".
  std::string description() const {
    std::string text;
    for (const Bucket& bucket : shape_->buckets) append(text, bucket, text.empty());
    return text;
  }

  /// A line for each bucket, also an empty one: `bucket 0: a = 1, b = 2`.
  std::string debugDescription() const {
    std::string text;
    for (std::size_t i = 0; i < shape_->buckets.size(); ++i) {
      text += "bucket " + std::to_string(i) + ": ";
      append(text, shape_->buckets[i], true);
      text += '\n';
    }
    return text;
  }

  friend std::ostream& operator<<(std::ostream& out, const HashTable& table) {
    return out << table.description();
  }

 private:
  using Bucket = std::vector<std::pair<Key, Value>>;

  struct Shape {
    explicit Shape(std::size_t size) : buckets(size) {}
    explicit Shape(const std::vector<Bucket>& other) : buckets(other) {}
    std::vector<Bucket> buckets;
    std::atomic<std::size_t> owners{1};
  };

  /// A counted reference. The count is read with acquire, unlike that of `std::shared_ptr`: the
  /// sole owner writes, and has to come after what former owners read.
  class Reference {
   public:
    explicit Reference(Shape* shape) noexcept : shape_(shape) {}
    Reference(const Reference& other) noexcept : shape_(other.shape_) {
      shape_->owners.fetch_add(1, std::memory_order_relaxed);
    }
    Reference& operator=(Reference other) noexcept {
      std::swap(shape_, other.shape_);
      return *this;
    }
    ~Reference() {
      if (shape_->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete shape_;
    }
    // NOLINTBEGIN(clang-analyzer-cplusplus.NewDelete): the analyzer does not follow the count
    Shape* operator->() const noexcept { return shape_; }
    bool isSole() const noexcept { return shape_->owners.load(std::memory_order_acquire) == 1; }
    // NOLINTEND(clang-analyzer-cplusplus.NewDelete)

   private:
    Shape* shape_;
  };

  static std::size_t sizeOf(std::int64_t capacity) {
    if (capacity < 0) fatal("a HashTable cannot have a negative capacity");
    return static_cast<std::size_t>(capacity);
  }

  std::size_t index(const Key& key) const {
    const auto size = static_cast<std::int64_t>(shape_->buckets.size());
    if (size == 0) fatal("division by zero: a HashTable of capacity 0 holds no keys");
    const std::int64_t remainder = static_cast<std::int64_t>(std::hash<Key>{}(key)) % size;
    return static_cast<std::size_t>(remainder < 0 ? -remainder : remainder);
  }

  static std::size_t find(const Bucket& bucket, const Key& key) {
    std::size_t at = 0;
    while (at < bucket.size() && !(bucket[at].first == key)) ++at;
    return at;
  }

  std::vector<Bucket>& ownBuckets() {
    if (!shape_.isSole()) shape_ = Reference(new Shape(shape_->buckets));
    return shape_->buckets;
  }

  static void append(std::string& text, const Bucket& bucket, bool first) {
    for (const auto& [key, value] : bucket) {
      if (!first) text += ", ";
      first = false;
      text += textForm(key) + " = " + textForm(value);
    }
  }

  Reference shape_;
  std::int64_t count_ = 0;
};

}  // namespace tessarine
