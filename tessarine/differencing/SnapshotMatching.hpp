#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <ranges>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/IdentifierIndex.hpp"
#include "tessarine/differencing/textForm.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// Which elements of two lists have the same identifier: the meeting point of `difference` and
/// `tablePlan`. Positions are counted through all sections.
struct LevelMatching {
  /// Neighbours in the old list whose counterparts are neighbours in the new one, in the same
  /// order.
  struct Run {
    std::int32_t oldStart;
    std::int32_t newStart;
    std::int32_t length;
  };
  /// An old element whose counterpart is not simply unchanged.
  struct Mark {
    std::int32_t old;
    ElementDifference difference;
  };

  std::int32_t oldCount = 0;
  std::int32_t newCount = 0;
  std::vector<Run> runs;    // by old position
  std::vector<Mark> marks;  // by old position
  // Elements in no run that are neither deleted nor inserted, for an earlier one of their list has
  // the same identifier. With repeats several old elements may have one counterpart, the first.
  std::vector<std::int32_t> repeatedOld;
  std::vector<std::int32_t> repeatedNew;
  bool repeats = false;
  // Where identifiers repeat, whether the two lists are equal place by place all the same.
  bool isSame = false;

  void add(std::int32_t old, std::int32_t now, std::int32_t length) {
    if (length == 0) return;
    if (!runs.empty()) {
      Run& last = runs.back();
      if (last.oldStart + last.length == old && last.newStart + last.length == now) {
        last.length += length;
        return;
      }
    }
    runs.push_back({old, now, length});
  }
};

/// The matching of two snapshots, and where their sections begin in the count of their rows: one
/// more entry than there are sections.
struct SnapshotMatching {
  LevelMatching sections;
  LevelMatching rows;
  std::vector<std::int32_t> oldStarts;
  std::vector<std::int32_t> newStarts;
};

namespace differencing_detail {

/// The rows of all sections, or the sections themselves, as one list of lists.
template <class Element>
struct ListOfLists {
  std::vector<std::span<const Element>> lists;
  std::vector<std::int32_t> starts = {0};

  std::int32_t count() const { return starts.back(); }
  /// Calls `use(element)` for each from the position `first` to before `last`.
  template <class Use>
  void forEach(std::int32_t first, std::int32_t last, Use use) const {
    auto start = std::prev(std::upper_bound(starts.begin(), starts.end(), first));
    for (; start != std::prev(starts.end()) && *start < last; ++start) {
      const Element* const elements =
          lists[static_cast<std::size_t>(start - starts.begin())].data();
      const std::int32_t end = std::min(last, *std::next(start)) - *start;
      for (std::int32_t i = std::max(first - *start, 0); i < end; ++i) use(elements[i]);
    }
  }
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

/// Walks a list of lists from either end.
template <class Element, bool backwards>
class ListCursor {
 public:
  explicit ListCursor(const ListOfLists<Element>& list)
      : list_(list), at_(backwards ? list.lists.size() : 0) {}
  /// What is left of the list at hand; never empty before the end of all.
  std::span<const Element> rest() {
    while (rest_.empty() && at_ != (backwards ? 0 : list_.lists.size())) {
      rest_ = list_.lists[backwards ? --at_ : at_++];
    }
    return rest_;
  }
  const Element& at(std::size_t i) const { return rest_[backwards ? rest_.size() - 1 - i : i]; }
  void drop(std::size_t count) {
    rest_ = backwards ? rest_.first(rest_.size() - count) : rest_.subspan(count);
  }

 private:
  const ListOfLists<Element>& list_;
  std::size_t at_;
  std::span<const Element> rest_;
};

template <class Element>
class LevelMatcher {
 public:
  LevelMatcher(const ListOfLists<Element>& old, const ListOfLists<Element>& now)
      : old_(old), now_(now) {
    result_.oldCount = old.count();
    result_.newCount = now.count();
  }

  /// A long common start and end are matched without a look into the middle: no table is made of
  /// them, and identifiers that repeat there go unseen. With `whole` every identifier is looked at.
  LevelMatching match(bool whole) {
    std::vector<LevelMatching::Mark> tail;
    std::int32_t start = 0;
    std::int32_t end = 0;
    if (!whole && std::min(old_.count(), now_.count()) >= worthwhile) {
      start = common<false>(std::min(old_.count(), now_.count()), result_.marks);
      end = common<true>(std::min(old_.count(), now_.count()) - start, tail);
      if (start + end < worthwhile) {
        start = end = 0;
        result_.marks.clear();
        tail.clear();
      }
    }
    result_.add(0, 0, start);
    if (start + end < std::max(old_.count(), now_.count())) matchMiddle(start, end);
    result_.add(old_.count() - end, now_.count() - end, end);
    result_.marks.insert(result_.marks.end(), tail.rbegin(), tail.rend());
    return std::move(result_);
  }

