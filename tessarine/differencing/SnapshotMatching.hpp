#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
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
  void add(std::span<const Element> list) {
    if (list.size() >
        static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max() - count())) {
      fatal("a snapshot of more than 2^31 - 1 rows cannot be compared");
    }
    lists.push_back(list);
    starts.push_back(count() + static_cast<std::int32_t>(list.size()));
  }
  /// Pointers to the elements from `first` to before `last`.
  std::vector<const Element*> pointers(std::int32_t first, std::int32_t last) const {
    std::vector<const Element*> made;
    made.reserve(static_cast<std::size_t>(last - first));
    for (std::size_t i = 0; i < lists.size(); ++i) {
      const std::int32_t from = std::max(first, starts[i]);
      const std::int32_t to = std::min(last, starts[i + 1]);
      for (std::int32_t at = from; at < to; ++at) {
        made.push_back(&lists[i][static_cast<std::size_t>(at - starts[i])]);
      }
    }
    return made;
  }
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
    const auto olds = old_.pointers(start, old_.count() - end);
    const auto news = now_.pointers(start, now_.count() - end);
    enum : unsigned char { open, taken, repeated };
    std::vector<unsigned char> states(news.size(), open);

    IdentifierIndex index(news.size());
    const auto isNew = [&](const Element& element) {
      return [&](std::int32_t other) {
        return news[static_cast<std::size_t>(other)]->identifier() == element.identifier();
      };
    };
    for (std::size_t j = 0; j < news.size(); ++j) {
      const auto number = static_cast<std::int32_t>(j);
      if (index.findOrAdd(hashOf(*news[j]), number, isNew(*news[j])) == number) continue;
      states[j] = repeated;
      result_.repeatedNew.push_back(start + number);
    }

    std::vector<std::size_t> deleted;
    std::size_t expected = 0;  // an element's counterpart mostly follows that of its neighbour
    for (std::size_t i = 0; i < olds.size(); ++i) {
      const Element& element = *olds[i];
      std::size_t found = expected;
      if (found >= news.size() || states[found] == repeated ||
          !(news[found]->identifier() == element.identifier())) {
        const std::int32_t number = index.find(hashOf(element), isNew(element));
        if (number < 0) {
          deleted.push_back(i);
          continue;
        }
        found = static_cast<std::size_t>(number);
      }
      if (states[found] == taken) result_.repeats = true;
      states[found] = taken;
      const std::int32_t at = start + static_cast<std::int32_t>(i);
      result_.add(at, start + static_cast<std::int32_t>(found), 1);
      mark(at, element, *news[found], result_.marks);
      expected = found + 1;
    }
    findRepeats(olds, deleted, start);
    if (result_.repeats) result_.isSame = isSame(olds, news);
  }

  /// Of the deleted elements, those whose identifier has gone before.
  void findRepeats(const std::vector<const Element*>& olds, const std::vector<std::size_t>& deleted,
                   std::int32_t start) {
    IdentifierIndex index(deleted.size());
    for (const std::size_t i : deleted) {
      const auto number = static_cast<std::int32_t>(i);
      const auto isOld = [&](std::int32_t other) {
        return olds[static_cast<std::size_t>(other)]->identifier() == olds[i]->identifier();
      };
      if (index.findOrAdd(hashOf(*olds[i]), number, isOld) == number) continue;
      result_.repeatedOld.push_back(start + number);
    }
    if (!result_.repeatedOld.empty() || !result_.repeatedNew.empty()) result_.repeats = true;
  }

  static bool isSame(const std::vector<const Element*>& olds,
                     const std::vector<const Element*>& news) {
    return std::equal(olds.begin(), olds.end(), news.begin(), news.end(),
                      [](const Element* old, const Element* now) {
                        return old->identifier() == now->identifier() &&
                               now->compare(*old) != ElementDifference::needsUpdate;
                      });
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
  const auto all = sections.pointers(0, sections.count());
  IdentifierIndex index(all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    const auto& identifier = all[i]->identifier();
    const auto isSame = [&](std::int32_t other) {
      return all[static_cast<std::size_t>(other)]->identifier() == identifier;
    };
    const auto hash = std::hash<std::remove_cvref_t<decltype(identifier)>>{}(identifier);
    const auto number = static_cast<std::int32_t>(i);
    if (index.findOrAdd(hash, number, isSame) == number) continue;
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
