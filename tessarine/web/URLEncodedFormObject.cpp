#include "tessarine/web/URLEncodedFormObject.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

#include "tessarine/web/URLEncodedFormComponent.hpp"

namespace tessarine {
namespace {

/// Up to this many pairs an object is searched from front to back.
constexpr std::size_t smallObject = 16;
/// Pairs behind the first so many lie in blocks of that size, which never move.
constexpr std::size_t blockSize = 1024;
constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

std::uint32_t hashOf(std::string_view key) noexcept {
  return static_cast<std::uint32_t>(std::hash<std::string_view>{}(key));
}

/// Which pairs have a key of some hash: open addressing, at most half of it taken.
class KeyTable {
 public:
  /// The first index with that hash that `isIt` says is the one, or `nowhere`.
  template <class IsIt>
  std::size_t find(std::uint32_t hash, IsIt isIt) const noexcept {
    if (slots_.empty()) return nowhere;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = hash & mask; slots_[at].number != 0; at = (at + 1) & mask) {
      if (slots_[at].hash == hash && isIt(slots_[at].number - 1)) return slots_[at].number - 1;
    }
    return nowhere;
  }

  /// Room for one more.
  void makeRoom() {
    if (2 * (count_ + 1) <= slots_.size()) return;
    std::vector<Slot> larger(std::max(4 * slots_.size(), 4 * smallObject));
    larger.swap(slots_);
    for (const Slot& slot : larger) {
      if (slot.number != 0) put(slot);
    }
  }

  /// The key of the next index. There is room.
  void add(std::uint32_t hash) noexcept { put({static_cast<std::uint32_t>(++count_), hash}); }

 private:
  /// An index plus one, 0 in an empty slot, and its key's hash, which spares most looks at keys
  /// that lie elsewhere.
  struct Slot {
    std::uint32_t number;
    std::uint32_t hash;
  };

  void put(Slot slot) noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = slot.hash & mask;
    while (slots_[at].number != 0) at = (at + 1) & mask;
    slots_[at] = slot;
  }

  std::vector<Slot> slots_;
  std::size_t count_ = 0;
};

}  // namespace

struct URLEncodedFormObject::Large {
  KeyTable table;
  std::vector<std::vector<Pair>> blocks;  // full but the last
};

URLEncodedFormObject::URLEncodedFormObject() noexcept = default;
URLEncodedFormObject::URLEncodedFormObject(const URLEncodedFormObject& other)
    : pairs_(other.pairs_),
      large_(other.large_ ? std::make_unique<Large>(*other.large_) : nullptr) {}
URLEncodedFormObject::URLEncodedFormObject(URLEncodedFormObject&&) noexcept = default;
URLEncodedFormObject& URLEncodedFormObject::operator=(const URLEncodedFormObject& other) {
  return *this = URLEncodedFormObject(other);
}
URLEncodedFormObject& URLEncodedFormObject::operator=(URLEncodedFormObject&&) noexcept = default;
URLEncodedFormObject::~URLEncodedFormObject() = default;

URLEncodedFormObject::Iterator::Iterator(const URLEncodedFormObject& object) noexcept {
  if (object.pairs_.empty()) return;
  pair_ = object.pairs_.data();
  blockEnd_ = pair_ + object.pairs_.size();
  if (!object.large_) return;
  nextBlock_ = object.large_->blocks.data();
  lastBlock_ = nextBlock_ + object.large_->blocks.size();
}

URLEncodedFormObject::Iterator& URLEncodedFormObject::Iterator::operator++() noexcept {
  if (++pair_ == blockEnd_) enterNextBlock();
  return *this;
}

void URLEncodedFormObject::Iterator::enterNextBlock() noexcept {
  const bool isLast = nextBlock_ == lastBlock_ || nextBlock_->empty();
  pair_ = isLast ? nullptr : nextBlock_->data();
  if (isLast) return;
  blockEnd_ = pair_ + nextBlock_->size();
  ++nextBlock_;
}

std::size_t URLEncodedFormObject::size() const noexcept {
  if (!large_ || large_->blocks.empty()) return pairs_.size();
  return large_->blocks.size() * blockSize + large_->blocks.back().size();
}

const URLEncodedFormObject::Pair& URLEncodedFormObject::pairAt(std::size_t index) const noexcept {
  if (index < blockSize) return pairs_[index];
  return large_->blocks[index / blockSize - 1][index % blockSize];
}
URLEncodedFormObject::Pair& URLEncodedFormObject::pairAt(std::size_t index) noexcept {
  if (index < blockSize) return pairs_[index];
  return large_->blocks[index / blockSize - 1][index % blockSize];
}

std::size_t URLEncodedFormObject::indexOf(std::string_view key, std::uint32_t hash) const noexcept {
  if (large_) {
    return large_->table.find(hash, [&](std::size_t index) { return pairAt(index).first == key; });
  }
  const auto found = std::find_if(pairs_.begin(), pairs_.end(),
                                  [&](const Pair& pair) { return pair.first == key; });
  return found == pairs_.end() ? nowhere : static_cast<std::size_t>(found - pairs_.begin());
}

const URLEncodedFormComponent* URLEncodedFormObject::find(std::string_view key) const noexcept {
  const std::size_t index = indexOf(key, large_ ? hashOf(key) : 0);
  return index == nowhere ? nullptr : &pairAt(index).second;
}

URLEncodedFormComponent& URLEncodedFormObject::valueFor(std::string_view key) {
  const std::uint32_t hash = pairs_.size() < smallObject ? 0 : hashOf(key);
  const std::size_t index = indexOf(key, hash);
  if (index != nowhere) return pairAt(index).second;
  makeRoom();
  std::vector<Pair>& block = lastBlock();
  block.emplace_back(key, URLEncodedFormComponent());
  if (large_) large_->table.add(hash);
  return block.back().second;
}

std::vector<URLEncodedFormObject::Pair>& URLEncodedFormObject::lastBlock() noexcept {
  return large_ && !large_->blocks.empty() ? large_->blocks.back() : pairs_;
}

/// For one more pair.
void URLEncodedFormObject::makeRoom() {
  if (pairs_.size() < smallObject) return;
  if (!large_) {
    auto large = std::make_unique<Large>();
    for (const Pair& pair : pairs_) {
      large->table.makeRoom();
      large->table.add(hashOf(pair.first));
    }
    large_ = std::move(large);
  }
  large_->table.makeRoom();
  // Asked of the block: an empty one may have stayed when memory ran out for its first pair.
  if (lastBlock().size() == blockSize) large_->blocks.emplace_back().reserve(blockSize);
}

bool URLEncodedFormObject::operator==(const URLEncodedFormObject& other) const {
  return std::equal(begin(), end(), other.begin(), other.end());
}

}  // namespace tessarine
