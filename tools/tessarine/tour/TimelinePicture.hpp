#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tessarine::tool {

/// What happened to values on several machines, over time: a lane for each machine with a row for
/// each key. Times are seconds, machines and keys their places in the lists.
struct Timeline {
  struct Write {
    std::size_t machine;
    std::size_t key;
    double time;
  };
  /// A written value became visible on another machine.
  struct Display {
    Write write;
    std::size_t machine;
    double time;
  };
  struct Outage {
    std::size_t machine;
    bool isDeath;  // else: without the hub
    double from;
    double to;
  };
  std::string title;
  std::vector<std::string> machines;
  std::vector<std::string> keys;
  std::vector<Write> writes;
  std::vector<Display> displays;
  std::vector<Outage> outages;
};

/// The picture, with an axis in seconds and a legend, for light and dark pages.
std::string svgTimeline(const Timeline& timeline);

}  // namespace tessarine::tool
