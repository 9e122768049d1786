// tessarine form: what values look like as web forms.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Command.hpp"
#include "JsonValue.hpp"
#include "Lines.hpp"
#include "jsonOf.hpp"
#include "tessarine/web/URLEncodedFormEncoder.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

using Form = URLEncodedFormEncoder;

struct Options {
  Form::Options form;
  bool jsonl = false;
};

int encode(const Options& options) {
  const Form encoder(options.form);
  return runLines(options.jsonl, [&](const std::string& line) {
    std::string form = encoder.text(JsonValue::fromText(line));
    return options.jsonl ? jsonOf(form) : form;
  });
}

/// An option of the encoder that takes one of a few names.
template <class Value>
void addChoice(CLI::App& command, const char* name, const char* text,
               const std::shared_ptr<Options>& options, Value Form::Options::*member,
               std::vector<std::pair<const char*, Value>> choices) {
  std::vector<std::string> names;
  names.reserve(choices.size());
  for (const auto& choice : choices) names.emplace_back(choice.first);
  const auto choose = [options, member, choices = std::move(choices)](const std::string& given) {
    for (const auto& [choice, value] : choices) {
      if (given == choice) options->form.*member = value;
    }
  };
  command.add_option_function<std::string>(name, choose, text)->check(CLI::IsMember(names));
}

}  // namespace

void addForm(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const form = tool.add_subcommand("form", "Write values as web forms.");
  form->footer(R"(Example: echo '{"id": 7, "tags": ["a b", "c"]}' | tessarine form encode)");
  form->require_subcommand(1);

  auto* const command =
      form->add_subcommand("encode", "The form of each line of standard input, a JSON object.");
  command->footer(
      R"(Example: echo '{"userID": 7, "isNew": true}' | tessarine form encode --keys convertToSnakeCase --bools literal)");
  command->add_flag("--alphabetize", options->form.alphabetizeKeyValuePairs,
                    "Pairs in ascending order of their text");
  addChoice(*command, "--arrays", "Keys of list elements", options, &Form::Options::arrayEncoding,
            {{"brackets", Form::ArrayEncoding::brackets},
             {"noBrackets", Form::ArrayEncoding::noBrackets}});
  addChoice(*command, "--bools", "1 and 0, or true and false", options,
            &Form::Options::boolEncoding,
            {{"numeric", Form::BoolEncoding::numeric}, {"literal", Form::BoolEncoding::literal}});
  using Data = Form::DataEncoding;
  addChoice(*command, "--data", "Bytes; JSON has none", options, &Form::Options::dataEncoding,
            {{"deferred", Data::deferredToData}, {"base64", Data::base64}});
  using Date = Form::DateEncoding;
  addChoice(*command, "--dates", "Dates; JSON has none", options, &Form::Options::dateEncoding,
            {{"deferred", Date::deferredToDate},
             {"seconds", Date::secondsSince1970},
             {"milliseconds", Date::millisecondsSince1970},
             {"iso8601", Date::iso8601}});
  using Key = Form::KeyEncoding;
  addChoice(*command, "--keys", "What becomes of keys", options, &Form::Options::keyEncoding,
            {{"useDefaultKeys", Key::useDefaultKeys},
             {"convertToSnakeCase", Key::convertToSnakeCase},
             {"convertToKebabCase", Key::convertToKebabCase},
             {"capitalized", Key::capitalized},
             {"uppercased", Key::uppercased},
             {"lowercased", Key::lowercased}});
  using Space = Form::SpaceEncoding;
  addChoice(*command, "--spaces", "%20 or +", options, &Form::Options::spaceEncoding,
            {{"percentEscaped", Space::percentEscaped}, {"plusReplaced", Space::plusReplaced}});
  command->add_flag("--jsonl", options->jsonl, "Output lines are JSON texts");
  command->callback([&exit, options] { exit = encode(*options); });
}

}  // namespace tessarine::tool
