#pragma once

#include <vector>

#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/differencing/TablePlan.hpp"

namespace tessarine {

/// Whether every step is valid on the list as the steps before left it, deleted sections being
/// empty, and the last leaves the new snapshot. Looks at the steps' positions alone. Time in the
/// order of the steps times their logarithm, and of the sections and runs.
bool replaysToNewSnapshot(const SnapshotMatching& matching, const std::vector<TableStep>& steps);

}  // namespace tessarine
