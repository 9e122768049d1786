#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/IdentifierIndex.hpp"
#include "tessarine/differencing/LevelMatching.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine::differencing_detail {

/// The rows of all sections, or the sections themselves, as one list of lists.
template <class Element>
struct ListOfLists {
  std::vector<std::span<const Element>> lists;
  std::vector<std::int32_t> starts = {0};

  std::int32_t count() const { return starts.back(); }
  void add(std::span<const Element> list) {
    if (list.size() >
        static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - count())) {
      fatal("a snapshot of more than 2^31 - 1 rows cannot be compared");
    }
    lists.push_back(list);
    starts.push_back(count() + static_cast<std::int32_t>(list.size()));
  }
};

/// Reads a list of lists at any position, best at those near the last.
template <class Element>
class ListReader {
 public:
  explicit ListReader(const ListOfLists<Element>& list) : list_(list) {}

  const Element& operator[](std::int32_t position) {
    if (position < first_ || position >= last_) enter(position);
    return elements_[position - first_];
  }

 private:
  // Apart, so that a read in the same list is short enough to stand where it is asked for.
  [[gnu::noinline]] void enter(std::int32_t position) {
    const auto& starts = list_.starts;
    // The next list that has elements, or any.
    auto next = std::find_if(at_, std::min(at_ + 3, starts.end()),
                             [&](std::int32_t start) { return start > position; });
    if (position < first_ || next == starts.end() || *next <= position) {
      next = std::upper_bound(starts.begin(), starts.end(), position);
    }
    at_ = next;
    first_ = *std::prev(next);
    last_ = *next;
    elements_ = list_.lists[static_cast<std::size_t>(next - starts.begin()) - 1].data();
  }

  const ListOfLists<Element>& list_;
  std::vector<std::int32_t>::const_iterator at_ = list_.starts.begin();  // the end of the last list
  std::int32_t first_ = 0;
  std::int32_t last_ = 0;
  const Element* elements_ = nullptr;
};

/// Two lists that have much in common, read from the front: where they go on alike.
template <class Element>
class Alignment {
 public:
  struct Place {
    std::size_t old;
    std::size_t now;
  };

  Alignment(std::span<const Element> old, std::span<const Element> now) : old_(old), now_(now) {}

  bool isAlike(Place at) const {
    return at.old < old_.size() && at.now < now_.size() &&
           old_[at.old].identifier() == now_[at.now].identifier();
  }
  Place end() const { return {old_.size(), now_.size()}; }

  /// The nearest place behind `at`, where the lists differ, from which they are alike again. Where
  /// that is not near, the begin of their common end.
  Place next(Place at) const {
    if (at.old == old_.size() || at.now == now_.size()) return end();
    for (std::size_t skipped = 1; skipped <= mostSkipped; ++skipped) {
      for (std::size_t i = 0; i <= skipped; ++i) {
        const Place place = {at.old + i, at.now + skipped - i};
        if (isAlike(place)) return place;
      }
    }
    const std::size_t most =
        std::min(mostSkippedAtOnce, std::max(old_.size() - at.old, now_.size() - at.now));
    for (std::size_t skipped = mostSkipped + 1; skipped < most; ++skipped) {
      for (const Place place : {Place{at.old + skipped, at.now}, Place{at.old, at.now + skipped}}) {
        if (isAlike(place)) return place;
      }
    }
    Place last = end();
    while (last.old > at.old && last.now > at.now && isAlike({last.old - 1, last.now - 1})) {
      --last.old;
      --last.now;
    }
    return last;
  }

 private:
  static constexpr std::size_t mostSkipped = 8;          // of both lists together
  static constexpr std::size_t mostSkippedAtOnce = 256;  // of one of them alone

  std::span<const Element> old_;
  std::span<const Element> now_;
};

template <class Element>
class LevelMatcher {
 public:
  LevelMatcher(const ListOfLists<Element>& old, const ListOfLists<Element>& now)
      : old_(old), now_(now) {
    result_.oldCount = old.count();
    result_.newCount = now.count();
  }

  /// Looks every element up by its identifier.
  LevelMatching match() {
    leaveAll(old_left_, old_);
    leaveAll(new_left_, now_);
    matchLeft();
    return std::move(result_);
  }

