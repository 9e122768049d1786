#include "tessarine/differencing/Difference.hpp"

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/values/IndexPath.hpp"

namespace tessarine {
namespace {

std::string textOf(std::int64_t index) { return std::to_string(index); }

std::string textOf(const IndexPath& path) {
  std::string text = std::to_string(path.section());
  text += '.';
  text += std::to_string(path.item());
  return text;
}

template <class Index>
std::string textOf(const std::pair<Index, Index>& pair) {
  std::string text = "(";
  text += textOf(pair.first);
  text += ' ';
  text += textOf(pair.second);
  text += ')';
  return text;
}

template <class Range>
std::string listOf(const Range& range) {
  std::string text;
  for (const auto& each : range) {
    text += text.empty() ? '[' : ' ';
    text += textOf(each);
  }
  return text.empty() ? "[]" : text + ']';
}

}  // namespace

template <class Index>
std::string CollectionDifference<Index>::description() const {
  return "insertions " + listOf(insertions) + ", deletions " + listOf(deletions) + ", updates " +
         listOf(updates) + ", moves " + listOf(moves);
}
template struct CollectionDifference<std::int64_t>;
template struct CollectionDifference<IndexPath>;

const char* nameOf(Difference::ChangeKind changeKind) noexcept {
  switch (changeKind) {
    case Difference::ChangeKind::hasChangeAndCanApply:
      return "hasChangeAndCanApply";
    case Difference::ChangeKind::hasChangeButCannotApply:
      return "hasChangeButCannotApply";
    case Difference::ChangeKind::noChange:
      break;
  }
  return "noChange";
}

std::string Difference::description() const {
  std::string text = nameOf(changeKind_);
  text += "\nsections: " + sectionChanges_.description();
  text += "\nrows: " + itemChanges_.description();
  return text;
}

std::ostream& operator<<(std::ostream& out, const Difference& difference) {
  return out << difference.description();
}

}  // namespace tessarine
