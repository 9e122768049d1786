#include "SvgDrawing.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "Markup.hpp"

namespace tessarine::tool {
namespace {

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
.tessarine-plot .thin { stroke-width: 1; }
.tessarine-plot .dot { fill: #fcfcfd; stroke-width: 1.5; }
.tessarine-plot .full { fill: currentColor; }
.tessarine-plot .killed { fill: #c2410c; fill-opacity: .2; }
.tessarine-plot .offline { fill: #5b6577; fill-opacity: .2; }
.tessarine-plot .c0 { stroke: #0b62a8; color: #0b62a8; }
.tessarine-plot .c1 { stroke: #c2410c; color: #c2410c; }
.tessarine-plot .c2 { stroke: #0f7b5f; color: #0f7b5f; }
.tessarine-plot .c3 { stroke: #8a3ffc; color: #8a3ffc; }
@media (prefers-color-scheme: dark) {
  .tessarine-plot .ground { fill: #14181f; }
  .tessarine-plot text { fill: #a3adbd; } .tessarine-plot .title { fill: #e6e9ef; }
  .tessarine-plot .grid { stroke: #2d3543; } .tessarine-plot .axis { stroke: #a3adbd; }
  .tessarine-plot .dot { fill: #14181f; } .tessarine-plot .full { fill: currentColor; }
  .tessarine-plot .killed { fill: #ff9b6a; } .tessarine-plot .offline { fill: #a3adbd; }
  .tessarine-plot .c0 { stroke: #6cb2f5; color: #6cb2f5; }
  .tessarine-plot .c1 { stroke: #ff9b6a; color: #ff9b6a; }
  .tessarine-plot .c2 { stroke: #4fd1a5; color: #4fd1a5; }
  .tessarine-plot .c3 { stroke: #c4a1ff; color: #c4a1ff; }
}
</style>
)";

}  // namespace

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

std::string tickText(double value) {
  std::array<char, 32> text{};
  // Twelve digits drop what the multiplication of the step has added.
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, 12)
          .ptr;
  return {text.data(), end};
}

std::string place(double value) {
  std::array<char, 32> text{};
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, 1).ptr;
  return {text.data(), end};
}

Drawing::Drawing(std::string_view title, double width, double height) {
  svg_ =
      "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"tessarine-plot\" role=\"img\" "
      "viewBox=\"0 0 " +
      place(width) + " " + place(height) + "\">\n<title>" + escapedMarkup(title) + "</title>\n";
  svg_ += style;
  svg_ += "<rect class=\"ground\" width=\"" + place(width) + "\" height=\"" + place(height) +
          "\" rx=\"6\"/>\n";
  text("title", 8, 22, title);
}

void Drawing::line(std::string_view kind, double x1, double y1, double x2, double y2) {
  svg_ += "<line class=\"" + std::string(kind) + "\" x1=\"" + place(x1) + "\" y1=\"" + place(y1) +
          "\" x2=\"" + place(x2) + "\" y2=\"" + place(y2) + "\"/>\n";
}

void Drawing::text(std::string_view kind, double x, double y, std::string_view words) {
  svg_ += "<text class=\"" + std::string(kind) + "\" x=\"" + place(x) + "\" y=\"" + place(y) +
          "\">" + escapedMarkup(words) + "</text>\n";
}

void Drawing::dot(std::string_view kind, double x, double y) {
  svg_ += "<circle class=\"dot " + std::string(kind) + "\" cx=\"" + place(x) + "\" cy=\"" +
          place(y) + "\" r=\"3\"/>\n";
}

void Drawing::area(std::string_view kind, double x, double y, double width, double height) {
  svg_ += "<rect class=\"" + std::string(kind) + "\" x=\"" + place(x) + "\" y=\"" + place(y) +
          "\" width=\"" + place(width) + "\" height=\"" + place(height) + "\"/>\n";
}

std::string Drawing::take() { return std::move(svg_) + "</svg>\n"; }

}  // namespace tessarine::tool