  /// The same where each list is of a section. Elements that are in order in a section of both
  /// snapshots are matched by going through it. Where there are many, no table is made of them, and
  /// identifiers that repeat there go unseen.
  LevelMatching match(const LevelMatching& sections) {
    if (sections.repeats) return match();
    alignSections(sections);
    const bool is_large = std::min(old_.count(), now_.count()) >= worthwhile;
    if (!is_large) leaveAll(new_left_, now_);
    if (!old_left_.empty() || !new_left_.empty()) matchLeft();
    if (result_.repeats && !is_large) return LevelMatcher(old_, now_).match();
    return std::move(result_);
  }

 private:
  // Below this many rows a table costs less than anybody notices, and finds every repeat.
  static constexpr std::int32_t worthwhile = 1'024;

  /// An element that has to be looked up. Its hash is taken while it is in the caches.
  struct Left {
    std::int32_t at;
    std::uint32_t hash;
  };

  static std::uint32_t hashOf(const Element& element) {
    using Identifier = std::remove_cvref_t<decltype(element.identifier())>;
    return IdentifierIndex::folded(std::hash<Identifier>{}(element.identifier()));
  }

  /// Takes note of elements that have to be looked up.
  static void leave(std::vector<Left>& left, std::span<const Element> elements, std::int32_t at) {
    const std::size_t count = left.size();
    left.resize(count + elements.size());
    std::transform(elements.begin(), elements.end(),
                   left.begin() + static_cast<std::ptrdiff_t>(count), [&](const Element& element) {
                     return Left{at++, hashOf(element)};
                   });
  }
  static void leave(std::vector<Left>& left, const ListOfLists<Element>& all, std::size_t list) {
    leave(left, all.lists[list], all.starts[list]);
  }
  static void leaveAll(std::vector<Left>& left, const ListOfLists<Element>& all) {
    left.clear();
    left.reserve(static_cast<std::size_t>(all.count()));
    for (std::size_t list = 0; list < all.lists.size(); ++list) leave(left, all, list);
  }

  void alignSections(const LevelMatching& sections) {
    std::vector<bool> is_inserted(now_.lists.size(), true);
    std::size_t next = 0;
    for (const auto& run : sections.runs) {
      auto old = static_cast<std::size_t>(run.oldStart);
      auto now = static_cast<std::size_t>(run.newStart);
      for (; next < old; ++next) leave(old_left_, old_, next);
      next = old + static_cast<std::size_t>(run.length);
      for (; old < next; ++old, ++now) {
        is_inserted[now] = false;
        align(old, now);
      }
    }
    for (; next < old_.lists.size(); ++next) leave(old_left_, old_, next);
    for (std::size_t list = 0; list < is_inserted.size(); ++list) {
      if (is_inserted[list]) leave(new_left_, now_, list);
    }
    const auto precedes = [](const Left& a, const Left& b) { return a.at < b.at; };
    if (!std::is_sorted(new_left_.begin(), new_left_.end(), precedes)) {
      std::sort(new_left_.begin(), new_left_.end(), precedes);
    }
  }

  void align(std::size_t oldList, std::size_t newList) {
    const std::span<const Element> old = old_.lists[oldList];
    const std::span<const Element> now = now_.lists[newList];
    const std::int32_t old_start = old_.starts[oldList];
    const std::int32_t new_start = now_.starts[newList];
    const Alignment<Element> lists(old, now);
    typename Alignment<Element>::Place at = {0, 0};
    for (;;) {
      const std::size_t first = at.old;
      for (; lists.isAlike(at); ++at.old, ++at.now) {
        mark(old_start + static_cast<std::int32_t>(at.old), old[at.old], now[at.now]);
      }
      const auto length = static_cast<std::int32_t>(at.old - first);
      const std::int32_t old_end = old_start + static_cast<std::int32_t>(at.old);
      const std::int32_t new_end = new_start + static_cast<std::int32_t>(at.now);
      result_.add(old_end - length, new_end - length, length);
      if (at.old == old.size() && at.now == now.size()) return;
      const auto next = lists.next(at);
      leave(old_left_, old.subspan(at.old, next.old - at.old), old_end);
      leave(new_left_, now.subspan(at.now, next.now - at.now), new_end);
      at = next;
    }
  }

  void mark(std::int32_t at, const Element& old, const Element& now) {
    const ElementDifference difference = now.compare(old);
    if (difference != ElementDifference::unchanged) result_.marks.push_back({at, difference});
  }

