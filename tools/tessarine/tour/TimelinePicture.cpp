#include "tour/TimelinePicture.hpp"

#include <algorithm>

#include "SvgDrawing.hpp"

namespace tessarine::tool {
namespace {

constexpr double width = 720;
constexpr double left = 130;
constexpr double right = width - 20;
constexpr double top = 68;
constexpr double rowHeight = 18;
constexpr double laneGap = 80;
constexpr double footHeight = 56;
constexpr double padding = 6;

std::string colour(std::size_t key) { return std::string("c").append(std::to_string(key % 4)); }

class Picture {
 public:
  explicit Picture(const Timeline& timeline)
      : timeline_(timeline),
        laneHeight_(rowHeight * static_cast<double>(timeline.keys.size())),
        bottom_(top + (laneHeight_ + laneGap) * static_cast<double>(timeline.machines.size()) -
                laneGap),
        times_(scaleFor(0, lastTime(timeline), 10)),
        drawing_(timeline.title, width, bottom_ + footHeight) {}

  std::string draw() {
    legend();
    axis();
    for (std::size_t machine = 0; machine < timeline_.machines.size(); ++machine) lane(machine);
    for (const auto& outage : timeline_.outages) shade(outage);
    for (const auto& display : timeline_.displays) {
      const auto& write = display.write;
      drawing_.line("line thin " + colour(write.key), x(write.time), y(write.machine, write.key),
                    x(display.time), y(display.machine, write.key));
    }
    for (const auto& display : timeline_.displays) {
      drawing_.dot(colour(display.write.key), x(display.time),
                   y(display.machine, display.write.key));
    }
    for (const auto& write : timeline_.writes) {
      drawing_.dot("full " + colour(write.key), x(write.time), y(write.machine, write.key));
    }
    return drawing_.take();
  }

 private:
  static double lastTime(const Timeline& timeline) {
    double last = 0;
    for (const auto& write : timeline.writes) last = std::max(last, write.time);
    for (const auto& display : timeline.displays) last = std::max(last, display.time);
    for (const auto& outage : timeline.outages) last = std::max(last, outage.to);
    return last;
  }

  double x(double time) const { return left + times_.part(time) * (right - left); }
  double laneTop(std::size_t machine) const {
    return top + static_cast<double>(machine) * (laneHeight_ + laneGap);
  }
  double y(std::size_t machine, std::size_t key) const {
    return laneTop(machine) + rowHeight * (static_cast<double>(key) + 0.5);
  }

  void legend() {
    double place = left;
    const auto entry = [&](const char* words, double wide) {
      drawing_.text("key", place + 18, 48, words);
      place += wide;
    };
    drawing_.dot("full c0", place + 8, 44);
    entry("written", 90);
    drawing_.dot("c0", place + 8, 44);
    entry("shown by the other machine", 224);
    drawing_.area("killed", place - 2, 38, 16, 12);
    entry("killed", 84);
    drawing_.area("offline", place - 2, 38, 16, 12);
    entry("offline", 0);
  }

  void axis() {
    for (int i = 0; i <= times_.steps; ++i) {
      const double tick = x(times_.tick(i));
      drawing_.line("grid", tick, top - padding, tick, bottom_ + padding);
      drawing_.text("middle", tick, bottom_ + 22, tickText(times_.tick(i)));
    }
    drawing_.line("axis", left, bottom_ + padding, right, bottom_ + padding);
    drawing_.text("middle", (left + right) / 2, bottom_ + 44, "time (s)");
  }

  void lane(std::size_t machine) {
    drawing_.text("title", 8, y(machine, 0) + 4, timeline_.machines[machine]);
    for (std::size_t key = 0; key < timeline_.keys.size(); ++key) {
      drawing_.text("end", left - 8, y(machine, key) + 4, timeline_.keys[key]);
      drawing_.line("axis", left, y(machine, key), right, y(machine, key));
    }
  }

  void shade(const Timeline::Outage& outage) {
    drawing_.area(outage.isDeath ? "killed" : "offline", x(outage.from),
                  laneTop(outage.machine) - padding, x(outage.to) - x(outage.from),
                  laneHeight_ + 2 * padding);
  }

  const Timeline& timeline_;
  const double laneHeight_;
  const double bottom_;
  const Scale times_;
  Drawing drawing_;
};

}  // namespace

std::string svgTimeline(const Timeline& timeline) { return Picture(timeline).draw(); }

}  // namespace tessarine::tool