 private:
  // Below this many rows a table costs less than anybody notices, and finds every repeat.
  static constexpr std::int32_t worthwhile = 1'024;

  template <bool backwards>
  std::int32_t common(std::int32_t most, std::vector<LevelMatching::Mark>& marks) const {
    ListCursor<Element, backwards> old(old_);
    ListCursor<Element, backwards> now(now_);
    std::int32_t count = 0;
    while (count < most) {
      const std::size_t length =
          std::min({old.rest().size(), now.rest().size(), static_cast<std::size_t>(most - count)});
      for (std::size_t i = 0; i < length; ++i, ++count) {
        if (!(old.at(i).identifier() == now.at(i).identifier())) return count;
        mark(backwards ? old_.count() - 1 - count : count, old.at(i), now.at(i), marks);
      }
      old.drop(length);
      now.drop(length);
    }
    return count;
  }

  static void mark(std::int32_t at, const Element& old, const Element& now,
                   std::vector<LevelMatching::Mark>& marks) {
    const ElementDifference difference = now.compare(old);
    if (difference != ElementDifference::unchanged) marks.push_back({at, difference});
  }

  static std::size_t hashOf(const Element& element) {
    using Identifier = std::remove_cvref_t<decltype(element.identifier())>;
    return std::hash<Identifier>{}(element.identifier());
  }

  void matchMiddle(std::int32_t start, std::int32_t end) {
    const std::int32_t old_end = old_.count() - end;
    const std::int32_t new_end = now_.count() - end;
    IdentifierIndex index(static_cast<std::size_t>(new_end - start),
                          static_cast<std::size_t>(new_end));
    ListReader<Element> candidates(now_);
    const auto isNew = [&](const Element& element) {
      return [&](std::int32_t other) {
        return candidates[other].identifier() == element.identifier();
      };
    };
    enum : unsigned char { open, taken, repeated };
    std::vector<unsigned char> states(static_cast<std::size_t>(new_end), open);
    ListReader<Element> news(now_);
    forEachHashed(now_, start, new_end, index, [&](std::int32_t at, std::size_t hash) {
      const auto isSame = [&](std::int32_t other) {
        return candidates[other].identifier() == news[at].identifier();
      };
      if (index.findOrAdd(hash, at, isSame) == at) return;
      states[static_cast<std::size_t>(at)] = repeated;
      result_.repeatedNew.push_back(at);
    });

    std::vector<Deleted> deleted;
    ListReader<Element> olds(old_);
    const auto isAt = [&](std::int32_t place, const Element& element) {
      return place < new_end && states[static_cast<std::size_t>(place)] != repeated &&
             news[place].identifier() == element.identifier();
    };
    std::int32_t expected = start;
    for (std::int32_t at = start; at < old_end; ++at) {
      const Element& element = olds[at];
      // An element's counterpart mostly follows that of its neighbour, or one that was inserted.
      std::int32_t found = expected;
      if (!isAt(found, element) && !isAt(++found, element)) {
        const std::size_t hash = hashOf(element);
        found = index.find(hash, isNew(element));
        if (found < 0) {
          deleted.push_back({at, hash});
          continue;
        }
      }
      unsigned char& state = states[static_cast<std::size_t>(found)];
      if (state == taken) result_.repeats = true;
      state = taken;
      result_.add(at, found, 1);
      mark(at, element, news[found], result_.marks);
      expected = found + 1;
    }
    findRepeats(deleted);
    if (result_.repeats) result_.isSame = isSame(start, old_end, new_end);
  }

  /// Calls `use(position, hash)` for each element from `first` to before `last`. An index of many
  /// lies outside of the caches: its slots are fetched some elements ahead.
  template <class Use>
  static void forEachHashed(const ListOfLists<Element>& list, std::int32_t first, std::int32_t last,
                            const IdentifierIndex& index, Use use) {
    constexpr std::int32_t ahead = 16;
    std::array<std::size_t, ahead> hashes = {};
    const auto hash = [&](std::int32_t at) -> std::size_t& {
      return hashes[static_cast<std::size_t>(at) % ahead];
    };
    std::int32_t at = first;
    list.forEach(first, last, [&](const Element& element) {
      if (at - first >= ahead) use(at - ahead, hash(at));
      hash(at) = hashOf(element);
      index.prefetch(hash(at++));
    });
    for (at = std::max(first, at - ahead); at < last; ++at) use(at, hash(at));
  }

