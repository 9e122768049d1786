#pragma once

#include <cstdint>

namespace tessarine {

/// One step of a shortest edit script, in offsets of the two sequences.
struct Edit {
  bool isRemoval = false;
  std::int64_t offset = 0;  // in the old sequence for a removal, in the new one for an insertion

  bool operator==(const Edit&) const = default;
};

}  // namespace tessarine
