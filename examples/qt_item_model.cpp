// A tree model of sections and rows that a plan keeps in step with snapshots. Each step is
// announced to the views as Qt wants it; selections and expanded sections stay with their rows.

#include <QAbstractItemModel>
#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QPersistentModelIndex>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tessarine/differencing.hpp"

namespace {

using tessarine::ElementDifference;
using tessarine::IndexPath;

struct Row {
  int id;
  std::string title;
  int identifier() const { return id; }
  ElementDifference compare(const Row& old) const {
    return title == old.title ? ElementDifference::unchanged : ElementDifference::needsUpdate;
  }
};

struct Section : Row {
  std::vector<Row> rows;
};

struct Snapshot {
  std::vector<Section> all;
  const std::vector<Section>& sections() const { return all; }
  const std::vector<Row>& items(std::int64_t section) const {
    return all[static_cast<std::size_t>(section)].rows;
  }
};

class SectionModel : public QAbstractItemModel, private tessarine::TablePlanView {
 public:
  /// Brings the model and its views from what it shows to `snapshot`.
  void show(const Snapshot& snapshot) {
    Snapshot shown;
    for (const auto& section : sections_) shown.all.push_back(*section);
    next_ = &snapshot;
    tessarine::tablePlan(shown, snapshot).perform(*this);
  }

  // What Qt asks. A row knows its section by pointer, which no move changes.
  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override {
    if (!hasIndex(row, column, parent)) return {};
    return createIndex(row, column, parent.isValid() ? sections_[at(parent.row())].get() : nullptr);
  }
  QModelIndex parent(const QModelIndex& index) const override {
    const auto* const section = static_cast<const Section*>(index.internalPointer());
    if (section == nullptr) return {};
    const auto found = std::find_if(sections_.begin(), sections_.end(),
                                    [&](const auto& each) { return each.get() == section; });
    return createIndex(static_cast<int>(found - sections_.begin()), 0, nullptr);
  }
  int rowCount(const QModelIndex& parent = {}) const override {
    if (!parent.isValid()) return static_cast<int>(sections_.size());
    if (parent.internalPointer() != nullptr) return 0;
    return static_cast<int>(sections_[at(parent.row())]->rows.size());
  }
  int columnCount(const QModelIndex& = {}) const override { return 1; }
  QVariant data(const QModelIndex& index, int role) const override {
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::UserRole)) return {};
    const auto* const section = static_cast<const Section*>(index.internalPointer());
    const Row& row = section ? section->rows[at(index.row())] : *sections_[at(index.row())];
    return role == Qt::UserRole ? QVariant(row.id) : QVariant(QString::fromStdString(row.title));
  }

 private:
  static std::size_t at(std::int64_t place) { return static_cast<std::size_t>(place); }
  QModelIndex sectionIndex(std::int64_t section) const {
    return createIndex(static_cast<int>(section), 0, nullptr);
  }
  std::vector<Row>& rows(const IndexPath& path) { return sections_[at(path.section())]->rows; }
  /// Qt counts a destination before the removal.
  static int destination(std::int64_t from, std::int64_t to) {
    return static_cast<int>(to > from ? to + 1 : to);
  }

  void deleteSection(std::int64_t place) override {
    beginRemoveRows({}, static_cast<int>(place), static_cast<int>(place));
    sections_.erase(sections_.begin() + place);
    endRemoveRows();
  }
  void insertSection(std::int64_t place, std::int64_t inNew) override {
    beginInsertRows({}, static_cast<int>(place), static_cast<int>(place));
    auto section = std::make_unique<Section>(next_->all[at(inNew)]);
    section->rows.clear();
    sections_.insert(sections_.begin() + place, std::move(section));
    endInsertRows();
  }
  void moveSection(std::int64_t from, std::int64_t to) override {
    const int source = static_cast<int>(from);
    if (from == to || !beginMoveRows({}, source, source, {}, destination(from, to))) return;
    auto moved = std::move(sections_[at(from)]);
    sections_.erase(sections_.begin() + from);
    sections_.insert(sections_.begin() + to, std::move(moved));
    endMoveRows();
  }
  void updateSection(std::int64_t place) override {
    static_cast<Row&>(*sections_[at(place)]) = next_->all[at(place)];
    emit dataChanged(sectionIndex(place), sectionIndex(place));
  }
  void deleteRow(IndexPath path) override {
    const int row = static_cast<int>(path.item());
    beginRemoveRows(sectionIndex(path.section()), row, row);
    rows(path).erase(rows(path).begin() + row);
    endRemoveRows();
  }
  void insertRow(IndexPath path, IndexPath inNew) override {
    const int row = static_cast<int>(path.item());
    beginInsertRows(sectionIndex(path.section()), row, row);
    rows(path).insert(rows(path).begin() + row,
                      next_->all[at(inNew.section())].rows[at(inNew.item())]);
    endInsertRows();
  }
  void moveRow(IndexPath from, IndexPath to) override {
    if (from == to) return;
    const bool stays = from.section() == to.section();
    const int row = static_cast<int>(from.item());
    if (!beginMoveRows(sectionIndex(from.section()), row, row, sectionIndex(to.section()),
                       stays ? destination(row, to.item()) : static_cast<int>(to.item()))) {
      return;
    }
    const Row moved = rows(from)[at(row)];
    rows(from).erase(rows(from).begin() + row);
    rows(to).insert(rows(to).begin() + to.item(), moved);
    endMoveRows();
  }
  void updateRow(IndexPath path) override {
    // Updates come last: the place is that of the new snapshot already.
    rows(path)[at(path.item())] = next_->all[at(path.section())].rows[at(path.item())];
    const auto index = this->index(static_cast<int>(path.item()), 0, sectionIndex(path.section()));
    emit dataChanged(index, index);
  }
  void reload() override {
    beginResetModel();
    sections_.clear();
    for (const Section& section : next_->all)
      sections_.push_back(std::make_unique<Section>(section));
    endResetModel();
  }

  std::vector<std::unique_ptr<Section>> sections_;
  const Snapshot* next_ = nullptr;
};

