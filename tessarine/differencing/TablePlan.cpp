#include "tessarine/differencing/TablePlan.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "tessarine/values/IndexPath.hpp"

namespace tessarine {

using Kind = TableStep::Kind;

TablePlanView::~TablePlanView() = default;

std::size_t TablePlan::moveCount() const noexcept {
  return static_cast<std::size_t>(
      std::count_if(steps_.begin(), steps_.end(), [](const TableStep& step) {
        return step.kind == Kind::moveRow || step.kind == Kind::moveSection;
      }));
}

namespace {

void performStep(const TableStep& step, TablePlanView& view) {
  switch (step.kind) {
    case Kind::deleteRow:
      return view.deleteRow(step.from);
    case Kind::insertSection:
      return view.insertSection(step.to.section(), step.inNew.section());
    case Kind::moveSection:
      return view.moveSection(step.from.section(), step.to.section());
    case Kind::moveRow:
      return view.moveRow(step.from, step.to);
    case Kind::insertRow:
      return view.insertRow(step.to, step.inNew);
    case Kind::deleteSection:
      return view.deleteSection(step.from.section());
    case Kind::updateSection:
      return view.updateSection(step.to.section());
    case Kind::updateRow:
      return view.updateRow(step.to);
  }
}

bool isOfSection(Kind kind) {
  return kind == Kind::insertSection || kind == Kind::moveSection || kind == Kind::deleteSection ||
         kind == Kind::updateSection;
}

/// Gathers the steps by their places in the two snapshots.
class BatchMaker {
 public:
  explicit BatchMaker(const std::vector<TableStep>& steps) {
    for (const TableStep& step : steps) {
      if (step.kind == Kind::deleteSection) gone_.insert(step.inOld.section());
      if (step.kind == Kind::insertSection) come_.insert(step.inNew.section());
    }
    for (const TableStep& step : steps) {
      if (isOfSection(step.kind)) {
        addSection(step);
      } else {
        addRow(step);
      }
    }
    batch_.sections.deletions = IndexSet<std::int64_t>({gone_.begin(), gone_.end()});
    batch_.sections.insertions = IndexSet<std::int64_t>({come_.begin(), come_.end()});
    batch_.rows.deletions = IndexSet<IndexPath>(std::move(deletions_));
    batch_.rows.insertions = IndexSet<IndexPath>(std::move(insertions_));
  }
  TablePlan::Batch take() { return std::move(batch_); }

 private:
  void addSection(const TableStep& step) {
    const std::pair places(step.inOld.section(), step.inNew.section());
    if (step.kind == Kind::moveSection) batch_.sections.moves.push_back(places);
    if (step.kind == Kind::updateSection) batch_.sections.updates.push_back(places);
  }

  void addRow(const TableStep& step) {
    const bool has_old = step.kind != Kind::insertRow && !gone_.contains(step.inOld.section());
    const bool has_new = step.kind != Kind::deleteRow && !come_.contains(step.inNew.section());
    if (step.kind == Kind::updateRow) {
      if (has_old && has_new) batch_.rows.updates.emplace_back(step.inOld, step.inNew);
    } else if (has_old && has_new) {
      batch_.rows.moves.emplace_back(step.inOld, step.inNew);
    } else if (has_old) {
      deletions_.push_back(step.inOld);
    } else if (has_new) {
      insertions_.push_back(step.inNew);
    }
  }

  std::unordered_set<std::int64_t> gone_;
  std::unordered_set<std::int64_t> come_;
  std::vector<IndexPath> deletions_;
  std::vector<IndexPath> insertions_;
  TablePlan::Batch batch_;
};

std::string textOf(const IndexPath& path, bool isSection) {
  std::string text = std::to_string(path.section());
  if (!isSection) text += '.' + std::to_string(path.item());
  return text;
}

}  // namespace

void TablePlan::perform(TablePlanView& view) const {
  if (verdict_ == Verdict::reload) view.reload();
  for (const TableStep& step : steps_) performStep(step, view);
}

TablePlan::Batch TablePlan::batch() const { return BatchMaker(steps_).take(); }

const char* nameOf(TablePlan::Verdict verdict) noexcept {
  switch (verdict) {
    case TablePlan::Verdict::noChange:
      return "noChange";
    case TablePlan::Verdict::apply:
      return "apply";
    case TablePlan::Verdict::reload:
      break;
  }
  return "reload";
}

const char* nameOf(TableStep::Kind kind) noexcept {
  switch (kind) {
    case Kind::deleteRow:
      return "deleteRow";
    case Kind::insertSection:
      return "insertSection";
    case Kind::moveSection:
      return "moveSection";
    case Kind::moveRow:
      return "moveRow";
    case Kind::insertRow:
      return "insertRow";
    case Kind::deleteSection:
      return "deleteSection";
    case Kind::updateSection:
      return "updateSection";
    case Kind::updateRow:
      break;
  }
  return "updateRow";
}

std::string TablePlan::description() const {
  std::string text = nameOf(verdict_);
  for (const TableStep& step : steps_) {
    const bool is_section = isOfSection(step.kind);
    text += '\n';
    text += nameOf(step.kind);
    switch (step.kind) {
      case Kind::deleteRow:
      case Kind::deleteSection:
        text += ' ' + textOf(step.from, is_section);
        break;
      case Kind::moveRow:
      case Kind::moveSection:
        text += ' ' + textOf(step.from, is_section) + " to " + textOf(step.to, is_section);
        break;
      default:
        text += ' ' + textOf(step.to, is_section);
    }
  }
  return text;
}

std::ostream& operator<<(std::ostream& out, const TablePlan& plan) {
  return out << plan.description();
}

}  // namespace tessarine
