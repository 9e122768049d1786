#include "tessarine/system/json/internal/JSONNode.hpp"

#include <algorithm>
#include <utility>

#include "tessarine/system/json/internal/JSONKeys.hpp"

namespace tessarine::internal {
namespace {

using Kind = JSONNode::Kind;

/// Below this an object is searched from front to back.
constexpr std::size_t largeObject = 16;

/// What all four kinds of handle have in common.
class NodeHandle {
 public:
  NodeHandle(JSONNodeTree& tree, JSONNode& node) noexcept : tree_(tree), node_(node) {}

 protected:
  CodingPath path() const { return tessarine::codingPath(node_.path); }
  KeyedEncodingContainer keyed(JSONNode& node) const;
  UnkeyedEncodingContainer unkeyed(JSONNode& node) const;

  JSONNodeTree& tree_;
  JSONNode& node_;
};

class KeyedBackend final : public KeyedEncodingContainer::Backend, NodeHandle {
 public:
  using NodeHandle::NodeHandle;
  CodingPath codingPath() const override { return path(); }
  void encodeNil(CodingKeyView key) override { JSONNodeTree::assignNull(member(key)); }
  void encode(EncodableValue value, CodingKeyView key) override {
    const std::size_t count = node_.children.size();
    JSONNode& node = member(key);
    if (node_.children.size() == count) return tree_.assign(node, value);
    tree_.assignNew(node, value, node_);
  }
  KeyedEncodingContainer nestedContainer(CodingKeyView key) override { return keyed(member(key)); }
  UnkeyedEncodingContainer nestedUnkeyedContainer(CodingKeyView key) override {
    return unkeyed(member(key));
  }
  std::unique_ptr<Encoder> superEncoder() override { return superEncoder("super"); }
  std::unique_ptr<Encoder> superEncoder(CodingKeyView key) override {
    return tree_.encoder(member(key));
  }

 private:
  JSONNode& member(CodingKeyView key) { return tree_.member(node_, key.stringValue()); }
};

class UnkeyedBackend final : public UnkeyedEncodingContainer::Backend, NodeHandle {
 public:
  using NodeHandle::NodeHandle;
  CodingPath codingPath() const override { return path(); }
  std::size_t count() const override { return node_.children.size(); }
  void encodeNil() override { JSONNodeTree::assignNull(tree_.newElement(node_)); }
  void encode(EncodableValue value) override {
    tree_.assignNew(tree_.newElement(node_), value, node_);
  }
  KeyedEncodingContainer nestedContainer() override { return keyed(tree_.newElement(node_)); }
  UnkeyedEncodingContainer nestedUnkeyedContainer() override {
    return unkeyed(tree_.newElement(node_));
  }
  std::unique_ptr<Encoder> superEncoder() override {
    return tree_.encoder(tree_.newElement(node_));
  }
};

class SingleValueBackend final : public SingleValueEncodingContainer::Backend, NodeHandle {
 public:
  using NodeHandle::NodeHandle;
  CodingPath codingPath() const override { return path(); }
  void encodeNil() override {
    check({});
    JSONNodeTree::assignNull(node_);
  }
  void encode(EncodableValue value) override {
    if (node_.kind != Kind::nothing) check(value.copy());
    tree_.assign(node_, value);
  }

 private:
  void check(std::any value) const {
    if (node_.kind == Kind::nothing) return;
    throw EncodingError::invalidValue(
        std::move(value), {path(),
                           "Attempt to encode value through single value container when previously "
                           "value already encoded."});
  }
};

class NodeEncoder final : public Encoder, NodeHandle {
 public:
  using NodeHandle::NodeHandle;
  CodingPath codingPath() const override { return path(); }
  const CodingUserInfo& userInfo() const override { return tree_.options().userInfo; }
  KeyedEncodingContainer container() override {
    check(Kind::object);
    return keyed(node_);
  }
  UnkeyedEncodingContainer unkeyedContainer() override {
    check(Kind::array);
    return unkeyed(node_);
  }
  SingleValueEncodingContainer singleValueContainer() override {
    return SingleValueEncodingContainer(std::make_unique<SingleValueBackend>(tree_, node_));
  }

