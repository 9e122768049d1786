#include "tour/TimelinePicture.hpp"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace tessarine::tool {
namespace {

TEST(TimelinePicture, DrawsWhatHappenedWhereAndWhen) {
  const Timeline::Write write{0, 1, 2};
  const std::string svg = svgTimeline({.title = "<t>",
                                       .machines = {"one", "two"},
                                       .keys = {"a", "b"},
                                       .writes = {write, {1, 0, 10}},
                                       .displays = {{write, 1, 4}},
                                       .outages = {{1, true, 5, 6}}});
  // 130 to 700 stand for 0 to 10 s. The rows of the lanes lie at 77, 95 and 193, 211.
  for (const std::string_view part :
       {"<title>&lt;t&gt;</title>", "class=\"dot full c1\" cx=\"244.0\" cy=\"95.0\"",
        "class=\"dot full c0\" cx=\"700.0\" cy=\"193.0\"",
        "class=\"dot c1\" cx=\"358.0\" cy=\"211.0\"",
        "class=\"line thin c1\" x1=\"244.0\" y1=\"95.0\" x2=\"358.0\" y2=\"211.0\"",
        "class=\"killed\" x=\"415.0\" y=\"178.0\" width=\"57.0\" height=\"48.0\""}) {
    EXPECT_NE(svg.find(part), std::string::npos) << part << '\n' << svg;
  }
}

TEST(TimelinePicture, NothingIsAPictureToo) {
  const std::string svg = svgTimeline({});
  EXPECT_TRUE(svg.ends_with("</svg>\n"));
  EXPECT_EQ(svg.find("nan"), std::string::npos);
  EXPECT_EQ(svg.find("inf"), std::string::npos);
}

}  // namespace
}  // namespace tessarine::tool
