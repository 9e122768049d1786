#pragma once

#include <functional>
#include <string>

namespace tessarine::tool {

/// Answers each line of standard input by a line. What `answer` throws is told in the line's place,
/// as "! reason", or as {"error": "reason"} with `jsonl`, and makes the exit status that is given
/// `Exit::unusable`.
int runLines(bool jsonl, const std::function<std::string(const std::string& line)>& answer);

}  // namespace tessarine::tool
