#pragma once

#include <string>

#include "tour/Report.hpp"

namespace tessarine::tool {

/// What the processes that the chapter starts do: a machine whose domains lie at `directory`, its
/// hub beside that.
void playMachine(const std::string& directory);

/// Two machines that write the same keys, one killed in between, one signed out for a while, with a
/// picture of what was written and shown when. False when they are not in step at the end, or what
/// stayed is not what was written last. `directory` is emptied first.
bool writeCloudChapter(Report& report, const std::string& directory);

}  // namespace tessarine::tool
