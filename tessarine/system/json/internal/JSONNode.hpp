#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tessarine/coding/CodingPathNode.hpp"
#include "tessarine/coding/Encoder.hpp"
#include "tessarine/system/json/JSONEncoder.hpp"
#include "tessarine/system/json/internal/JSONValueWriter.hpp"

namespace tessarine::internal {

/// What a type's own `encode` has written so far at one place. Finished values are kept as text.
struct JSONNode {
  enum class Kind : std::uint8_t { nothing, text, array, object };

  Kind kind = Kind::nothing;
  std::size_t depth = 0;                 // lists around it
  const CodingPathNode* path = nullptr;  // to it, from the root of the document
  CodingPathNode step;                   // the last of the path, but for a tree's root
  std::string key;                       // of a member, as it is written
  std::string ownKey;                    // as the host says it
  std::string text;                      // of a finished value
  std::vector<JSONNode*> children;
  std::unordered_map<std::string_view, JSONNode*> childrenByKey;  // of a large object, by own key
};

/// All nodes of one `encode` written by hand.
class JSONNodeTree {
 public:
  JSONNodeTree(const JSONEncoderOptions& options, const CodingPathNode* path, std::size_t depth);

  JSONNode& root() noexcept { return nodes_.front(); }
  const JSONEncoderOptions& options() const noexcept { return options_; }

  /// The member of an object under a key: the one there is, or a new one behind the others.
  JSONNode& member(JSONNode& object, std::string_view key);
  JSONNode& newElement(JSONNode& array);

  /// Makes the node that list, in place of what it held, unless it is one already.
  static void makeList(JSONNode& node, JSONNode::Kind kind);
  /// Makes the node a finished value, in place of what it held.
  void assign(JSONNode& node, EncodableValue value) const;
  /// The same of a node that is new in a list, from which it goes when that fails.
  void assignNew(JSONNode& node, EncodableValue value, JSONNode& list) const;
  static void assignNull(JSONNode& node);

  /// An encoder that writes to a node, valid as long as the tree.
  std::unique_ptr<Encoder> encoder(JSONNode& node);

  /// Writes what stands at a node; nothing at all is an empty object.
  static void write(const JSONNode& node, JSONValueWriter& writer, TextBuffer& out);

 private:
  JSONNode& newNode(JSONNode& list);

  const JSONEncoderOptions& options_;
  std::deque<JSONNode> nodes_;  // whose addresses stay
};

}  // namespace tessarine::internal
