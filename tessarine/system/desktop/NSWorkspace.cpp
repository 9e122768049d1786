#include "tessarine/system/desktop/NSWorkspace.hpp"

namespace tessarine {

NSWorkspace& NSWorkspace::shared() {
  static auto& workspace = *new NSWorkspace;  // statics of hosts may outlive ours
  return workspace;
}

}  // namespace tessarine
