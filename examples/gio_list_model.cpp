// A GListModel, as GTK's list widgets show one, that a plan keeps in step with snapshots. It gives
// the rows of all sections one after the other; a step on a section is one change of all its rows.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tessarine/differencing.hpp"

#include <gio/gio.h>

namespace {

using tessarine::ElementDifference;
using tessarine::IndexPath;

struct Row {
  int id;
  int version;
  int identifier() const { return id; }
  ElementDifference compare(const Row& old) const {
    return version == old.version ? ElementDifference::unchanged : ElementDifference::needsUpdate;
  }
  bool operator==(const Row&) const = default;
};

struct Snapshot {
  std::vector<Row> heads;
  std::vector<std::vector<Row>> rows;
  const std::vector<Row>& sections() const { return heads; }
  const std::vector<Row>& items(std::int64_t section) const {
    return rows[static_cast<std::size_t>(section)];
  }
};

/// What the object below shows: the table, changed step by step.
class ShownTable : public tessarine::TablePlanView {
 public:
  explicit ShownTable(GListModel* model) : model_(model) {}

  void show(const Snapshot& snapshot) {
    next_ = &snapshot;
    const Snapshot shown = table_;
    tessarine::tablePlan(shown, snapshot).perform(*this);
  }
  guint count() const { return place({0, static_cast<std::int64_t>(table_.rows.size())}); }
  const Row* row(guint position) const {
    for (const auto& rows : table_.rows) {
      if (position < rows.size()) return &rows[position];
      position -= static_cast<guint>(rows.size());
    }
    return nullptr;
  }

 private:
  static std::size_t at(std::int64_t number) { return static_cast<std::size_t>(number); }
  /// How many rows lie before a place.
  guint place(const IndexPath& path) const {
    std::size_t before = at(path.item());
    for (std::size_t s = 0; s < at(path.section()); ++s) before += table_.rows[s].size();
    return static_cast<guint>(before);
  }
  void changed(guint position, std::size_t removed, std::size_t added) {
    g_list_model_items_changed(model_, position, static_cast<guint>(removed),
                               static_cast<guint>(added));
  }

  // A section has no item of its own, so only its rows are told.
  void deleteSection(std::int64_t section) override {
    table_.heads.erase(table_.heads.begin() + section);
    table_.rows.erase(table_.rows.begin() + section);
  }
  void insertSection(std::int64_t section, std::int64_t inNew) override {
    table_.heads.insert(table_.heads.begin() + section, next_->heads[at(inNew)]);
    table_.rows.insert(table_.rows.begin() + section, std::vector<Row>());
  }
  void moveSection(std::int64_t from, std::int64_t to) override {
    const Row head = table_.heads[at(from)];
    const std::vector<Row> rows = table_.rows[at(from)];
    const guint left = place({0, from});
    deleteSection(from);
    if (!rows.empty()) changed(left, rows.size(), 0);
    table_.heads.insert(table_.heads.begin() + to, head);
    table_.rows.insert(table_.rows.begin() + to, rows);
    if (!rows.empty()) changed(place({0, to}), 0, rows.size());
  }
  void updateSection(std::int64_t section) override {
    table_.heads[at(section)] = next_->heads[at(section)];
  }
  void deleteRow(IndexPath path) override {
    auto& rows = table_.rows[at(path.section())];
    rows.erase(rows.begin() + path.item());
    changed(place(path), 1, 0);
  }
  void insertRow(IndexPath path, IndexPath inNew) override {
    put(path, next_->rows[at(inNew.section())][at(inNew.item())]);
  }
  void moveRow(IndexPath from, IndexPath to) override {
    const Row moved = table_.rows[at(from.section())][at(from.item())];
    deleteRow(from);
    put(to, moved);
  }
  void put(const IndexPath& path, const Row& row) {
    auto& rows = table_.rows[at(path.section())];
    rows.insert(rows.begin() + path.item(), row);
    changed(place(path), 0, 1);
  }
  void updateRow(IndexPath path) override {
    table_.rows[at(path.section())][at(path.item())] =
        next_->rows[at(path.section())][at(path.item())];
    changed(place(path), 1, 1);
  }
  void reload() override {
    const guint before = count();
    table_ = *next_;
    changed(0, before, count());
  }

