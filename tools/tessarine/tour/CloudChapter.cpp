#include "tour/CloudChapter.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tessarine/preferences.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/EmbeddedCloudHub.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tour/Process.hpp"
#include "tour/TimelinePicture.hpp"

#include <poll.h>
#include <unistd.h>

namespace tessarine::tool {
namespace {

const std::vector<std::string> keys{"fontSize", "theme", "zoom"};
const std::vector<std::string> machineNames{"one", "two"};
constexpr std::size_t one = 0;
constexpr std::size_t two = 1;
constexpr auto user = "ann";

std::int64_t monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

// ---- a machine ----

/// In one call, as two threads tell.
template <class... Parts>
void tell(const Parts&... parts) {
  std::ostringstream line;
  ((line << parts << ' '), ...);
  std::puts(line.str().c_str());
  std::fflush(stdout);
}

/// The hub, telling each batch that has reached it.
class ToldHub final : public EmbeddedCloudHub {
 public:
  using EmbeddedCloudHub::EmbeddedCloudHub;
  void push(std::span<const CloudEntry> entries) override {
    EmbeddedCloudHub::push(entries);
    tell("batch", entries.size());
  }
};

/// Does what the chapter says, a line each:
///
///     write KEY NUMBER    answered by "wrote TIME", and by "dated" once the cloud store has it
///     leave, join         out of the account, and in again
///     state               answered by "state WAITING NUMBER..."
///
/// and prints "shown NUMBER TIME" for each change by the other machine.
class Machine {
 public:
  explicit Machine(const std::string& directory)
      : hub_(std::filesystem::path(directory).parent_path() / "hub") {
    UserDefaults::setDirectory(directory);
    domain_ = UserDefaults::standard();
    controller_ = UbiquitousController::shared();
    for (const auto& key : keys) {
      observations_.push_back(domain_->observe(key, [this](const ChangeDictionary& change) {
        const auto number = dynamicCast<std::int64_t>(change.at(NSKeyValueChangeNewKey));
        if (number && *number != own_) tell("shown", *number, monotonicNow());
      }));
    }
    join();
    controller_->setVesperline({{}, {}});
    controller_->startObserving(keys);
    tell("ready", monotonicNow());
  }

  void obey(std::istringstream order) {
    std::string what;
    order >> what;
    if (what == "write") {
      std::size_t key = 0;
      order >> key >> own_;
      const auto time = monotonicNow();
      domain_->set(own_, keys[key]);
      tell("wrote", time);
      static_cast<void>(controller_->observedKeys());  // waits for what its queue holds
      tell("dated");
    } else if (what == "leave") {
      CloudAccount::signOut();
      tell("left", monotonicNow());
    } else if (what == "join") {
      join();
      tell("joined", monotonicNow());
    } else if (what == "state") {
      std::ostringstream state;
      state << NSUbiquitousKeyValueStore::defaultStore()->status().waiting;
      for (const auto& key : keys) {
        state << ' ' << dynamicCast<std::int64_t>(domain_->object(key)).value_or(0);
      }
      tell("state", state.str());
    }
  }

 private:
  void join() const {
    CloudAccount::signIn({.user = user, .hub = "file:" + hub_},
                         std::make_shared<ToldHub>(hub_, user));
  }

  const std::string hub_;
  std::shared_ptr<UserDefaults> domain_;
  std::shared_ptr<UbiquitousController> controller_;
  std::vector<std::shared_ptr<void>> observations_;
  std::int64_t own_ = 0;  // the last number written here
};

// ---- the chapter's side ----

/// One run of it: two machines, and what they said.
class Run {
 public:
  explicit Run(std::string directory) : directory_(std::move(directory)), begin_(monotonicNow()) {
    timeline_.title = "Two machines, three keys";
    timeline_.machines = machineNames;
    timeline_.keys = keys;
    start(one);
    start(two);
    begin_ = monotonicNow();
  }

  /// Returns when the write has its place in the order of all.
  void write(std::size_t machine, std::size_t key) {
    order(machine, key);
    await(machine, "dated");
  }