// ---- a run over random snapshots, watched by Qt's own tester ----

Snapshot randomSnapshot(std::mt19937& random) {
  std::vector<int> sections = {0, 1, 2, 3, 4};
  std::vector<int> rows(20);
  for (int i = 0; i < 20; ++i) rows[static_cast<std::size_t>(i)] = 100 + i;
  std::shuffle(sections.begin(), sections.end(), random);
  std::shuffle(rows.begin(), rows.end(), random);
  Snapshot snapshot;
  for (std::size_t s = random() % 6; s > 0; --s) {
    Section section;
    section.id = sections[s - 1];
    section.title = std::to_string(random() % 2);
    for (std::size_t i = random() % 6; i > 0 && !rows.empty(); --i) {
      section.rows.push_back({rows.back(), std::to_string(random() % 2)});
      rows.pop_back();
    }
    snapshot.all.push_back(std::move(section));
  }
  return snapshot;
}

bool shows(const SectionModel& model, const Snapshot& snapshot) {
  if (model.rowCount() != static_cast<int>(snapshot.all.size())) return false;
  for (int s = 0; s < model.rowCount(); ++s) {
    const Section& section = snapshot.all[static_cast<std::size_t>(s)];
    const QModelIndex parent = model.index(s, 0);
    const auto agrees = [](const QModelIndex& index, const Row& row) {
      return index.data(Qt::UserRole).toInt() == row.id &&
             index.data().toString().toStdString() == row.title;
    };
    if (!agrees(parent, section)) return false;
    if (model.rowCount(parent) != static_cast<int>(section.rows.size())) return false;
    for (int i = 0; i < model.rowCount(parent); ++i) {
      if (!agrees(model.index(i, 0, parent), section.rows[static_cast<std::size_t>(i)]))
        return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const QCoreApplication application(argc, argv);
  SectionModel model;
  const QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
  std::mt19937 random(1);
  int followed = 0;
  for (int run = 0; run < 500; ++run) {
    // What a selection would hold on to.
    std::vector<std::pair<int, QPersistentModelIndex>> held;
    for (int s = 0; s < model.rowCount(); ++s) {
      const QModelIndex parent = model.index(s, 0);
      for (int i = 0; i < model.rowCount(parent); ++i) {
        const QModelIndex index = model.index(i, 0, parent);
        held.emplace_back(index.data(Qt::UserRole).toInt(), index);
      }
    }
    const Snapshot snapshot = randomSnapshot(random);
    model.show(snapshot);
    if (!shows(model, snapshot)) {
      std::fprintf(stderr, "run %d: the model does not show its snapshot\n", run);
      return 1;
    }
    for (const auto& [id, index] : held) {
      if (!index.isValid()) continue;
      if (index.data(Qt::UserRole).toInt() != id) {
        std::fprintf(stderr, "run %d: an index left its row\n", run);
        return 1;
      }
      ++followed;
    }
  }
  std::printf("500 snapshots shown, %d rows followed\n", followed);
  return followed > 0 ? 0 : 1;
}
