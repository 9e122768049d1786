#include "tessarine/differencing/internal/PieceLists.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace tessarine {

PieceLists::PieceLists(std::span<const std::int32_t> starts, bool locates)
    : starts_(starts.begin(), starts.end()), locates_(locates) {
  lists_.reserve(starts.size());
  for (std::size_t i = 0; i + 1 < starts.size(); ++i) {
    lists_.push_back({true, starts[i], starts[i + 1] - starts[i], none});
  }
}

PieceLists::List PieceLists::addList() {
  lists_.push_back({false, 0, 0, none});
  return listCount() - 1;
}

void PieceLists::insert(List list, std::int32_t rank, Item item) {
  materialize(list);
  Node tail = none;
  if (rank > 0) {
    const Inside last = find(list, rank - 1);
    if (extendPiece(last, item)) return;
    tail = cut(last);
  }
  insertPieces(list, rank, make(item, 1), tail);
}

/// Puts one or two pieces where a piece begins or the list ends.
void PieceLists::insertPieces(List list, std::int32_t rank, Node first, Node second) {
  const auto [left, right] = split(head(list).root, rank);
  setRoot(list, merge(merge(left, first), merge(second, right)));
}

/// Takes out what is behind `last` in its piece; none where the piece ends.
PieceLists::Node PieceLists::cut(Inside last) {
  const auto [n, offset] = last;
  const std::int32_t length = node(n).length - offset - 1;
  if (length == 0) return none;
  const Item start = node(n).start + offset + 1;
  shorten(n, length);
  return make(start, length);
}

/// Takes the last `length` items out of a piece, but not all.
void PieceLists::shorten(Node n, std::int32_t length) {
  node(n).length -= length;
  for (; n >= 0; n = node(n).parent) node(n).total -= length;
}

/// The piece that `rank` lies in, and how far in; none at the end of the list.
PieceLists::Inside PieceLists::find(List list, std::int32_t rank) const {
  Node n = head(list).root;
  while (n != none) {
    const std::int32_t before = total(node(n).left);
    if (rank < before) {
      n = node(n).left;
    } else if (rank < before + node(n).length) {
      return {n, rank - before};
    } else {
      rank -= before + node(n).length;
      n = node(n).right;
    }
  }
  return {none, 0};
}

/// Lets the piece take `item` up, if it ends there and `item` comes next in number.
bool PieceLists::extendPiece(Inside last, Item item) {
  auto [n, offset] = last;
  if (offset + 1 != node(n).length || node(n).start + node(n).length != item) return false;
  ++node(n).length;
  for (; n >= 0; n = node(n).parent) ++node(n).total;
  return true;
}

PieceLists::Item PieceLists::erase(List list, std::int32_t rank) {
  materialize(list);
  const Inside inside = find(list, rank);
  const Node n = inside.piece;
  const Item item = node(n).start + inside.offset;
  const Node tail = cut(inside);
  if (inside.offset > 0) {
    shorten(n, 1);
    if (tail != none) insertPieces(list, rank, tail, none);
    return item;
  }
  const auto [left, right] = split(head(list).root, rank);
  const auto [one, rest] = split(right, 1);
  free(one);
  setRoot(list, merge(left, merge(tail, rest)));
  return item;
}

PieceLists::Item PieceLists::at(List list, std::int32_t rank) const {
  if (head(list).isPlain) return head(list).start + rank;
  const auto [n, offset] = find(list, rank);
  return node(n).start + offset;
}

std::optional<PieceLists::Place> PieceLists::locate(Item item) const {
  if (!starts_.empty() && item < starts_.back()) {
    const auto list = static_cast<List>(std::upper_bound(starts_.begin(), starts_.end(), item) -
                                        starts_.begin() - 1);
    if (head(list).isPlain) return Place{list, item - head(list).start};
  }
  const PieceStarts::Entry* const piece = node_of_start_.lastUpTo(item);
  if (!piece) return std::nullopt;
  Node n = piece->second;
  if (item >= node(n).start + node(n).length) return std::nullopt;
  std::int32_t rank = item - node(n).start + total(node(n).left);
  while (node(n).parent >= 0) {
    const Node parent = node(n).parent;
    if (node(parent).right == n) rank += total(node(parent).left) + node(parent).length;
    n = parent;
  }
  return Place{~node(n).parent, rank};
}

void PieceLists::append(List target, List source) {
  materialize(source);
  materialize(target);
  const Node added = head(source).root;
  setRoot(source, none);
  setRoot(target, merge(head(target).root, added));
}

PieceLists::Node PieceLists::make(Item start, std::int32_t length) {
  random_ ^= random_ << 13;
  random_ ^= random_ >> 17;
  random_ ^= random_ << 5;
  Node n = none;
  if (unused_.empty()) {
    n = static_cast<Node>(nodes_.size());
    nodes_.emplace_back();
  } else {
    n = unused_.back();
    unused_.pop_back();
  }
  node(n) = {none, none, none, random_, start, length, length};
  if (locates_) node_of_start_.add({start, n});
  return n;
}

void PieceLists::free(Node n) {
  if (locates_) node_of_start_.remove(node(n).start);
  unused_.push_back(n);
}

void PieceLists::update(Node n) {
  Treap& own = node(n);
  own.total = own.length + total(own.left) + total(own.right);
  if (own.left != none) node(own.left).parent = n;
  if (own.right != none) node(own.right).parent = n;
}

PieceLists::Node PieceLists::merge(Node a, Node b) {
  if (a == none) return b;
  if (b == none) return a;
  if (node(a).priority >= node(b).priority) {
    const Node right = merge(node(a).right, b);
    node(a).right = right;
    update(a);
    return a;
  }
  const Node left = merge(a, node(b).left);
  node(b).left = left;
  update(b);
  return b;
}

/// The first `rank` items of a subtree and the rest; a piece begins at `rank`.
PieceLists::Halves PieceLists::split(Node n, std::int32_t rank) {
  if (n == none) return {none, none};
  const std::int32_t before = total(node(n).left);
  if (rank <= before) {
    const auto [left, right] = split(node(n).left, rank);
    node(n).left = right;
    update(n);
    return {left, n};
  }
  const auto [left, right] = split(node(n).right, rank - before - node(n).length);
  node(n).right = left;
  update(n);
  return {n, right};
}

void PieceLists::materialize(List list) {
  Head& own = head(list);
  if (!own.isPlain) return;
  own.isPlain = false;
  if (own.length != 0) setRoot(list, make(own.start, own.length));
}

void PieceLists::setRoot(List list, Node root) {
  head(list).root = root;
  if (root != none) node(root).parent = ~list;
}

}  // namespace tessarine
