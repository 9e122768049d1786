// Ordered changes beside dtl and two references written here, and the comparison of table snapshots
// beside one hash table of the same identifiers. What the rows time:
//   myers (n,d)   from n distinct integers to a list that differs by d edits, scattered, half of
//                 them removals: the script, as a CollectionChanges
//     linear space   Myers' refinement that keeps no trace and halves the problem, script only
//     distance only  his greedy search without any trace: the number of edits, no script
//   moved (n,m)   the same to a list in which m of the integers have other places
//   strings (n,d) the same with texts of 9 to 13 characters, numbered first and compared directly
//   table         100 000 rows in 1 000 sections (or ten times that): 1% each of rows inserted,
//                 deleted and updated, 300 moved; `300 moves` are those alone, pairs of rows
//                 swapped across sections; the hash table is built of the new identifiers and asked
//                 for the old; `rows read` reads both snapshots and does nothing else
// `peak` is the most that was allocated at once through operator new, in MiB.

#include "tessarine/differencing.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

#ifdef TESSARINE_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif
#ifdef TESSARINE_BENCH_DTL
#include <dtl/dtl.hpp>
#endif

namespace {

std::size_t allocated = 0;
std::size_t most_allocated = 0;

void* countedAllocation(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  allocated += malloc_usable_size(memory);
  most_allocated = std::max(most_allocated, allocated);
  return memory;
}
void countedRelease(void* memory) {
  if (memory != nullptr) allocated -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

// One thread allocates here, so plain counters do.
void* operator new(std::size_t size) { return countedAllocation(size); }
void operator delete(void* memory) noexcept { countedRelease(memory); }
void operator delete(void* memory, std::size_t) noexcept { countedRelease(memory); }

namespace {

using namespace tessarine;

/// Notes the greatest allocation above what was there before.
class Peak {
 public:
  Peak() : before_(allocated) { most_allocated = allocated; }
  void note(benchmark::State& state) const {
    state.counters["peak"] = static_cast<double>(most_allocated - before_) / (1024.0 * 1024.0);
  }

 private:
  std::size_t before_;
};

// ---- ordered changes ----

using Ints = std::vector<int>;

/// A list that differs from the numbers 0 to n - 1 by exactly `edits` edits.
Ints edited(int n, int edits) {
  std::mt19937 random(static_cast<unsigned>(n + edits));
  Ints list(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) list[static_cast<std::size_t>(i)] = i;
  const Ints all = list;
  std::unordered_set<int> removed;
  while (static_cast<int>(removed.size()) < edits / 2)
    removed.insert(static_cast<int>(random() % all.size()));
  std::erase_if(list, [&](int each) { return removed.contains(each); });
  for (int i = 0; i < edits - edits / 2; ++i) {
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(random() % (list.size() + 1)), n + i);
  }
  return list;
}

/// The numbers 0 to n - 1, of which `count` were taken out and put in elsewhere.
Ints moved(int n, int count) {
  std::mt19937 random(static_cast<unsigned>(n + count));
  Ints list = edited(n, 0);
  for (int i = 0; i < count; ++i) {
    const auto from = list.begin() + static_cast<std::ptrdiff_t>(random() % list.size());
    const int element = *from;
    list.erase(from);
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(random() % (list.size() + 1)), element);
  }
  return list;
}

/// Myers' refinement: finds the middle of a shortest path from both ends and solves the two halves.
class LinearSpace {
 public:
  LinearSpace(const Ints& old, const Ints& now) : old_(old), now_(now) {
    const std::size_t size = 2 * (old.size() + now.size()) + 5;
    forward_.resize(size);
    backward_.resize(size);
  }
  std::vector<Edit> script() {
    solve(0, static_cast<int>(old_.size()), 0, static_cast<int>(now_.size()));
    return std::move(edits_);
  }

 private:
  struct Middle {
    int x;
    int y;
    int u;
    int v;
    int distance;
  };

