#pragma once

#include <string>
#include <utility>
#include <vector>

#include "JsonTable.hpp"

namespace tessarine::tool {

/// Two snapshots side by side, the old one left, and what happened between them.
struct SnapshotPicture {
  const JsonTable& old;
  const JsonTable& now;
  std::vector<IndexPath> deleted;                      // in the old one
  std::vector<IndexPath> inserted;                     // in the new one
  std::vector<IndexPath> updated;                      // in the new one
  std::vector<std::pair<IndexPath, IndexPath>> moved;  // (old, new)
};

/// The picture as SVG 1.1: deleted rows red, inserted ones green, updated ones with a bar, moves as
/// curves.
std::string svgOf(const SnapshotPicture& picture);

}  // namespace tessarine::tool
