#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ranges>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/IdentifierIndex.hpp"
#include "tessarine/differencing/LevelMatcher.hpp"
#include "tessarine/differencing/LevelMatching.hpp"
#include "tessarine/differencing/textForm.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

/// The matching of two snapshots, and where their sections begin in the count of their rows: one
/// more entry than there are sections.
struct SnapshotMatching {
  LevelMatching sections;
  LevelMatching rows;
  std::vector<std::int32_t> oldStarts;
  std::vector<std::int32_t> newStarts;
};

namespace differencing_detail {

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
  result.sections = LevelMatcher(before.sections, after.sections).match();
  if (result.sections.repeats && !allowsRepeatedSections) {
    requireUnique(before.sections);
    requireUnique(after.sections);
  }
  result.rows = LevelMatcher(before.rows, after.rows).match(result.sections);
  result.oldStarts = before.rows.starts;
  result.newStarts = after.rows.starts;
  return result;
}

}  // namespace tessarine
