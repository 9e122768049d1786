#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessarine::tool {

/// A page of chapters that opens without anything else: texts, tables and pictures. Everything that
/// is handed in is escaped, but for a picture's markup.
class Report {
 public:
  using Row = std::vector<std::string>;

  void chapter(std::string_view title);
  void text(std::string_view paragraph);
  /// The first row is the head, the first column what the rows are about.
  void table(const std::vector<Row>& rows);
  /// A bar for each value, its label below it and the value above.
  void bars(std::string_view caption, const std::vector<std::pair<std::string, double>>& values);
  /// A picture as `svgPlot` draws it.
  void figure(std::string_view svg, std::string_view caption);

  std::string page(std::string_view title) const;

 private:
  std::string body_;
};

/// `value` with that many digits behind the point.
std::string fixed(double value, int digits);

}  // namespace tessarine::tool