  GListModel* model_;
  Snapshot table_;
  const Snapshot* next_ = nullptr;
};

// ---- the object ----

struct PlannedList {
  GObject parent;
  ShownTable* table;
};
struct PlannedListClass {
  GObjectClass parent;
};

GType planned_list_get_type();
void planned_list_list_model_init(GListModelInterface* interface);
G_DEFINE_TYPE_WITH_CODE(PlannedList, planned_list, G_TYPE_OBJECT,
                        G_IMPLEMENT_INTERFACE(G_TYPE_LIST_MODEL, planned_list_list_model_init))

PlannedList* selfOf(gpointer object) { return static_cast<PlannedList*>(object); }

void planned_list_init(PlannedList* self) { self->table = new ShownTable(G_LIST_MODEL(self)); }
void planned_list_class_init(PlannedListClass* own) {
  G_OBJECT_CLASS(own)->finalize = [](GObject* object) {
    delete selfOf(object)->table;
    G_OBJECT_CLASS(planned_list_parent_class)->finalize(object);
  };
}
void planned_list_list_model_init(GListModelInterface* interface) {
  interface->get_item_type = [](GListModel*) -> GType { return G_TYPE_OBJECT; };
  interface->get_n_items = [](GListModel* model) { return selfOf(model)->table->count(); };
  interface->get_item = [](GListModel* model, guint position) -> gpointer {
    const Row* const row = selfOf(model)->table->row(position);
    if (row == nullptr) return nullptr;
    auto* const item = static_cast<GObject*>(g_object_new(G_TYPE_OBJECT, nullptr));
    g_object_set_data(item, "id", GINT_TO_POINTER(row->id));
    g_object_set_data(item, "version", GINT_TO_POINTER(row->version));
    return item;
  };
}

// ---- a run over random snapshots, with a list that follows the signals as a widget would ----

struct Follower {
  std::vector<Row> rows;
  int signals = 0;

  static void follow(GListModel* model, guint position, guint removed, guint added, gpointer data) {
    auto& own = *static_cast<Follower*>(data);
    ++own.signals;
    const auto from = own.rows.begin() + position;
    own.rows.erase(from, from + removed);
    for (guint i = 0; i < added; ++i) {
      auto* const item = static_cast<GObject*>(g_list_model_get_item(model, position + i));
      const Row row = {GPOINTER_TO_INT(g_object_get_data(item, "id")),
                       GPOINTER_TO_INT(g_object_get_data(item, "version"))};
      own.rows.insert(own.rows.begin() + position + i, row);
      g_object_unref(item);
    }
  }
};

Snapshot randomSnapshot(std::mt19937& random) {
  std::vector<int> sections = {0, 1, 2, 3};
  std::vector<int> rows(16);
  for (int i = 0; i < 16; ++i) rows[static_cast<std::size_t>(i)] = 100 + i;
  std::shuffle(sections.begin(), sections.end(), random);
  std::shuffle(rows.begin(), rows.end(), random);
  Snapshot snapshot;
  for (std::size_t s = random() % 5; s > 0; --s) {
    snapshot.heads.push_back({sections[s - 1], 0});
    snapshot.rows.emplace_back();
    for (std::size_t i = random() % 6; i > 0 && !rows.empty(); --i) {
      snapshot.rows.back().push_back({rows.back(), static_cast<int>(random() % 2)});
      rows.pop_back();
    }
  }
  return snapshot;
}

}  // namespace

int main() {
  auto* const list = static_cast<PlannedList*>(g_object_new(planned_list_get_type(), nullptr));
  Follower follower;
  g_signal_connect(list, "items-changed", G_CALLBACK(Follower::follow), &follower);
  std::mt19937 random(1);
  for (int run = 0; run < 500; ++run) {
    const Snapshot snapshot = randomSnapshot(random);
    list->table->show(snapshot);
    std::vector<Row> expected;
    for (const auto& rows : snapshot.rows)
      expected.insert(expected.end(), rows.begin(), rows.end());
    if (follower.rows != expected ||
        g_list_model_get_n_items(G_LIST_MODEL(list)) != expected.size()) {
      std::fprintf(stderr, "run %d: the list does not show its snapshot\n", run);
      return 1;
    }
  }
  g_object_unref(list);
  std::printf("500 snapshots shown by %d signals\n", follower.signals);
}
