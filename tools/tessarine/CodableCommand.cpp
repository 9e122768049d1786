// tessarine codable: loosely typed values, and JSON documents as such.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Command.hpp"
#include "Lines.hpp"
#include "jsonOf.hpp"
#include "tessarine/codable/CodableAnyHashable.hpp"
#include "tessarine/system/json/JSONDecoder.hpp"
#include "tessarine/system/json/JSONSerialization.hpp"
#include "tessarine/system/time/ISO8601DateFormatter.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

struct Options {
  std::vector<std::string> files;
  bool pretty = false;
  bool jsonl = false;
};

/// A value with the name of its type, and so on inside.
struct Classified {
  const AnyHashable& value;

  void encode(Encoder& encoder) const {
    auto container = encoder.container();
    const auto put = [&](const char* type, const auto& shown) {
      container.encode(type, "type");
      container.encode(shown, "value");
    };
    if (const auto uuid = value.cast<UUID>()) return put("UUID", uuid->uuidString());
    if (const auto elements = value.cast<AnyHashable::Array>()) {
      container.encode("Array", "type");
      auto list = container.nestedUnkeyedContainer("value");
      for (const AnyHashable& element : *elements) list.encode(Classified{element});
      return;
    }
    if (const auto pairs = value.cast<AnyHashable::Dictionary>()) {
      container.encode("Dictionary", "type");
      auto members = container.nestedContainer("value");
      for (const auto& [key, element] : *pairs) members.encode(Classified{element}, key);
      return;
    }
    const PreferenceObject& object = *value.preferenceObject();
    if (object.string() != nullptr) return put("String", *object.string());
    if (object.data() != nullptr) return put("Data", object.data()->base64EncodedString());
    if (object.date() != nullptr) {
      return put("Date", ISO8601DateFormatter::shared().string(*object.date()));
    }
    const NSNumber& number = *object.number();
    if (number.kind() == NSNumber::Kind::boolean) return put("Bool", number.boolValue());
    if (number.isFloat()) return put("Double", number.doubleValue());
    if (number.kind() == NSNumber::Kind::signedInteger) return put("Int", number.integerValue());
    put("Int", number.unsignedIntegerValue());
  }
};

int classify(const Options& options) {
  return runLines(options.jsonl, [&](const std::string& line) {
    return jsonOf(Classified{JSONDecoder().decode<CodableAnyHashable>(line).value()},
                  options.pretty);
  });
}

int reencode(const Options& options) {
  return runLines(options.jsonl, [&](const std::string& line) {
    return jsonOf(JSONDecoder().decode<CodableAnyHashable>(line), options.pretty);
  });
}

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text;
  std::array<char, 65536> part{};
  while (file) {
    file.read(part.data(), part.size());
    text.append(part.data(), static_cast<std::size_t>(file.gcount()));
  }
  if (!file.eof()) return std::nullopt;
  return text;
}

int check(const Options& options) {
  int exit = Exit::done;
  for (const std::string& path : options.files) {
    const auto text = contentsOf(path);
    if (!text) {
      std::fprintf(stderr, "tessarine: the file cannot be read: %s\n", path.c_str());
      std::cout << "error: the file cannot be read\n";
      exit = Exit::unusable;
      continue;
    }
    try {
      JSONSerialization::validate(Data::fromText(*text));
      std::cout << "ok\n";
    } catch (const DecodingError& error) {
      std::cout << "error: " << error.what() << '\n';
      exit = std::max<int>(exit, Exit::negative);
    }
  }
  std::cout.flush();
  return exit;
}

}  // namespace

void addCodable(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const codable =
      tool.add_subcommand("codable", "Read JSON as loosely typed values, or check it.");
  codable->footer(R"(Example: echo '["2024-05-01T12:34:56Z", 7]' | tessarine codable classify)");
  codable->require_subcommand(1);
  const auto addLines = [&](const char* name, const char* text, const char* example,
                            int (*run)(const Options&)) {
    auto* const command = codable->add_subcommand(name, text);
    command->footer(std::string("Example: ") + example);
    command->add_flag("--pretty", options->pretty, "JSON on several lines");
    command->add_flag("--jsonl", options->jsonl, "Reasons of refused lines as JSON too");
    command->callback([&exit, options, run] { exit = run(*options); });
  };
  addLines("classify", "The type that each line of standard input, a JSON value, is read as.",
           R"(echo '{"id": "test", "size": 1.5}' | tessarine codable classify)", classify);
  addLines("reencode", "Each line of standard input, a JSON value, read and written again.",
           R"(echo '{"b": 1.0, "a": "2024-05-01T14:34:56+02:00"}' | tessarine codable reencode)",
           reencode);

  auto* const checkCommand =
      codable->add_subcommand("check", "Whether each file is one JSON document: ok, or why not.");
  checkCommand->footer(
      "Example: echo '[1, 2]' > /tmp/list.json && tessarine codable check /tmp/list.json");
  checkCommand->add_option("file", options->files, "JSON file")->required();
  checkCommand->callback([&exit, options] { exit = check(*options); });
}

}  // namespace tessarine::tool
