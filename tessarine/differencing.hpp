#pragma once

/// What changed between two collections, and between two snapshots of a table with sections.

#include "tessarine/differencing/CollectionChange.hpp"
#include "tessarine/differencing/CollectionChanges.hpp"
#include "tessarine/differencing/Diffable.hpp"
#include "tessarine/differencing/Difference.hpp"
#include "tessarine/differencing/DifferenceEngine.hpp"
#include "tessarine/differencing/Diffing.hpp"
#include "tessarine/differencing/HashTable.hpp"
#include "tessarine/differencing/IdentifierIndex.hpp"
#include "tessarine/differencing/IndexSet.hpp"
#include "tessarine/differencing/ShortestEdit.hpp"
#include "tessarine/differencing/SnapshotMatching.hpp"
#include "tessarine/differencing/TablePlan.hpp"
#include "tessarine/differencing/textForm.hpp"
