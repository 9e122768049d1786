#include "Lines.hpp"

#include <algorithm>
#include <exception>
#include <iostream>
#include <utility>

#include "Command.hpp"
#include "jsonOf.hpp"
#include "tessarine/coding/codingFields.hpp"

namespace tessarine::tool {
namespace {

struct Reason {
  std::string error;
  static constexpr auto codingFields = fields(field("error", &Reason::error));
};

std::string refusal(std::string reason, bool jsonl) {
  if (jsonl) return jsonOf(Reason{std::move(reason)});
  // It may quote the input, and has one line.
  std::replace_if(
      reason.begin(), reason.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return "! " + reason;
}

}  // namespace

int runLines(bool jsonl, const std::function<std::string(const std::string& line)>& answer) {
  int exit = Exit::done;
  for (std::string line; std::getline(std::cin, line);) {
    std::string text;
    try {
      text = answer(line);
    } catch (const std::exception& error) {
      exit = Exit::unusable;
      text = refusal(error.what(), jsonl);
    }
    std::cout << text << '\n';
  }
  std::cout.flush();
  return exit;
}

}  // namespace tessarine::tool
