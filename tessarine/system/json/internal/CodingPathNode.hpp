#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "tessarine/coding/CodingKey.hpp"

namespace tessarine::internal {

/// A step of a path while a value is walked, chained to the step before on the stack of the walk:
/// it costs two stores, and a `CodingPath` is made of the chain only when somebody asks.
struct CodingPathNode {
  const CodingPathNode* parent = nullptr;
  std::string_view key = {};
  std::int64_t index = -1;  // at least 0 for an element, whose key is empty
};

/// `nullptr` is the root.
inline CodingPath codingPath(const CodingPathNode* node) {
  CodingPath path;
  for (; node != nullptr; node = node->parent) {
    path.push_back(node->index >= 0 ? AnyCodingKey(node->index) : AnyCodingKey(node->key));
  }
  std::reverse(path.begin(), path.end());
  return path;
}

}  // namespace tessarine::internal
