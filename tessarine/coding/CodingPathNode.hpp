#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

#include "tessarine/coding/CodingKey.hpp"

namespace tessarine {

/// A step of a path while a value is walked, chained to the step before, mostly on the stack of the
/// walk: it costs a few stores, and a `CodingPath` is made of the chain only when somebody asks.
/// For those who write back-ends.
struct CodingPathNode {
  const CodingPathNode* parent = nullptr;
  std::string_view key = {};
  std::optional<std::int64_t> index = std::nullopt;  // of an element, whose key may be empty
};

/// `nullptr` is the root.
inline CodingPath codingPath(const CodingPathNode* node) {
  CodingPath path;
  for (; node != nullptr; node = node->parent) {
    if (node->index && node->key.empty()) {
      path.emplace_back(*node->index);
    } else {
      path.emplace_back(node->key, node->index);
    }
  }
  std::reverse(path.begin(), path.end());
  return path;
}

}  // namespace tessarine
