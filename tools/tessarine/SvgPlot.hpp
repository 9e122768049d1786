#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tessarine::tool {

/// Lines over one common axis, drawn as SVG: panels below one another, each with its own scale.
/// Labels carry their units. What is no number, or beyond 1e300, leaves a gap.
struct Plot {
  struct Series {
    std::string name;
    std::vector<std::pair<double, double>> points;
    bool isDashed = false;
  };
  struct Panel {
    std::string label;
    std::vector<Series> series;
  };
  std::string title;
  std::string xLabel;
  std::vector<Panel> panels;
};

/// The picture, with axes, ticks and a legend for each panel. It follows the reader's preference
/// for a light or a dark page and has a ground of its own, so it reads on either. Stands alone and
/// inside of HTML.
std::string svgPlot(const Plot& plot);

/// Writes `text` to `file`; throws `UsageError` when that fails.
void writeFile(const std::string& file, const std::string& text);

}  // namespace tessarine::tool
