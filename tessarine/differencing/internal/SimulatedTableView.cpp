#include "tessarine/differencing/internal/SimulatedTableView.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tessarine/values/IndexPath.hpp"

namespace tessarine {

template <class Index>
SimulatedTableView<Index>::SimulatedTableView(const LevelMatching& matching,
                                              const Layout<Index>& old,
                                              std::int32_t newSectionCount,
                                              const MetaMutator* metaMutator)
    : matching_(matching),
      lists_(old.starts()),
      section_count_(std::max(old.sectionCount(), newSectionCount)),
      meta_mutator_(metaMutator) {
  sections_.reserve(static_cast<std::size_t>(section_count_));
  section_of_list_.reserve(static_cast<std::size_t>(section_count_));
  for (std::int32_t number = 0; number < section_count_; ++number) {
    if (number >= lists_.listCount()) lists_.addList();
    sections_.push_back({number, 0, 0, number});
    section_of_list_.push_back(static_cast<std::size_t>(number));
  }
}

// ---- where things are ----

template <class Index>
std::int64_t SimulatedTableView<Index>::rowAt(const Section& section, std::int32_t rank) const {
  if (!rows_of_inserted_.empty()) {
    const auto inserted = rows_of_inserted_.find(lists_.at(section.list, rank));
    if (inserted != rows_of_inserted_.end()) return inserted->second;
  }
  return section.firstRow + rank - section.lag;
}

template <class Index>
Index SimulatedTableView<Index>::indexAt(const Place& place) const {
  const Section& section = sections_[place.section];
  return Traits::make(rowAt(section, place.rank), section.number);
}

/// The last item of the section with that row; rows never descend in a section.
template <class Index>
std::optional<typename SimulatedTableView<Index>::Place> SimulatedTableView<Index>::placeInSection(
    std::size_t section, std::int64_t row) const {
  std::int32_t low = 0;
  std::int32_t high = lists_.size(sections_[section].list);
  while (low < high) {
    const std::int32_t middle = low + (high - low) / 2;
    if (rowAt(sections_[section], middle) <= row) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  if (low == 0 || rowAt(sections_[section], low - 1) != row) return std::nullopt;
  return Place{section, low - 1};
}

/// The last item with that index.
template <class Index>
std::optional<typename SimulatedTableView<Index>::Place> SimulatedTableView<Index>::placeOf(
    const Index& index) const {
  const std::int64_t number = Traits::section(index);
  if (in_order_) {
    if (number < 0 || number >= std::ssize(sections_)) return std::nullopt;
    return placeInSection(static_cast<std::size_t>(number), Traits::item(index));
  }
  for (std::size_t i = sections_.size(); i > 0; --i) {
    if (sections_[i - 1].number != number) continue;
    if (const auto place = placeInSection(i - 1, Traits::item(index))) return place;
  }
  return std::nullopt;
}

template <class Index>
std::optional<typename SimulatedTableView<Index>::Place> SimulatedTableView<Index>::placeOfValue(
    std::int32_t value) const {
  const auto place = lists_.locate(value);
  if (!place) return std::nullopt;
  return Place{section_of_list_[static_cast<std::size_t>(place->list)], place->rank};
}

/// The new position of what has the identifier of an item; -1 when the new snapshot has none.
template <class Index>
std::int32_t SimulatedTableView<Index>::identityOf(std::int32_t value) const {
  if (value >= matching_.oldCount + matching_.newCount) {
    return twins_[static_cast<std::size_t>(value - matching_.oldCount - matching_.newCount)];
  }
  if (value >= matching_.oldCount) return value - matching_.oldCount;
  const auto next = std::upper_bound(
      matching_.runs.begin(), matching_.runs.end(), value,
      [](std::int32_t position, const LevelMatching::Run& run) { return position < run.oldStart; });
  if (next == matching_.runs.begin()) return -1;
  const LevelMatching::Run& run = *std::prev(next);
  return value < run.oldStart + run.length ? run.newStart + value - run.oldStart : -1;
}

/// The first item of the table with an identifier, given by its new and one of its old positions.
template <class Index>
std::optional<typename SimulatedTableView<Index>::Place> SimulatedTableView<Index>::placeOfIdentity(
    std::int32_t newPosition, std::int32_t oldPosition) const {
  if (!matching_.repeats) return placeOfValue(oldPosition);
  std::optional<Place> first;
  const auto consider = [&](std::int32_t value) {
    const auto place = placeOfValue(value);
    if (!place) return;
    if (!first || std::pair(place->section, place->rank) < std::pair(first->section, first->rank)) {
      first = place;
    }
  };
  for (const auto& run : matching_.runs) {
    if (newPosition < run.newStart || newPosition >= run.newStart + run.length) continue;
    consider(run.oldStart + newPosition - run.newStart);
  }
  consider(matching_.oldCount + newPosition);
  for (std::size_t i = 0; i < twins_.size(); ++i) {
    if (twins_[i] != newPosition) continue;
    consider(matching_.oldCount + matching_.newCount + static_cast<std::int32_t>(i));
  }
  return first;
}

/// The number under which an item goes into the table: another than its own when that is there, as
/// happens where identifiers repeat.
template <class Index>
std::int32_t SimulatedTableView<Index>::valueToInsert(const Item& item) {
  if (!matching_.repeats || !lists_.locate(item.value)) return item.value;
  twins_.push_back(item.value - matching_.oldCount);
  return matching_.oldCount + matching_.newCount + static_cast<std::int32_t>(twins_.size()) - 1;
}

// ---- what a table does ----

template <class Index>
void SimulatedTableView<Index>::deleteIndexes(const std::vector<Index>& indexes) {
  if (indexes.empty()) return;
  std::vector<Place> places;
  places.reserve(indexes.size());
  for (const Index& index : indexes) {
    if (const auto place = placeOf(index)) places.push_back(*place);
  }
  // From the highest place down, so that those still to come stay where they are.
  const auto isHigher = [](const Place& a, const Place& b) {
    return std::pair(a.section, a.rank) > std::pair(b.section, b.rank);
  };
  std::sort(places.begin(), places.end(), isHigher);
  for (const Place& place : places) lists_.erase(sections_[place.section].list, place.rank);
  reindex(has_handled_meta_delete_ ? nullptr : meta_mutator_);
  has_handled_meta_delete_ = true;
}

template <class Index>
void SimulatedTableView<Index>::reindex(const MetaMutator* metaMutator) {
  rows_of_inserted_.clear();
  for (const std::size_t section : lagging_) sections_[section].lag = 0;
  lagging_.clear();
  if constexpr (std::is_same_v<Index, IndexPath>) {
    const bool closes = metaMutator && !metaMutator->sectionDifference.deletions.empty();
    if (closes || !in_order_) closeUp(metaMutator);
  }
}

/// Numbers the sections anew, as the index type has it.
template <class Index>
void SimulatedTableView<Index>::closeUp(const MetaMutator* metaMutator) {
  std::vector<Index> indexes;
  std::vector<std::size_t> filled;
  for (std::size_t i = 0; i < sections_.size(); ++i) {
    const std::int32_t size = lists_.size(sections_[i].list);
    if (size == 0) continue;
    filled.push_back(i);
    indexes.insert(indexes.end(), static_cast<std::size_t>(size),
                   Traits::make(0, sections_[i].number));
  }
  indexes = Traits::indexesReindexing(std::move(indexes), metaMutator);

  std::vector<Section> closed;
  std::size_t first = 0;
  for (const std::size_t i : filled) {
    const PieceLists::List list = sections_[i].list;
    const auto size = static_cast<std::size_t>(lists_.size(list));
    const std::int64_t number = Traits::section(indexes[first]);
    if (!closed.empty() && closed.back().number == number) {
      lists_.append(closed.back().list, list);
    } else {
      closed.push_back({number, Traits::item(indexes[first]), 0, list});
    }
    first += size;
  }
  in_order_ = closed.empty() || closed.front().number >= 0;
  for (std::size_t i = 1; i < closed.size(); ++i) {
    in_order_ = in_order_ && closed[i - 1].number < closed[i].number;
  }
  if (in_order_) {
    std::vector<Section> numbered(static_cast<std::size_t>(section_count_));
    for (std::size_t i = 0; i < numbered.size(); ++i) {
      numbered[i] = {static_cast<std::int64_t>(i), 0, 0, -1};
    }
    for (const Section& section : closed) {
      numbered[static_cast<std::size_t>(section.number)] = section;
    }
    closed = std::move(numbered);
  }
  sections_ = std::move(closed);
  for (std::size_t i = 0; i < sections_.size(); ++i) {
    if (sections_[i].list < 0) {
      sections_[i].list = lists_.addList();
      section_of_list_.push_back(i);
    }
    section_of_list_[static_cast<std::size_t>(sections_[i].list)] = i;
  }
}

template <class Index>
void SimulatedTableView<Index>::insert(const std::vector<Item>& items) {
  if (items.empty()) return;
  if (!in_order_) {
    is_broken_ = true;
    return;
  }
  auto bumper = Traits::indexBumper();
  for (std::size_t i = 0; i < items.size();) {
    const std::int64_t number = Traits::section(items[i].index);
    const auto at = static_cast<std::size_t>(number);
    Section& section = sections_[at];
    const std::int32_t existing = lists_.size(section.list);
    std::int32_t inserted = 0;
    // The bumper reaches the section with the first of its rows that stays before an insertion.
    if (existing > 0 && Traits::item(items[i].index) > 0) {
      bumper = bumper.bump(Traits::make(0, number)).second;
    }
    for (; i < items.size() && Traits::section(items[i].index) == number; ++i, ++inserted) {
      const std::int64_t row = Traits::item(items[i].index);
      const std::int64_t amount = Traits::item(bumper.bump(Traits::make(0, number)).first);
      const auto before = static_cast<std::int32_t>(std::min<std::int64_t>(existing, row - amount));
      const std::int32_t value = valueToInsert(items[i]);
      lists_.insert(section.list, before + inserted, value);
      rows_of_inserted_[value] = row;
      bumper = bumper.bumperAfterInsertingIndex(items[i].index);
    }
    section.lag = inserted - Traits::item(bumper.bump(Traits::make(0, number)).first);
    if (section.lag != 0) lagging_.push_back(at);
  }
}

// ---- moves ----

template <class Index>
typename SimulatedTableView<Index>::Traits::MoveComparisonContext
SimulatedTableView<Index>::moveComparisonContext() const {
  if constexpr (std::is_same_v<Index, IndexPath>) {
    std::unordered_map<std::int64_t, std::int64_t> rows;
    for (const Section& section : sections_) {
      const std::int32_t size = lists_.size(section.list);
      if (size == 0) continue;
      std::int64_t& most = rows[section.number];
      most = std::max(most, rowAt(section, size - 1) + 1);
    }
    return [rows = std::move(rows)](std::int64_t section) {
      const auto found = rows.find(section);
      return found == rows.end() ? 0 : found->second;
    };
  } else {
    return std::numeric_limits<std::int64_t>::max();
  }
}

template <class Index>
std::vector<typename SimulatedTableView<Index>::Move> SimulatedTableView<Index>::filteredMoves(
    const std::vector<std::pair<Item, Item>>& candidates) {
  if (candidates.empty()) return {};
  const auto context = moveComparisonContext();
  auto sorted = candidates;
  std::stable_sort(sorted.begin(), sorted.end(), [&](const auto& a, const auto& b) {
    return Traits::movesAreOrderedByIncreasingImpact({a.first.index, a.second.index},
                                                     {b.first.index, b.second.index}, context);
  });
  std::reverse(sorted.begin(), sorted.end());
  std::vector<Move> moves;
  for (const auto& [old, now] : sorted) {
    const std::int32_t identity = now.value - matching_.oldCount;
    const auto arrived = placeOf(now.index);
    if (arrived && Traits::moveIsFilterable({old.index, now.index}) &&
        identityOf(lists_.at(sections_[arrived->section].list, arrived->rank)) == identity) {
      continue;
    }
    const auto place = placeOfIdentity(identity, old.value);
    if (!place) continue;
    const Index current = indexAt(*place);
    deleteIndexes({current});
    insert({now});
    if (is_broken_) return {};
    moves.emplace_back(current, now.index);
  }
  return moves;
}

template <class Index>
std::string SimulatedTableView<Index>::description() const {
  std::string text;
  for (std::size_t i = 0; i < sections_.size(); ++i) {
    for (std::int32_t rank = 0; rank < lists_.size(sections_[i].list); ++rank) {
      if (!text.empty()) text += '\n';
      const Index index = indexAt({i, rank});
      text += std::to_string(Traits::section(index)) + '.' + std::to_string(Traits::item(index));
      text += ": " + std::to_string(lists_.at(sections_[i].list, rank));
    }
  }
  return text;
}

template class SimulatedTableView<std::int64_t>;
template class SimulatedTableView<IndexPath>;

}  // namespace tessarine