 private:
  void check(Kind wanted) const {
    if (node_.kind == Kind::nothing || node_.kind == wanted) return;
    throw EncodingError::invalidValue(
        {}, {path(), "Attempt to encode a value in two forms at the same place."});
  }
};

KeyedEncodingContainer NodeHandle::keyed(JSONNode& node) const {
  JSONNodeTree::makeList(node, Kind::object);
  return KeyedEncodingContainer(std::make_unique<KeyedBackend>(tree_, node));
}

UnkeyedEncodingContainer NodeHandle::unkeyed(JSONNode& node) const {
  JSONNodeTree::makeList(node, Kind::array);
  return UnkeyedEncodingContainer(std::make_unique<UnkeyedBackend>(tree_, node));
}

JSONNode* find(const JSONNode& object, std::string_view key) {
  if (object.children.size() > largeObject) {
    const auto found = object.childrenByKey.find(key);
    return found == object.childrenByKey.end() ? nullptr : found->second;
  }
  const auto found = std::find_if(object.children.begin(), object.children.end(),
                                  [&](const JSONNode* child) { return child->ownKey == key; });
  return found == object.children.end() ? nullptr : *found;
}

void clear(JSONNode& node) {
  node.text.clear();
  node.children.clear();
  node.childrenByKey.clear();
}

}  // namespace

JSONNodeTree::JSONNodeTree(const JSONEncoderOptions& options, const CodingPathNode* path,
                           std::size_t depth)
    : options_(options) {
  JSONNode& root = nodes_.emplace_back();
  root.path = path;
  root.depth = depth;
}

JSONNode& JSONNodeTree::newNode(JSONNode& list) {
  JSONNode& node = nodes_.emplace_back();
  node.depth = list.depth + 1;
  node.step.parent = list.path;
  node.path = &node.step;
  list.children.push_back(&node);
  return node;
}

JSONNode& JSONNodeTree::newElement(JSONNode& array) {
  const auto index = static_cast<std::int64_t>(array.children.size());
  JSONNode& element = newNode(array);
  element.step.index = index;
  return element;
}

JSONNode& JSONNodeTree::member(JSONNode& object, std::string_view key) {
  if (JSONNode* const present = find(object, key)) return *present;
  JSONNode& node = newNode(object);
  node.ownKey = key;
  node.step.key = node.ownKey;
  node.key = writtenJSONKey(options_.keyEncodingStrategy, key, object.path);
  if (object.children.size() == largeObject + 1) {
    for (JSONNode* child : object.children) object.childrenByKey.emplace(child->ownKey, child);
  } else if (object.children.size() > largeObject) {
    object.childrenByKey.emplace(node.ownKey, &node);
  }
  return node;
}

void JSONNodeTree::makeList(JSONNode& node, Kind kind) {
  if (node.kind == kind) return;
  clear(node);
  node.kind = kind;
}

void JSONNodeTree::assign(JSONNode& node, EncodableValue value) const {
  TextBuffer text;
  JSONValueWriter(options_, text, node.depth).write(value, node.path);
  clear(node);
  node.kind = Kind::text;
  node.text = text.text();
}

void JSONNodeTree::assignNew(JSONNode& node, EncodableValue value, JSONNode& list) const {
  try {
    assign(node, value);
  } catch (...) {  // the host may go on without it
    std::erase(list.children, &node);
    list.childrenByKey.erase(node.ownKey);
    throw;
  }
}

void JSONNodeTree::assignNull(JSONNode& node) {
  clear(node);
  node.kind = Kind::text;
  node.text = "null";
}

std::unique_ptr<Encoder> JSONNodeTree::encoder(JSONNode& node) {
  return std::make_unique<NodeEncoder>(*this, node);
}

void JSONNodeTree::write(const JSONNode& node, JSONValueWriter& writer, TextBuffer& out) {
  if (node.kind == Kind::text) return out.append(node.text);
  const bool isArray = node.kind == Kind::array;
  writer.beginList(isArray ? '[' : '{', node.path);
  std::vector<const JSONNode*> children(node.children.begin(), node.children.end());
  if (!isArray && writer.options().outputFormatting.sortedKeys) {
    std::stable_sort(children.begin(), children.end(),
                     [](const JSONNode* a, const JSONNode* b) { return a->key < b->key; });
  }
  bool isFirst = true;
  for (const JSONNode* child : children) {
    writer.separate(isFirst);
    if (!isArray) writer.writeKey(child->key);
    write(*child, writer, out);
  }
  writer.endList(isArray ? ']' : '}', isFirst);
}

}  // namespace tessarine::internal
