#pragma once

#include <string>

#include "tour/Report.hpp"

namespace tessarine::tool {

/// What the processes that the chapter starts do, in the folder of domains at `directory`.
void watchPositions(const std::string& directory);
void writeBurst(const std::string& directory);
void printBurst(const std::string& directory);

/// Typed preferences on a real store: an accessor with cache, mirror and alternate value; a watcher
/// in another process; a writer that is killed again and again, and what is found of its writes.
/// False when an acknowledged write is missing. `directory` is emptied first.
bool writePreferencesChapter(Report& report, const std::string& directory);

}  // namespace tessarine::tool
