#include "SvgPlot.hpp"

#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessarine::tool {
namespace {

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

std::string plotOf(std::vector<std::pair<double, double>> points) {
  return svgPlot({.title = "t", .xLabel = "x", .panels = {{"y", {{"s", std::move(points)}}}}});
}

TEST(SvgPlot, DrawsEachSeriesBetweenRoundTicks) {
  const std::string svg = svgPlot(
      {.title = "<A & B>",
       .xLabel = "time (s)",
       .panels = {{"way (m)", {{"one", {{0, 0}, {1, 97}}}, {"two", {{0, 5}, {1, 6}}, true}}},
                  {"speed", {{"three", {{0, 1}, {0.5, 2}}}}}}});
  EXPECT_EQ(count(svg, "<path class=\"line"), 3U);
  EXPECT_EQ(count(svg, "<path class=\"line c1 dashed\""), 1U);
  for (const char* const part : {"&lt;A &amp; B&gt;", ">time (s)<", ">way (m)<", ">one<", ">two<",
                                 ">100<", ">80<", ">0.4<", "prefers-color-scheme: dark"})
    EXPECT_NE(svg.find(part), std::string::npos) << part;
  EXPECT_NE(svg.find("d=\"M70.0 252.0 L700.0 "), std::string::npos) << svg;
}

TEST(SvgPlot, AnyPointsMakeAPicture) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double greatest = std::numeric_limits<double>::max();
  EXPECT_EQ(count(plotOf({{0, 0}, {1, nan}, {2, 1}, {3, 2}}), " M"), 1U) << "a gap";
  for (const auto& points :
       std::vector<std::vector<std::pair<double, double>>>{{},
                                                           {{nan, infinity}},
                                                           {{0, 5}},
                                                           {{0, 0}, {1, 0}},
                                                           {{0, -greatest}, {1, greatest}},
                                                           {{1, 1e-320}, {1, 2e-320}},
                                                           {{1e300, 1}, {1e300 * 1.0000001, 2}}}) {
    const std::string svg = plotOf(points);
    EXPECT_LT(svg.size(), 20'000U);
    EXPECT_EQ(svg.find("nan"), std::string::npos) << svg;
    EXPECT_EQ(svg.find("inf"), std::string::npos) << svg;
  }
}

}  // namespace
}  // namespace tessarine::tool
