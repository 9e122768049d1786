// tessarine animate: curves, tweens, springs and throws as tables and pictures.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Command.hpp"
#include "MotionRun.hpp"
#include "SvgPlot.hpp"
#include "tessarine/animation.hpp"

#include <CLI/CLI.hpp>

namespace tessarine::tool {
namespace {

struct Options {
  std::string from, to, velocity, curve, svg, mode;
  std::string duration, tension, damping, threshold, drag, frame, seconds, epsilon, multiple;
  std::vector<std::string> at, retargets;
  int samples = 101;
  bool jsonl = false;
};

// ---- numbers ----

/// The shortest text that reads back equal.
std::string numberText(double value) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::optional<double> numberFrom(std::string_view text) {
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) return std::nullopt;
  return value;
}

double number(const char* option, const std::string& text) {
  const auto value = numberFrom(text);
  if (!value) throw UsageError(std::string("no number for ") + option + ": " + text);
  return *value;
}

double numberOr(double usual, const char* option, const std::string& text) {
  return text.empty() ? usual : number(option, text);
}

/// All numbers of a text with commas; absent when one is none.
std::optional<std::vector<double>> numbersFrom(const std::string& text) {
  std::vector<double> numbers;
  std::size_t begin = 0;
  for (;;) {
    const std::size_t comma = text.find(',', begin);
    const auto value = numberFrom(std::string_view(text).substr(begin, comma - begin));
    if (!value) return std::nullopt;
    numbers.push_back(*value);
    if (comma == std::string::npos) return numbers;
    begin = comma + 1;
  }
}

MotionInput::Lanes lanes(const char* option, const std::string& text) {
  auto numbers = numbersFrom(text);
  if (!numbers || (numbers->size() != 1 && numbers->size() != 2 && numbers->size() != 4))
    throw UsageError(std::string(option) + " takes 1, 2 or 4 numbers with commas: " + text);
  return *std::move(numbers);
}

MotionInput::Lanes lanes(const char* option, const std::string& text,
                         const MotionInput::Lanes& like) {
  auto numbers = lanes(option, text);
  if (numbers.size() != like.size())
    throw UsageError(std::string(option) + " has not as many numbers as --from: " + text);
  return numbers;
}

TimingFunction curveFrom(const std::string& text) {
  const std::pair<const char*, TimingFunction> names[] = {
      {"linear", TimingFunction::linear()},
      {"swiftOut", TimingFunction::swiftOut()},
      {"easeIn", TimingFunction::easeIn()},
      {"easeOut", TimingFunction::easeOut()},
      {"easeInEaseOut", TimingFunction::easeInEaseOut()},
      {"easeInOut", TimingFunction::easeInOut()},
      {"ease", TimingFunction::ease()},
      {"ease-in", TimingFunction::easeIn()},
      {"ease-out", TimingFunction::easeOut()},
      {"ease-in-out", TimingFunction::easeInOut()}};
  for (const auto& [name, curve] : names)
    if (text == name) return curve;
  const auto numbers = numbersFrom(text);
  if (!numbers || numbers->size() != 4) throw UsageError("no curve: " + text);
  return {(*numbers)[0], (*numbers)[1], (*numbers)[2], (*numbers)[3]};
}

// ---- curve ----

int curve(const Options& options) {
  const TimingFunction timing = curveFrom(options.curve);
  const double epsilon = numberOr(1e-6, "--epsilon", options.epsilon);
  if (options.samples < 2 || options.samples > 1'000'000)
    throw UsageError("--samples takes 2 to 1000000: " + std::to_string(options.samples));
  Plot::Series series{.name = options.curve, .points = {}};
  for (int i = 0; i < options.samples; ++i) {
    const double x = static_cast<double>(i) / (options.samples - 1);
    series.points.emplace_back(x, timing.solve(x, epsilon));
  }
  auto printed = series.points;
  if (!options.at.empty()) printed.clear();
  for (const auto& text : options.at) {
    const double x = number("--at", text);
    printed.emplace_back(x, timing.solve(x, epsilon));
  }
  std::cout << "x,y\n";
  for (const auto& [x, y] : printed) std::cout << numberText(x) << ',' << numberText(y) << '\n';
  if (!options.svg.empty())
    writeFile(options.svg, svgPlot({.title = "Timing curve " + options.curve,
                                    .xLabel = "x: part of the time",
                                    .panels = {{"y: part of the way", {series}}}}));
  return Exit::done;
}

// ---- motions ----

MotionInput inputFrom(const Options& options) {
  MotionInput input;
  input.from = lanes("--from", options.from);
  if (!options.to.empty()) input.to = lanes("--to", options.to, input.from);
  if (!options.velocity.empty()) input.velocity = lanes("--velocity", options.velocity, input.from);
  input.frame = numberOr(1.0 / 60.0, "--frame", options.frame);
  if (!(input.frame > 0) || !std::isfinite(input.frame))
    throw UsageError("--frame takes seconds above 0: " + options.frame);
  if (!options.seconds.empty()) {
    input.seconds = number("--seconds", options.seconds);
    if (!(*input.seconds >= 0)) throw UsageError("--seconds is below 0: " + options.seconds);
  }
  input.threshold = numberOr(Spring<double>::defaultThreshold, "--threshold", options.threshold);
  return input;
}

void printRows(const MotionRun& run) {
  const std::size_t count = run.rows.front().value.size();
  std::cout << "time";
  for (const char* const name : {"value", "velocity"})
    for (std::size_t lane = 1; lane <= count; ++lane) {
      std::cout << ',' << name;
      if (count > 1) std::cout << lane;
    }
  std::cout << '\n';
  for (const auto& row : run.rows) {
    std::cout << numberText(row.time);
    for (const auto* const lanes : {&row.value, &row.velocity})
      for (const double lane : *lanes) std::cout << ',' << numberText(lane);
    std::cout << '\n';
  }
}

/// Without an end that was asked for, a motion that does not rest is a negative answer.
int finish(const Options& options, const MotionInput& input, const MotionRun& run,
           const std::string& title, const std::vector<std::pair<double, double>>& target = {}) {
  printRows(run);
  if (!options.svg.empty()) writeFile(options.svg, svgPlot(motionPlot(title, run, target)));
  if (run.rests || input.seconds) return Exit::done;
  std::cerr << "tessarine: does not come to rest in time, --seconds sets an end: "
            << numberText(run.rows.back().time) << " s\n";
  return Exit::negative;
}

int tween(const Options& options) {
  MotionInput input = inputFrom(options);
  input.duration = number("--duration", options.duration);
  input.curve = curveFrom(options.curve);
  return finish(options, input, runTween(input),
                "Tween over " + options.duration + " s, " + options.curve);
}

MotionInput::Retarget retargetFrom(const std::string& text, const MotionInput& input) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) throw UsageError("--retarget takes T:V: " + text);
  const double time = number("--retarget", text.substr(0, colon));
  if (!std::isfinite(time)) throw UsageError("--retarget takes a finite time: " + text);
  return {time, lanes("--retarget", text.substr(colon + 1), input.from)};
}