  struct Deleted {
    std::int32_t at;
    std::size_t hash;
  };

  /// Of the deleted elements, those whose identifier has gone before.
  void findRepeats(const std::vector<Deleted>& deleted) {
    IdentifierIndex index(deleted.size(), static_cast<std::size_t>(old_.count()));
    ListReader<Element> olds(old_);
    ListReader<Element> others(old_);
    for (const auto& [at, hash] : deleted) {
      const auto isOld = [&, place = at](std::int32_t other) {
        return others[other].identifier() == olds[place].identifier();
      };
      if (index.findOrAdd(hash, at, isOld) != at) result_.repeatedOld.push_back(at);
    }
    if (!result_.repeatedOld.empty() || !result_.repeatedNew.empty()) result_.repeats = true;
  }

  /// Whether the elements from `start` to either end are equal place by place.
  bool isSame(std::int32_t start, std::int32_t oldEnd, std::int32_t newEnd) const {
    if (oldEnd != newEnd) return false;
    ListReader<Element> olds(old_);
    ListReader<Element> news(now_);
    for (std::int32_t at = start; at < oldEnd; ++at) {
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
};

/// A snapshot held while it is compared.
template <Diffable Snapshot>
class HeldSnapshot {
  using Sections = decltype(std::declval<const Snapshot&>().sections());
  using Items = decltype(std::declval<const Snapshot&>().items(0));

 public:
  using Section = std::ranges::range_value_t<Sections>;
  using Item = std::ranges::range_value_t<Items>;

  explicit HeldSnapshot(const Snapshot& snapshot) : held_sections_(snapshot.sections()) {
    const std::span<const Section> all(std::ranges::data(held_sections_),
                                       std::ranges::size(held_sections_));
    sections.add(all);
    rows.lists.reserve(all.size());
    rows.starts.reserve(all.size() + 1);
    if constexpr (!borrows) held_items_.reserve(all.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
      const auto section = static_cast<std::int64_t>(i);
      if constexpr (borrows) {
        auto&& items = snapshot.items(section);
        rows.add({std::ranges::data(items), std::ranges::size(items)});
      } else {
        auto& items = held_items_.emplace_back(snapshot.items(section));
        rows.add({std::ranges::data(items), std::ranges::size(items)});
      }
    }
  }
  HeldSnapshot(const HeldSnapshot&) = delete;
  HeldSnapshot& operator=(const HeldSnapshot&) = delete;

  ListOfLists<Section> sections;
  ListOfLists<Item> rows;

 private:
  static constexpr bool borrows = std::ranges::borrowed_range<Items>;
  struct Nothing {};

  Sections held_sections_;  // a reference where the snapshot gives one
  [[no_unique_address]] std::conditional_t<borrows, Nothing,
                                           std::vector<std::remove_cvref_t<Items>>>
      held_items_;
};

/// Ends the process where two sections have one identifier.
template <class Section>
void requireUnique(const ListOfLists<Section>& sections) {
  IdentifierIndex index(static_cast<std::size_t>(sections.count()));
  ListReader<Section> all(sections);
  ListReader<Section> others(sections);
  for (std::int32_t i = 0; i < sections.count(); ++i) {
    const auto& identifier = all[i].identifier();
    const auto isSame = [&](std::int32_t other) {
      return others[other].identifier() == identifier;
    };
    const auto hash = std::hash<std::remove_cvref_t<decltype(identifier)>>{}(identifier);
    if (index.findOrAdd(hash, i, isSame) == i) continue;
    fatal("two sections of a snapshot have the identifier \"" + textForm(identifier) + '"');
  }
}

}  // namespace differencing_detail

/// Matches two snapshots by identifiers. A section identifier that repeats ends the process, unless
/// `allowsRepeatedSections`. What a comparison throws passes through. Time in the order of the
/// rows.
template <Diffable Snapshot>
SnapshotMatching matchSnapshots(const Snapshot& old, const Snapshot& now,
                                bool allowsRepeatedSections = false) {
  using namespace differencing_detail;
  const HeldSnapshot<Snapshot> before(old);
  const HeldSnapshot<Snapshot> after(now);
  SnapshotMatching result;
  result.sections = LevelMatcher(before.sections, after.sections).match(true);
  if (result.sections.repeats && !allowsRepeatedSections) {
    requireUnique(before.sections);
    requireUnique(after.sections);
  }
  result.rows = LevelMatcher(before.rows, after.rows).match(false);
  result.oldStarts = before.rows.starts;
  result.newStarts = after.rows.starts;
  return result;
}

}  // namespace tessarine
