#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "tessarine/differencing/internal/PieceStarts.hpp"

namespace tessarine {

/// Lists of numbered items that are edited by position and asked where an item is, each in the
/// logarithm of the edits made so far. Neighbours with consecutive numbers are one piece, so a list
/// costs what was changed in it and not its length; one that was never changed costs nothing.
/// An item lies in one list at most. One thread.
class PieceLists {
 public:
  using Item = std::int32_t;
  using List = std::int32_t;
  struct Piece {
    Item start;
    std::int32_t length;
  };
  struct Place {
    List list;
    std::int32_t rank;
  };

  /// List `i` begins with the items from `starts[i]` to before `starts[i + 1]`.
  /// Without `locates` an edit costs less, and `locate` may not be asked.
  explicit PieceLists(std::span<const std::int32_t> starts, bool locates = true);

  List addList();
  std::int32_t listCount() const { return static_cast<std::int32_t>(lists_.size()); }
  std::int32_t size(List list) const {
    const Head& head = this->head(list);
    return head.isPlain ? head.length : total(head.root);
  }

  /// `rank` is at most the size, and `item` in no list.
  void insert(List list, std::int32_t rank, Item item);
  /// `rank` is less than the size, here and in `at`.
  Item erase(List list, std::int32_t rank);
  Item at(List list, std::int32_t rank) const;
  /// Where an item is; absent when it is in no list.
  std::optional<Place> locate(Item item) const;
  /// Puts all of `source` behind `target`.
  void append(List target, List source);
  /// Calls `use(piece)` for the contents of a list, in order, until it says false; neighbouring
  /// pieces may be consecutive. Says whether it never did.
  template <class Use>
  bool forEachPiece(List list, Use use) const {
    if (head(list).isPlain) return use(Piece{head(list).start, head(list).length});
    for (Node n = firstIn(head(list).root); n >= 0; n = next(n)) {
      if (!use(Piece{node(n).start, node(n).length})) return false;
    }
    return true;
  }

 private:
  using Node = std::int32_t;
  static constexpr Node none = -1;
  struct Treap {
    Node left = none;
    Node right = none;
    std::int32_t parent = none;  // for a root the complement of its list
    std::uint32_t priority = 0;
    Item start = 0;
    std::int32_t length = 0;
    std::int32_t total = 0;  // items in the subtree
  };
  struct Head {
    bool isPlain = true;  // still the items that it began with
    Item start = 0;
    std::int32_t length = 0;
    Node root = none;
  };
  struct Halves {
    Node left;
    Node right;
  };

  struct Inside {
    Node piece;
    std::int32_t offset;
  };

  Treap& node(Node n) { return nodes_[static_cast<std::size_t>(n)]; }
  const Treap& node(Node n) const { return nodes_[static_cast<std::size_t>(n)]; }
  Head& head(List list) { return lists_[static_cast<std::size_t>(list)]; }
  const Head& head(List list) const { return lists_[static_cast<std::size_t>(list)]; }
  std::int32_t total(Node n) const { return n == none ? 0 : node(n).total; }
  Node firstIn(Node n) const {
    while (n != none && node(n).left != none) n = node(n).left;
    return n;
  }
  /// Negative behind the last.
  Node next(Node n) const {
    if (node(n).right != none) return firstIn(node(n).right);
    Node parent = node(n).parent;
    while (parent >= 0 && node(parent).right == n) {
      n = parent;
      parent = node(n).parent;
    }
    return parent;
  }

  Node make(Item start, std::int32_t length);
  void free(Node n);
  void update(Node n);
  Node merge(Node a, Node b);
  Halves split(Node n, std::int32_t rank);
  void materialize(List list);
  Inside find(List list, std::int32_t rank) const;
  void insertPieces(List list, std::int32_t rank, Node first, Node second);
  Node cut(Inside last);
  void shorten(Node n, std::int32_t length);
  void setRoot(List list, Node root);
  bool extendPiece(Inside last, Item item);

  std::vector<Head> lists_;
  std::vector<std::int32_t> starts_;
  std::vector<Treap> nodes_;
  std::vector<Node> unused_;
  PieceStarts node_of_start_;  // empty unless `locates_`
  bool locates_;
  std::uint32_t random_ = 2'463'534'242U;
};

}  // namespace tessarine