  void solve(int x0, int x1, int y0, int y1) {
    while (x0 < x1 && y0 < y1 && old_[at(x0)] == now_[at(y0)]) ++x0, ++y0;
    while (x0 < x1 && y0 < y1 && old_[at(x1 - 1)] == now_[at(y1 - 1)]) --x1, --y1;
    if (x0 == x1 || y0 == y1) {
      for (; x0 < x1; ++x0) edits_.push_back({true, x0});
      for (; y0 < y1; ++y0) edits_.push_back({false, y0});
      return;
    }
    const Middle middle = find(x0, x1, y0, y1);
    solve(x0, middle.x, y0, middle.y);
    solve(middle.u, x1, middle.v, y1);
  }

  Middle find(int x0, int x1, int y0, int y1) {
    const int n = x1 - x0;
    const int m = y1 - y0;
    const int delta = n - m;
    const bool odd = (delta & 1) != 0;
    int* const fw = forward_.data() + n + m + 2;
    int* const bw = backward_.data() + n + m + 2;
    fw[1] = 0;
    bw[1] = 0;
    for (int d = 0;; ++d) {
      for (int k = -d; k <= d; k += 2) {
        int x = k == -d || (k != d && fw[k - 1] < fw[k + 1]) ? fw[k + 1] : fw[k - 1] + 1;
        const int start = x;
        while (x < n && x - k < m && old_[at(x0 + x)] == now_[at(y0 + x - k)]) ++x;
        fw[k] = x;
        const int other = delta - k;
        if (odd && other >= -(d - 1) && other <= d - 1 && x + bw[other] >= n) {
          return {x0 + start, y0 + start - k, x0 + x, y0 + x - k, 2 * d - 1};
        }
      }
      for (int k = -d; k <= d; k += 2) {
        int x = k == -d || (k != d && bw[k - 1] < bw[k + 1]) ? bw[k + 1] : bw[k - 1] + 1;
        const int start = x;
        while (x < n && x - k < m && old_[at(x1 - 1 - x)] == now_[at(y1 - 1 - (x - k))]) ++x;
        bw[k] = x;
        const int other = delta - k;
        if (!odd && other >= -d && other <= d && x + fw[other] >= n) {
          return {x1 - x, y1 - (x - k), x1 - start, y1 - (start - k), 2 * d};
        }
      }
    }
  }

  static std::size_t at(int i) { return static_cast<std::size_t>(i); }

  const Ints& old_;
  const Ints& now_;
  Ints forward_;
  Ints backward_;
  std::vector<Edit> edits_;
};

int distanceOnly(const Ints& old, const Ints& now) {
  const int n = static_cast<int>(old.size());
  const int m = static_cast<int>(now.size());
  Ints reach(2 * (old.size() + now.size()) + 3);
  int* const v = reach.data() + n + m + 1;
  v[1] = 0;
  for (int d = 0;; ++d) {
    for (int k = -d; k <= d; k += 2) {
      int x = k == -d || (k != d && v[k - 1] < v[k + 1]) ? v[k + 1] : v[k - 1] + 1;
      int y = x - k;
      while (x < n && y < m &&
             old[static_cast<std::size_t>(x)] == now[static_cast<std::size_t>(y)]) {
        ++x;
        ++y;
      }
      v[k] = x;
      if (x >= n && y >= m) return d;
    }
  }
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "wrong result: %s\n", what);
  std::exit(1);
}

std::string sizeText(const char* what, int n, int edits) {
  char text[64];
  std::snprintf(text, sizeof text, "%s (%d,%d)/", what, n, edits);
  return text;
}