  /// Looks the elements of `old_left_` up among those of `new_left_`.
  void matchLeft() {
    const LevelMatching in_order = std::exchange(result_, {});
    result_.oldCount = in_order.oldCount;
    result_.newCount = in_order.newCount;
    enum : unsigned char { matched, open, taken, repeated };
    std::vector<unsigned char> states(static_cast<std::size_t>(now_.count()), open);
    for (const auto& run : in_order.runs) {
      std::fill_n(states.begin() + run.newStart, run.length, matched);
    }
    const auto state = [&](std::int32_t at) -> unsigned char& {
      return states[static_cast<std::size_t>(at)];
    };
    IdentifierIndex index = indexOf(new_left_, now_, [&](std::int32_t at) {
      state(at) = repeated;
      result_.repeatedNew.push_back(at);
    });
    ListReader<Element> olds(old_);
    ListReader<Element> news(now_);
    std::vector<Left> deleted;
    std::int32_t expected = 0;
    for (std::size_t i = 0; i < old_left_.size(); ++i) {
      fetchAhead(old_left_, i, index);
      const Left& old = old_left_[i];
      const auto is_at = [&](std::int32_t place) {
        return news[place].identifier() == olds[old.at].identifier();
      };
      const auto is_free = [&](std::int32_t place) {
        return place < now_.count() && (state(place) == open || state(place) == taken);
      };
      // An element's counterpart mostly follows that of its neighbour.
      const bool follows = is_free(expected) && is_at(expected);
      const std::int32_t found = follows ? expected : index.find(old.hash, is_at);
      if (found < 0) {
        deleted.push_back(old);
        continue;
      }
      if (state(found) != open) result_.repeats = true;
      state(found) = taken;
      result_.add(old.at, found, 1);
      mark(old.at, olds[old.at], news[found]);
      expected = found + 1;
    }
    indexOf(deleted, old_, [&](std::int32_t at) { result_.repeatedOld.push_back(at); });
    const bool repeats = !result_.repeatedOld.empty() || !result_.repeatedNew.empty();
    result_.repeats = result_.repeats || repeats;
    if (result_.repeats) result_.isSame = isSame();
    if (!in_order.runs.empty()) addInOrder(in_order);
  }

  /// An index of elements by their positions. Calls `repeats(position)` for each whose identifier
  /// came before.
  template <class Repeats>
  static IdentifierIndex indexOf(const std::vector<Left>& left, const ListOfLists<Element>& all,
                                 Repeats repeats) {
    IdentifierIndex index(left.size(), static_cast<std::size_t>(all.count()));
    ListReader<Element> elements(all);
    ListReader<Element> others(all);
    for (std::size_t i = 0; i < left.size(); ++i) {
      fetchAhead(left, i, index);
      const Left& element = left[i];
      const auto is_same = [&](std::int32_t other) {
        return others[other].identifier() == elements[element.at].identifier();
      };
      if (index.findOrAdd(element.hash, element.at, is_same) != element.at) repeats(element.at);
    }
    return index;
  }

  /// The slots of a large index lie outside of the caches.
  static void fetchAhead(const std::vector<Left>& left, std::size_t i,
                         const IdentifierIndex& index) {
    constexpr std::size_t ahead = 16;
    if (i + ahead < left.size()) index.prefetch(left[i + ahead].hash);
  }

  void addInOrder(const LevelMatching& inOrder) {
    const auto own = std::exchange(result_.runs, {});
    for (const auto& run : merged(own, inOrder.runs, &LevelMatching::Run::oldStart)) {
      result_.add(run.oldStart, run.newStart, run.length);
    }
    result_.marks = merged(result_.marks, inOrder.marks, &LevelMatching::Mark::old);
  }

  template <class Item>
  static std::vector<Item> merged(const std::vector<Item>& a, const std::vector<Item>& b,
                                  std::int32_t Item::*position) {
    std::vector<Item> all;
    all.reserve(a.size() + b.size());
    std::ranges::merge(a, b, std::back_inserter(all), {}, position, position);
    return all;
  }

  /// Whether the elements are equal place by place.
  bool isSame() const {
    if (old_.count() != now_.count()) return false;
    ListReader<Element> olds(old_);
    ListReader<Element> news(now_);
    for (std::int32_t at = 0; at < old_.count(); ++at) {
      const Element& old = olds[at];
      const Element& now = news[at];
      if (!(old.identifier() == now.identifier()) ||
          now.compare(old) == ElementDifference::needsUpdate) {
        return false;
      }
    }
    return true;
  }

  const ListOfLists<Element>& old_;
  const ListOfLists<Element>& now_;
  LevelMatching result_;
  std::vector<Left> old_left_;  // what was not matched in order
  std::vector<Left> new_left_;  // the same, or all where repeats are looked for; ascending
};

}  // namespace tessarine::differencing_detail
