#include "SnapshotPicture.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tessarine::tool {
namespace {

constexpr int rowHeight = 24;
constexpr int columnWidth = 150;
constexpr int gap = 170;
constexpr int margin = 16;

std::string number(std::int64_t value) { return std::to_string(value); }

std::string escaped(const std::string& text) {
  std::string made;
  for (const char c : text) {
    if (c == '&') {
      made += "&amp;";
    } else if (c == '<') {
      made += "&lt;";
    } else if (c == '>') {
      made += "&gt;";
    } else if (static_cast<unsigned char>(c) >= 0x20) {
      made += c;
    }
  }
  return made;
}

/// One snapshot as a column; knows where its rows lie.
class Column {
 public:
  Column(const JsonTable& table, int left) : table_(table), left_(left) {
    int line = 1;
    for (const JsonSection& section : table.all) {
      tops_.push_back(margin + line * rowHeight);
      line += static_cast<int>(section.items.size()) + 2;
    }
    bottom_ = margin + line * rowHeight;
  }
  int left() const { return left_; }
  int right() const { return left_ + columnWidth; }
  int bottom() const { return bottom_; }
  int top(const IndexPath& path) const {
    return tops_[static_cast<std::size_t>(path.section())] +
           static_cast<int>(path.item() + 1) * rowHeight;
  }
  int middle(const IndexPath& path) const { return top(path) + rowHeight / 2 - 1; }

  void draw(const std::string& title, const std::vector<IndexPath>& changed, const char* fill,
            const std::vector<IndexPath>& updated, std::string& svg) const {
    text(left_, margin + rowHeight / 2, title, "#666", svg);
    for (std::size_t s = 0; s < table_.all.size(); ++s) {
      const auto section = static_cast<std::int64_t>(s);
      text(left_, top({-1, section}) + 16, table_.all[s].id.text(), "#000", svg);
      for (std::size_t i = 0; i < table_.all[s].items.size(); ++i) {
        const IndexPath path(static_cast<std::int64_t>(i), section);
        const bool is_changed = std::binary_search(changed.begin(), changed.end(), path);
        box(path, is_changed ? fill : "#f2f2f2", svg);
        if (std::binary_search(updated.begin(), updated.end(), path)) bar(path, svg);
        text(left_ + 10, top(path) + 16, table_.row(path).id.text(), "#222", svg);
      }
    }
  }

 private:
  void box(const IndexPath& path, const std::string& fill, std::string& svg) const {
    svg += "<rect x=\"" + number(left_) + "\" y=\"" + number(top(path)) + "\" width=\"" +
           number(columnWidth) + "\" height=\"" + number(rowHeight - 3) + "\" rx=\"4\" fill=\"" +
           fill + "\"/>\n";
  }
  void bar(const IndexPath& path, std::string& svg) const {
    svg += "<rect x=\"" + number(right() - 6) + "\" y=\"" + number(top(path)) +
           "\" width=\"6\" height=\"" + number(rowHeight - 3) + "\" fill=\"#e0a000\"/>\n";
  }
  static void text(int x, int y, const std::string& content, const char* fill, std::string& svg) {
    svg += "<text x=\"" + number(x) + "\" y=\"" + number(y) + "\" fill=\"" + fill + "\">" +
           escaped(content) + "</text>\n";
  }

  const JsonTable& table_;
  int left_;
  int bottom_ = 0;
  std::vector<int> tops_;
};

std::vector<IndexPath> sorted(std::vector<IndexPath> paths) {
  std::sort(paths.begin(), paths.end());
  return paths;
}

}  // namespace

std::string svgOf(const SnapshotPicture& picture) {
  const Column old(picture.old, margin);
  const Column now(picture.now, margin + columnWidth + gap);
  const int width = now.right() + margin;
  const int height = std::max(old.bottom(), now.bottom());
  std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + number(width) +
                    "\" height=\"" + number(height) +
                    "\" font-family=\"sans-serif\" font-size=\"13\">\n"
                    "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  old.draw("old", sorted(picture.deleted), "#f7c6c5", {}, svg);
  now.draw("new", sorted(picture.inserted), "#c8e6c9", sorted(picture.updated), svg);
  for (const auto& [from, to] : picture.moved) {
    const int middle = (old.right() + now.left()) / 2;
    svg += "<path d=\"M" + number(old.right()) + ' ' + number(old.middle(from)) + " C" +
           number(middle) + ' ' + number(old.middle(from)) + ' ' + number(middle) + ' ' +
           number(now.middle(to)) + ' ' + number(now.left()) + ' ' + number(now.middle(to)) +
           "\" fill=\"none\" stroke=\"#2962a8\" stroke-width=\"2\"/>\n";
    svg += "<circle cx=\"" + number(now.left()) + "\" cy=\"" + number(now.middle(to)) +
           "\" r=\"4\" fill=\"#2962a8\"/>\n";
  }
  return svg + "</svg>\n";
}

}  // namespace tessarine::tool