/// Each search for the `edits` edits from one list to the other.
void registerSearches(const std::string& size, const Ints& old, const Ints& now, int edits) {
  const auto count = static_cast<std::size_t>(edits);
  benchmark::RegisterBenchmark((size + "changes").c_str(), [=](benchmark::State& state) {
    const Peak peak;
    for (auto _ : state) require(changes(now, old).size() == count, "changes");
    peak.note(state);
  });
  benchmark::RegisterBenchmark((size + "linear space").c_str(), [=](benchmark::State& state) {
    const Peak peak;
    for (auto _ : state) {
      require(LinearSpace(old, now).script().size() == count, "linear");
    }
    peak.note(state);
  });
  benchmark::RegisterBenchmark((size + "distance only").c_str(), [=](benchmark::State& state) {
    for (auto _ : state) require(distanceOnly(old, now) == edits, "distance");
  });
#ifdef TESSARINE_BENCH_DTL
  if (edits > 2'000) return;
  benchmark::RegisterBenchmark((size + "dtl").c_str(), [=](benchmark::State& state) {
    const Peak peak;
    for (auto _ : state) {
      dtl::Diff<int, Ints> diff(old, now);
      diff.compose();
      require(diff.getEditDistance() == edits, "dtl");
    }
    peak.note(state);
  });
#endif
}

void registerMyers(int n, int edits) {
  registerSearches(sizeText("myers", n, edits), edited(n, 0), edited(n, edits), edits);
}

/// Moves only: no element is in one list alone, so that all points have to be looked at.
void registerMoved(int n, int count) {
  const Ints old = edited(n, 0);
  const Ints now = moved(n, count);
  registerSearches(sizeText("moved", n, count), old, now, distanceOnly(old, now));
}

/// Two lists with nothing in common.
void registerDifferent(int n) {
  Ints old(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) old[static_cast<std::size_t>(i)] = i;
  Ints now = old;
  for (int& each : now) each += n;
  const auto count = 2 * old.size();
  benchmark::RegisterBenchmark((sizeText("myers", n, 2 * n) + "changes, nothing in common").c_str(),
                               [=](benchmark::State& state) {
                                 const Peak peak;
                                 for (auto _ : state)
                                   require(changes(now, old).size() == count, "changes");
                                 peak.note(state);
                               })
      ->Iterations(1);
}

void registerStrings(int n, int edits) {
  const auto texts = [](const Ints& numbers) {
    std::vector<std::string> made;
    for (const int each : numbers) made.push_back(std::to_string(each) + "-element");
    return made;
  };
  const std::string size = sizeText("strings", n, edits);
  const auto old = texts(edited(n, 0));
  const auto now = texts(edited(n, edits));
  benchmark::RegisterBenchmark((size + "numbered first").c_str(), [=](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(changes(now, old));
  });
  benchmark::RegisterBenchmark((size + "compared directly").c_str(), [=](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(changes(now, old, std::equal_to<>()));
  });
  require(changes(now, old) == changes(now, old, std::equal_to<>()), "strings");
}

// ---- tables ----

struct Row {
  std::int64_t id;
  int version;
  std::int64_t identifier() const { return id; }
  ElementDifference compare(const Row& old) const {
    return version == old.version ? ElementDifference::unchanged : ElementDifference::needsUpdate;
  }
};

struct Table {
  std::vector<Row> all_sections;
  std::vector<std::vector<Row>> rows;
  const std::vector<Row>& sections() const { return all_sections; }
  const std::vector<Row>& items(std::int64_t section) const {
    return rows[static_cast<std::size_t>(section)];
  }
};

Table tableOf(int rows, int sections) {
  Table table;
  // Identifiers as a database gives them out: in no order.
  std::mt19937_64 random(1);
  for (int s = 0; s < sections; ++s) {
    table.all_sections.push_back({s, 0});
    table.rows.emplace_back();
    for (int i = 0; i < rows / sections; ++i) {
      table.rows.back().push_back({static_cast<std::int64_t>(random() >> 1), 0});
    }
  }
  return table;
}

class TableEditor {
 public:
  explicit TableEditor(const Table& table) : table_(table), random_(2) {}

  /// Swaps pairs of rows of different sections, at one place of each.
  TableEditor& swap(int pairs) {
    for (; pairs > 0; --pairs) {
      const std::size_t i = random_() % 50;
      const std::size_t a = random_() % (table_.rows.size() / 2);
      std::swap(table_.rows[2 * a][i], table_.rows[2 * a + 1][i]);
    }
    return *this;
  }
  /// Takes rows out and puts them in elsewhere.
  TableEditor& move(int count) {
    for (; count > 0; --count) {
      auto& from = any();
      const auto at = place(from, 0);
      const Row row = *at;
      from.erase(at);
      auto& to = any();
      to.insert(place(to, 1), row);
    }
    return *this;
  }
  TableEditor& change(int each) {
    for (int i = 0; i < each; ++i) {
      auto& from = any();
      from.erase(place(from, 0));
      auto& to = any();
      to.insert(place(to, 1), {static_cast<std::int64_t>(random_() >> 1), 0});
      place(any(), 0)->version = 1;
    }
    return *this;
  }
  const Table& table() const { return table_; }

 private:
  std::vector<Row>& any() { return table_.rows[random_() % table_.rows.size()]; }
  std::vector<Row>::iterator place(std::vector<Row>& rows, std::size_t end) {
    return rows.begin() + static_cast<std::ptrdiff_t>(random_() % (rows.size() + end));
  }

  Table table_;
  std::mt19937_64 random_;
};

using Verdict = TablePlan::Verdict;

/// Runs long enough for the first turn, which takes fresh pages from the system, to matter little.
void untilSteady(const std::string& name, const std::function<void(benchmark::State&)>& row) {
  benchmark::RegisterBenchmark(name.c_str(), row)->MinTime(0.1);
}

void registerPair(const std::string& name, const Table& old, const Table& now, bool applicable) {
  untilSteady(name + "/difference", [=](benchmark::State& state) {
    for (auto _ : state) {
      const Difference found = difference(now, old);
      require(!applicable || found.changeKind() != Difference::ChangeKind::hasChangeButCannotApply,
              "difference");
    }
  });
  untilSteady(name + "/plan", [=](benchmark::State& state) {
    std::size_t steps = 0;
    for (auto _ : state) {
      const TablePlan plan = tablePlan(old, now);
      require(plan.verdict() != Verdict::reload, "plan");
      steps = plan.steps().size();
    }
    state.counters["steps"] = static_cast<double>(steps);
  });
  untilSteady(name + "/rows read", [=](benchmark::State& state) {
    for (auto _ : state) {
      std::int64_t sum = 0;
      for (const Table* const table : {&old, &now}) {
        for (const auto& rows : table->rows) {
          for (const Row& row : rows) sum += row.id ^ row.version;
        }
      }
      benchmark::DoNotOptimize(sum);
    }
  });
#ifdef TESSARINE_BENCH_ABSL
  untilSteady(name + "/absl::flat_hash_map", [=](benchmark::State& state) {
    for (auto _ : state) {
      absl::flat_hash_map<std::int64_t, std::int32_t> map;
      map.reserve(now.rows.size() * now.rows[0].size());
      std::int32_t number = 0;
      for (const auto& rows : now.rows) {
        for (const Row& row : rows) map.emplace(row.id, number++);
      }
      std::int64_t found = 0;
      for (const auto& rows : old.rows) {
        for (const Row& row : rows) found += map.contains(row.id) ? 1 : 0;
      }
      benchmark::DoNotOptimize(found);
    }
  });
#endif
}

void registerTables() {
  for (const int rows : {100'000, 1'000'000}) {
    const std::string name = "table " + std::to_string(rows) + ", ";
    const Table old = tableOf(rows, rows / 100);
    registerPair(name + "1% and 300 moves", old,
                 TableEditor(old).change(rows / 100).move(300).table(), false);
    registerPair(name + "300 moves", old, TableEditor(old).swap(150).table(), true);
    if (rows > 100'000) continue;
    registerPair(name + "unchanged", old, old, true);
    Table one = old;
    one.rows[500].push_back({-1, 0});
    registerPair(name + "one row", old, one, true);
    const Table single = tableOf(rows, 1);
    Table shuffled = single;
    std::mt19937_64 random(3);
    for (int i = 0; i < 150; ++i) {
      auto& list = shuffled.rows[0];
      std::swap(list[random() % list.size()], list[random() % list.size()]);
    }
    registerPair("table 100000 in one section, 300 moves", single, shuffled, true);
  }
}

}  // namespace

int main(int argc, char** argv) {
#ifndef TESSARINE_BENCH_DTL
  std::puts("dtl is absent, its rows are skipped");
#endif
#ifndef TESSARINE_BENCH_ABSL
  std::puts("absl is absent, its rows are skipped");
#endif
  for (const auto& [n, edits] : {std::pair(1'000, 10), std::pair(10'000, 100),
                                 std::pair(10'000, 2'000), std::pair(100'000, 1'000)}) {
    registerMyers(n, edits);
  }
  registerMyers(100'000, 20'000);
  registerMoved(10'000, 1'000);
  registerDifferent(30'000);
  registerStrings(10'000, 100);
  registerStrings(10'000, 2'000);
  registerTables();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
