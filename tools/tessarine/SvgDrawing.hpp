#pragma once

#include <string>
#include <string_view>

namespace tessarine::tool {

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
Scale scaleFor(double low, double high, int wanted);

/// A number as it stands at a tick.
std::string tickText(double value);

/// A coordinate, with a tenth of a unit.
std::string place(double value);

/// An SVG picture in the making. It follows the reader's preference for a light or a dark page and
/// has a ground of its own, so it reads on either. Kinds are the classes of its style: "grid",
/// "axis", "line", "dashed", "dot", "full" for what is filled, "killed" and "offline" for shades,
/// "c0" to "c3" for colours; "title", "middle", "end" for texts.
class Drawing {
 public:
  Drawing(std::string_view title, double width, double height);

  void line(std::string_view kind, double x1, double y1, double x2, double y2);
  void text(std::string_view kind, double x, double y, std::string_view words);
  void dot(std::string_view kind, double x, double y);
  void area(std::string_view kind, double x, double y, double width, double height);
  void raw(std::string_view markup) { svg_ += markup; }
  /// The whole picture.
  std::string take();

 private:
  std::string svg_;
};

}  // namespace tessarine::tool
