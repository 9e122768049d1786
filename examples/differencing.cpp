#include "tessarine/differencing.hpp"

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Contact {
  int id;
  std::string name;
  int identifier() const { return id; }
  tessarine::ElementDifference compare(const Contact& old) const {
    using enum tessarine::ElementDifference;
    return name == old.name ? unchanged : needsUpdate;
  }
};

struct Contacts {
  std::vector<Contact> groups;
  std::vector<std::vector<Contact>> members;
  const std::vector<Contact>& sections() const { return groups; }
  const std::vector<Contact>& items(std::int64_t section) const {
    return members[static_cast<std::size_t>(section)];
  }
};

}  // namespace

int main() {
  using namespace tessarine;
  const std::vector<std::string> old = {"milk", "bread", "eggs"};
  const std::vector<std::string> now = {"bread", "eggs", "milk", "tea"};
  const auto found = changes(now, old).inferringMoves();
  std::printf("%s\n", found.description().c_str());
  const bool replays = applying(old, found) == now;

  const Contacts before = {{{1, "work"}, {2, "home"}},
                           {{{10, "Ada"}, {11, "Alan"}}, {{12, "Grace"}}}};
  const Contacts after = {{{2, "home"}, {1, "work"}},
                          {{{12, "Grace"}, {10, "Ada L."}}, {{11, "Alan"}}}};
  const TablePlan plan = tablePlan(before, after);
  std::printf("%s\n", plan.description().c_str());
  return replays && plan.moveCount() == 2 ? 0 : 1;
}