int spring(const Options& options) {
  MotionInput input = inputFrom(options);
  input.tension = numberOr(Spring<double>::defaultTension, "--tension", options.tension);
  input.damping = numberOr(Spring<double>::defaultDamping, "--damping", options.damping);
  for (const auto& text : options.retargets) input.retargets.push_back(retargetFrom(text, input));
  std::stable_sort(input.retargets.begin(), input.retargets.end(),
                   [](const auto& a, const auto& b) { return a.time < b.time; });
  const MotionRun run = runSpring(input);
  std::vector<std::pair<double, double>> target;
  if (input.from.size() == 1) {
    double at = input.to[0];
    target.emplace_back(0, at);
    for (const auto& retarget : input.retargets) {
      target.emplace_back(retarget.time, at);
      at = retarget.target[0];
      target.emplace_back(retarget.time, at);
    }
    target.emplace_back(std::max(target.back().first, run.rows.back().time), at);
  }
  return finish(options, input, run,
                "Spring, tension " + numberText(input.tension) + " /s\u00b2, damping " +
                    numberText(input.damping) + " /s",
                target);
}

int decay(const Options& options) {
  constexpr double usualDrag = 3;
  MotionInput input = inputFrom(options);
  input.drag = numberOr(usualDrag, "--drag", options.drag);
  return finish(options, input, runDecay(input), "Throw, drag " + numberText(input.drag) + " /s");
}

// ---- round ----

using Rounding = double (*)(double, double) noexcept;

const std::pair<const char*, Rounding> roundings[] = {{"nearest", roundedToNearest},
                                                      {"towardZero", roundedTowardZero},
                                                      {"awayFromZero", roundedAwayFromZero},
                                                      {"down", roundedDown},
                                                      {"up", roundedUp}};

