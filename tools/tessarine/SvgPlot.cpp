#include "SvgPlot.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>

#include "Command.hpp"
#include "Markup.hpp"

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

// Colours that differ for the colour-blind too, with enough contrast to either ground.
// Written out for either, as not every reader knows variables.
constexpr std::string_view style = R"(<style>
.tessarine-plot .ground { fill: #fcfcfd; }
.tessarine-plot text { font: 12px system-ui, sans-serif; fill: #5b6577; text-anchor: start; }
.tessarine-plot .title { font-weight: 600; font-size: 14px; fill: #1d2433; }
.tessarine-plot .middle { text-anchor: middle; }
.tessarine-plot .end { text-anchor: end; }
.tessarine-plot .grid { stroke: #e3e7ee; stroke-width: 1; }
.tessarine-plot .axis { stroke: #5b6577; stroke-width: 1; fill: none; }
.tessarine-plot .line { stroke-width: 2; fill: none; stroke-linejoin: round; }
.tessarine-plot .dashed { stroke-dasharray: 5 4; stroke-width: 1.5; }
.tessarine-plot .c0 { stroke: #0b62a8; } .tessarine-plot .c1 { stroke: #c2410c; }
.tessarine-plot .c2 { stroke: #0f7b5f; } .tessarine-plot .c3 { stroke: #8a3ffc; }
@media (prefers-color-scheme: dark) {
  .tessarine-plot .ground { fill: #14181f; }
  .tessarine-plot text { fill: #a3adbd; } .tessarine-plot .title { fill: #e6e9ef; }
  .tessarine-plot .grid { stroke: #2d3543; } .tessarine-plot .axis { stroke: #a3adbd; }
  .tessarine-plot .c0 { stroke: #6cb2f5; } .tessarine-plot .c1 { stroke: #ff9b6a; }
  .tessarine-plot .c2 { stroke: #4fd1a5; } .tessarine-plot .c3 { stroke: #c4a1ff; }
}
</style>
)";

std::string place(double value) {
  std::array<char, 32> text{};
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, 1).ptr;
  return {text.data(), end};
}

/// A round number as it stands at a tick.
std::string tickText(double value) {
  std::array<char, 32> text{};
  // Twelve digits drop what the multiplication of the step has added.
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 12)
          .ptr;
  return {text.data(), end};
}

/// What an axis shows, from one round number to another.
struct Scale {
  double low;
  double step;
  int steps;

  double high() const { return low + step * steps; }
  double tick(int number) const { return low + step * number; }
  /// Where `value` lies between 0 and 1.
  double part(double value) const { return (value - low) / (step * steps); }
};

/// A scale of about `wanted` steps of 1, 2 or 5 that covers `low` to `high`.
Scale scaleFor(double low, double high, int wanted) {
  // What is flat is shown with room around it.
  if (!(high > low)) {
    low -= low == 0 ? 1 : std::fabs(low) / 2;
    high += high == 0 ? 1 : std::fabs(high) / 2;
  }
  // Finer ticks would be the same doubles.
  const double finest = std::max(std::max(std::fabs(low), std::fabs(high)) * 1e-12, 1e-300);
  const double rough = std::max((high - low) / wanted, finest);
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  double step = power * 10;
  for (const double factor : {5.0, 2.0, 1.0})
    if (power * factor >= rough) step = power * factor;
  const double first = std::floor(low / step + 1e-9);
  const double last = std::ceil(high / step - 1e-9);
  return {first * step, step, std::max(1, static_cast<int>(last - first))};
}

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

class Drawing {
 public:
  void line(const char* kind, double x1, double y1, double x2, double y2) {
    svg_ += "<line class=\"" + std::string(kind) + "\" x1=\"" + place(x1) + "\" y1=\"" + place(y1) +
            "\" x2=\"" + place(x2) + "\" y2=\"" + place(y2) + "\"/>\n";
  }

  void text(const char* kind, double x, double y, std::string_view words) {
    svg_ += "<text class=\"" + std::string(kind) + "\" x=\"" + place(x) + "\" y=\"" + place(y) +
            "\">" + escapedMarkup(words) + "</text>\n";
  }

  void raw(std::string_view markup) { svg_ += markup; }
  std::string take() { return std::move(svg_); }

 private:
  std::string svg_;
};

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
    drawing.line(lineKind(series, i).c_str(), key - 28, top + 10, key - 6, top + 10);
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
  Drawing drawing;
  drawing.raw(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"tessarine-plot\" role=\"img\" "
      "viewBox=\"0 0 " +
      place(width) + " " + place(height) + "\">\n<title>" + escapedMarkup(plot.title) +
      "</title>\n");
  drawing.raw(style);
  drawing.raw("<rect class=\"ground\" width=\"" + place(width) + "\" height=\"" + place(height) +
              "\" rx=\"6\"/>\n");
  drawing.text("title", 8, 22, plot.title);
  const Scale xs = scaleOf(plot.panels, 8, [](const auto& point) { return point.first; });
  double top = titleHeight;
  for (const auto& panel : plot.panels) {
    drawPanel(drawing, panel, xs, top);
    top += panelHeight;
  }
  drawing.text("middle", (left + right) / 2, height - 12, plot.xLabel);
  drawing.raw("</svg>\n");
  return drawing.take();
}

void writeFile(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary);
  stream << text;
  stream.close();
  if (!stream) throw UsageError("cannot be written: " + file);
}

}  // namespace tessarine::tool
