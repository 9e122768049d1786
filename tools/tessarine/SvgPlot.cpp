#include "SvgPlot.hpp"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>

#include "Command.hpp"
#include "SvgDrawing.hpp"

namespace tessarine::tool {
namespace {

constexpr double width = 720;
constexpr double left = 70;
constexpr double right = width - 20;
constexpr double titleHeight = 36;
constexpr double legendHeight = 26;
constexpr double plotHeight = 190;
constexpr double panelHeight = legendHeight + plotHeight + 24;
constexpr double footHeight = 34;

/// Also false for what is no number. Differences of larger ones would be infinite.
bool isDrawn(const std::pair<double, double>& point) {
  constexpr double largest = 1e300;
  return std::fabs(point.first) <= largest && std::fabs(point.second) <= largest;
}

/// The scale of one coordinate over all series of `panels`.
template <class Coordinate>
Scale scaleOf(const std::vector<Plot::Panel>& panels, int wanted, Coordinate coordinate) {
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (const auto& panel : panels)
    for (const auto& series : panel.series)
      for (const auto& point : series.points) {
        if (!isDrawn(point)) continue;
        low = std::min(low, coordinate(point));
        high = std::max(high, coordinate(point));
      }
  return low > high ? Scale{0, 1, 1} : scaleFor(low, high, wanted);
}

std::string lineKind(const Plot::Series& series, std::size_t number) {
  return "line c" + std::to_string(number % 4) + (series.isDashed ? " dashed" : "");
}

void drawSeries(Drawing& drawing, const Plot::Series& series, const std::string& kind,
                const Scale& xs, const Scale& ys, double top) {
  std::string path;
  bool isOpen = false;
  for (const auto& point : series.points) {
    if (!isDrawn(point)) {
      isOpen = false;
      continue;
    }
    path += isOpen ? " L" : " M";
    path += place(left + xs.part(point.first) * (right - left)) + " " +
            place(top + (1 - ys.part(point.second)) * plotHeight);
    isOpen = true;
  }
  if (!path.empty()) drawing.raw("<path class=\"" + kind + "\" d=\"" + path.substr(1) + "\"/>\n");
}

void drawPanel(Drawing& drawing, const Plot::Panel& panel, const Scale& xs, double top) {
  const Scale ys = scaleOf({panel}, 5, [](const auto& point) { return point.second; });
  drawing.text("label", 8, top + 14, panel.label);
  // The legend stands in one line, from the right end backwards.
  double key = right;
  for (std::size_t i = panel.series.size(); i-- > 0;) {
    const auto& series = panel.series[i];
    key -= 7.0 * static_cast<double>(series.name.size()) + 12;
    drawing.text("key", key, top + 14, series.name);
    drawing.line(lineKind(series, i), key - 28, top + 10, key - 6, top + 10);
    key -= 34;
  }
  const double ground = top + legendHeight;
  for (int i = 0; i <= ys.steps; ++i) {
    const double y = ground + (1 - ys.part(ys.tick(i))) * plotHeight;
    drawing.line("grid", left, y, right, y);
    drawing.text("end", left - 8, y + 4, tickText(ys.tick(i)));
  }
  for (int i = 0; i <= xs.steps; ++i) {
    const double x = left + xs.part(xs.tick(i)) * (right - left);
    drawing.line("grid", x, ground, x, ground + plotHeight);
    drawing.text("middle", x, ground + plotHeight + 17, tickText(xs.tick(i)));
  }
  drawing.raw("<path class=\"axis\" d=\"M" + place(left) + " " + place(ground) + " V" +
              place(ground + plotHeight) + " H" + place(right) + "\"/>\n");
  for (std::size_t i = 0; i < panel.series.size(); ++i)
    drawSeries(drawing, panel.series[i], lineKind(panel.series[i], i), xs, ys, ground);
}

}  // namespace

std::string svgPlot(const Plot& plot) {
  const double height =
      titleHeight + panelHeight * static_cast<double>(plot.panels.size()) + footHeight;
  Drawing drawing(plot.title, width, height);
  const Scale xs = scaleOf(plot.panels, 8, [](const auto& point) { return point.first; });
  double top = titleHeight;
  for (const auto& panel : plot.panels) {
    drawPanel(drawing, panel, xs, top);
    top += panelHeight;
  }
  drawing.text("middle", (left + right) / 2, height - 12, plot.xLabel);
  return drawing.take();
}

void writeFile(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw UsageError("cannot be written: " + file);
}

}  // namespace tessarine::tool