  /// Ends the machine as soon as a write of it has returned.
  void killInWrite(std::size_t machine, std::size_t key) {
    order(machine, key);
    processes_[machine]->kill();
    beginOutage(machine, true, seconds(monotonicNow()));
    while (const auto line = processes_[machine]->line()) note(machine, *line);
  }
  void restart(std::size_t machine) { endOutage(machine, start(machine)); }

  void leave(std::size_t machine) {
    processes_[machine]->say("leave");
    beginOutage(machine, false, await(machine, "left"));
  }
  void join(std::size_t machine) {
    processes_[machine]->say("join");
    endOutage(machine, await(machine, "joined"));
  }

  /// Waits until both hold the same and nothing is left to send. Whether that is what was written
  /// last.
  bool settle() {
    std::string wanted = "0 ";
    for (const auto number : latest_) wanted.append(std::to_string(number)).append(" ");
    constexpr double longest = 10;  // seconds
    const double begin = seconds(monotonicNow());
    while (seconds(monotonicNow()) - begin < longest) {
      const bool isInStep = state(one) == wanted && state(two) == wanted;
      if (isInStep) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }

  const Timeline& timeline() const { return timeline_; }
  std::size_t batches() const { return batches_; }
  std::size_t pairs() const { return pairs_; }

 private:
  double seconds(std::int64_t time) const { return static_cast<double>(time - begin_) * 1e-9; }

  double start(std::size_t machine) {
    processes_[machine] = std::make_unique<Process>(
        std::vector<std::string>{"tour-role", "machine", directory_ + "/" + machineNames[machine]});
    return await(machine, "ready");
  }

  /// Has the machine write, and waits until that has returned.
  void order(std::size_t machine, std::size_t key) {
    const auto number = static_cast<std::int64_t>(timeline_.writes.size()) + 1;
    processes_[machine]->say("write " + std::to_string(key) + " " + std::to_string(number));
    timeline_.writes.push_back({machine, key, 0});
    timeline_.writes.back().time = await(machine, "wrote");
    latest_[key] = number;
  }

  std::string state(std::size_t machine) {
    processes_[machine]->say("state");
    await(machine, "state");
    return answer_;
  }

  /// Reads on to a line that begins with `what`. The time in it, if it has one.
  double await(std::size_t machine, std::string_view what) {
    while (const auto line = processes_[machine]->line()) {
      if (note(machine, *line) == what) return seconds(std::strtoll(answer_.c_str(), nullptr, 10));
    }
    throw std::runtime_error("machine " + machineNames[machine] + " has ended by itself");
  }

  /// What the line is about; the rest of it is the answer.
  std::string note(std::size_t machine, const std::string& line) {
    std::istringstream words(line);
    std::string what;
    words >> what >> std::ws;
    if (what == "shown") {
      std::size_t number = 0;
      std::int64_t time = 0;
      words >> number >> time;
      timeline_.displays.push_back({timeline_.writes.at(number - 1), machine, seconds(time)});
    } else if (what == "batch") {
      std::size_t count = 0;
      words >> count;
      ++batches_;
      pairs_ += count;
    } else {
      std::getline(words, answer_);
    }
    return what;
  }

  void beginOutage(std::size_t machine, bool isDeath, double from) {
    timeline_.outages.push_back({machine, isDeath, from, from});
  }
  void endOutage(std::size_t machine, double to) {
    for (auto& outage : timeline_.outages) {
      if (outage.machine == machine && outage.to == outage.from) outage.to = to;
    }
  }

  const std::string directory_;
  std::int64_t begin_;
  std::array<std::unique_ptr<Process>, 2> processes_;
  Timeline timeline_;
  std::array<std::int64_t, 3> latest_{};
  std::string answer_;
  std::size_t batches_ = 0;
  std::size_t pairs_ = 0;
};

/// Lets both machines, or one, write for so many seconds.
void writeForAWhile(Run& run, double seconds, std::optional<std::size_t> only = std::nullopt) {
  static std::mt19937 random(std::random_device{}());
  std::uniform_int_distribution<std::size_t> anyMachine(one, two);
  // While the other one is away the last key is left alone, so that its last write has to stay.
  std::uniform_int_distribution<std::size_t> anyKey(0, keys.size() - (only ? 2 : 1));
  std::uniform_int_distribution<int> pause(20, 60);  // milliseconds
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    run.write(only.value_or(anyMachine(random)), anyKey(random));
    std::this_thread::sleep_for(std::chrono::milliseconds(pause(random)));
  }
}

bool play(Run& run) {
  writeForAWhile(run, 1);
  run.killInWrite(two, 2);
  writeForAWhile(run, 0.6, one);
  run.restart(two);
  bool isInStep = run.settle();
  writeForAWhile(run, 0.8);
  run.leave(one);
  writeForAWhile(run, 0.8);
  // Of the first key the other machine's write is the later one, of the second its own.
  const std::array<std::pair<std::size_t, std::size_t>, 4> last{
      {{one, 0}, {two, 0}, {two, 1}, {one, 1}}};
  for (const auto& [machine, key] : last) {
    run.write(machine, key);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
  }
  run.join(one);
  isInStep = run.settle() && isInStep;
  writeForAWhile(run, 0.8);
  return run.settle() && isInStep;
}

// ---- what came of it ----

/// Whether a machine was away between the two times.
bool isDisturbed(const Timeline& timeline, double from, double to) {
  return std::any_of(timeline.outages.begin(), timeline.outages.end(),
                     [&](const auto& outage) { return outage.from <= to && from <= outage.to; });
}

void describe(Report& report, const Run& run, bool isInStep) {
  const Timeline& timeline = run.timeline();
  std::vector<double> online;
  double longestAway = 0;
  for (const auto& display : timeline.displays) {
    const double latency = display.time - display.write.time;
    if (isDisturbed(timeline, display.write.time, display.time)) {
      longestAway = std::max(longestAway, latency);
    } else {
      online.push_back(latency * 1e3);
    }
  }
  std::sort(online.begin(), online.end());
  report.text(
      "Two machines of one user, here two processes with folders of their own, meet at a hub in a "
      "file. Both write the same three keys. One is killed with SIGKILL as soon as a write of it "
      "has returned, and started again; the other one signs out for a while, and both go on "
      "writing. The later write of a key has to stay, whichever arrives first.");
  report.figure(svgTimeline(timeline),
                "A line goes from each write to the moment at which an observer on the other "
                "machine was called with it. What was written again before it could be shown has "
                "no line.");
  std::vector<Report::Row> rows{
      {"Measured here", ""},
      {"Writes", std::to_string(timeline.writes.size())},
      {"Shown by the other machine", std::to_string(timeline.displays.size())},
      {"Of them while both were there", std::to_string(online.size())}};
  if (!online.empty()) {
    rows.push_back({"From such a write to its display, median, milliseconds",
                    fixed(online[(online.size() - 1) / 2], 1)});
    rows.push_back({"The longest of them, milliseconds", fixed(online.back(), 1)});
  }
  rows.push_back(
      {"The longest over a death or an absence, milliseconds", fixed(longestAway * 1e3, 0)});
  rows.push_back({"Batches that went to the hub", std::to_string(run.batches())});
  rows.push_back({"Values and dates in them", std::to_string(run.pairs())});
  rows.push_back(
      {"Both in step, with the last write of each key, after the death, after the "
       "absence and at the end",
       isInStep ? "yes" : "no"});
  report.table(rows);
}

}  // namespace

void playMachine(const std::string& directory) {
  Machine machine(directory);
  std::array<pollfd, 2> files{
      {{STDIN_FILENO, POLLIN, 0}, {MainQueue::fileDescriptor(), POLLIN, 0}}};
  std::string heard;
  while (::poll(files.data(), files.size(), -1) >= 0) {
    MainQueue::drain();
    if (files[0].revents == 0) continue;
    std::array<char, 256> bytes{};
    const auto count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count <= 0) return;
    heard.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = 0; (end = heard.find('\n')) != std::string::npos;) {
      machine.obey(std::istringstream(heard.substr(0, end)));
      heard.erase(0, end + 1);
    }
  }
}

bool writeCloudChapter(Report& report, const std::string& directory) {
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  report.chapter("Two machines that come into step");
  Run run(directory);
  const bool isInStep = play(run);
  describe(report, run, isInStep);
  return isInStep;
}

}  // namespace tessarine::tool