/// One number a line; what is none is told in its place and makes the status.
int round(const Options& options) {
  Rounding rounding = nullptr;
  for (const auto& [name, function] : roundings)
    if (options.mode == name) rounding = function;
  const double multiple = number("MULTIPLE", options.multiple);
  int exit = Exit::done;
  for (std::string line; std::getline(std::cin, line);) {
    if (line.ends_with('\r')) line.pop_back();
    const auto value = numberFrom(line);
    if (!value || (options.jsonl && !std::isfinite(*value))) {
      std::cout << (options.jsonl ? "{\"error\": \"no number\"}\n" : "! no number\n");
      exit = Exit::unusable;
      continue;
    }
    const double rounded = rounding(*value, multiple);
    std::cout << (options.jsonl && !std::isfinite(rounded) ? "null" : numberText(rounded)) << '\n';
  }
  return exit;
}

void addRound(CLI::App& animate, int& exit, const std::shared_ptr<Options>& options) {
  auto* const command = animate.add_subcommand(
      "round", "Round each number of standard input, one a line, to a multiple.");
  command->footer("Example: printf '22.5\\n7.5\\n' | tessarine animate round nearest 15");
  std::vector<std::string> names;
  for (const auto& [name, function] : roundings) names.emplace_back(name);
  command->add_option("mode", options->mode, "How")->required()->check(CLI::IsMember(names));
  command->add_option("multiple", options->multiple, "Of what")->required();
  command->add_flag("--jsonl", options->jsonl, "Lines are JSON values");
  command->callback([&exit, options] { exit = round(*options); });
}

}  // namespace

void addAnimate(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const animate =
      tool.add_subcommand("animate", "Curves and motions as tables and pictures.");
  animate->footer("Example: tessarine animate spring --from 0 --to 100 --svg spring.svg");
  animate->require_subcommand(1);

  const auto add = [&exit, animate, options](const char* name, const char* text,
                                             const char* example, int (*run)(const Options&)) {
    auto* const command = animate->add_subcommand(name, text);
    command->footer(std::string("Example: tessarine animate ") + example);
    command->add_option("--svg", options->svg, "Draw it to this file");
    command->callback([&exit, options, run] { exit = run(*options); });
    return command;
  };
  constexpr auto curveText =
      "linear, swiftOut, easeIn, easeOut, easeInEaseOut, ease, ease-in, ease-out, ease-in-out, or "
      "X1,Y1,X2,Y2";

  auto* const curveCommand = add("curve", "Print the points of a timing curve as CSV.",
                                 "curve swiftOut --at 0.25 --at 0.5", curve);
  curveCommand->add_option("curve", options->curve, curveText)->required();
  curveCommand->add_option("--at", options->at, "Only at this x; may be given again")
      ->allow_extra_args(false);
  curveCommand->add_option("--epsilon", options->epsilon, "Tolerance in x (default: 1e-6)");
  curveCommand->add_option("--samples", options->samples, "Points from 0 to 1 (default: 101)");

  const auto addMotion = [&](const char* name, const char* text, const char* example,
                             int (*run)(const Options&)) {
    auto* const command = add(name, text, example, run);
    command->add_option("--from", options->from, "Start: 1, 2 or 4 numbers with commas")
        ->required();
    command->add_option("--frame", options->frame, "Seconds a frame (default: 1/60)");
    command->add_option("--seconds", options->seconds, "Frames up to there (default: until rest)");
    return command;
  };
  auto* const tweenCommand =
      addMotion("tween", "Print the frames of a tween as CSV.",
                "tween --from 0 --to 100 --duration 0.5 --curve easeInEaseOut", tween);
  tweenCommand->add_option("--to", options->to, "End")->required();
  tweenCommand->add_option("--duration", options->duration, "Seconds")->required();
  tweenCommand->add_option("--curve", options->curve, curveText)->required();

  auto* const springCommand =
      addMotion("spring", "Print the frames of a spring as CSV.",
                "spring --from 0,0 --to 100,50 --retarget 0.3:0,80", spring);
  springCommand->add_option("--to", options->to, "Target")->required();
  springCommand->add_option("--velocity", options->velocity, "At the start, a second (default: 0)");
  springCommand->add_option("--tension", options->tension, "Default: 120");
  springCommand->add_option("--damping", options->damping, "Default: 12");
  springCommand->add_option("--threshold", options->threshold, "Default: 0.1");
  springCommand
      ->add_option("--retarget", options->retargets, "T:V, from second T on; may be given again")
      ->allow_extra_args(false);

  auto* const decayCommand = addMotion("decay", "Print the frames of a throw as CSV.",
                                       "decay --from 0 --velocity 800 --drag 4", decay);
  decayCommand->add_option("--velocity", options->velocity, "At the start, a second")->required();
  decayCommand->add_option("--drag", options->drag, "Default: 3");
  decayCommand->add_option("--threshold", options->threshold, "Default: 0.1");

  addRound(*animate, exit, options);
}

}  // namespace tessarine::tool
