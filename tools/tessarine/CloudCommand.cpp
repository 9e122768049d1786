// tessarine cloud: keep a preference domain in step with other machines.
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Command.hpp"
#include "DateText.hpp"
#include "PreferenceRows.hpp"
#include "tessarine/preferences.hpp"
#include "tessarine/system/dispatch/MainQueue.hpp"
#include "tessarine/system/store/NSUbiquitousKeyValueStore.hpp"
#include "tessarine/system/store/NotificationCenter.hpp"

#include <CLI/CLI.hpp>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tessarine::tool {
namespace {

struct Options {
  std::string directory;
  std::string suite;
  std::string hub;
  std::string user;
  std::vector<std::string> keys;
  bool follow = false;
};

void signIn(const Options& options) try {
  if (!options.directory.empty()) UserDefaults::setDirectory(options.directory);
  CloudAccount::signIn({.user = options.user, .hub = options.hub});
} catch (const std::invalid_argument& error) {
  throw UsageError(error.what());
}

NSUbiquitousKeyValueStore& store() { return *NSUbiquitousKeyValueStore::defaultStore(); }

std::string textOf(const std::optional<Date>& date) {
  return date ? isoText(*date).value_or("") : "";
}

// ---- sync ----

/// Runs what waits on the main queue and on that of the controller. Whether anything did.
bool settle(const UbiquitousController& controller) {
  static_cast<void>(controller.observedKeys());  // waits for what its queue holds
  return MainQueue::drain() > 0;
}

/// Says which writes the cloud store refuses for their size or number.
NotificationCenter::Token tellRefusals(std::atomic<bool>& isRefused) {
  return NotificationCenter::defaultCenter().addObserver(
      NSUbiquitousKeyValueStoreDidChangeExternallyNotification, &store(),
      [&isRefused](const Notification& notification) {
        constexpr auto quota =
            static_cast<int>(NSUbiquitousKeyValueStoreChangeReason::quotaViolationChange);
        const auto& info = notification.userInfo;
        if (dynamicCast<int>(info.at(NSUbiquitousKeyValueStoreChangeReasonKey)) != quota) return;
        isRefused = true;
        using Keys = std::vector<std::string>;
        const auto keys = dynamicCast<Keys>(info.at(NSUbiquitousKeyValueStoreChangedKeysKey));
        for (const auto& key : keys.value_or(Keys())) {
          if (key.find('.') != std::string::npos || key == "udcDate") continue;  // its dates
          std::fprintf(stderr, "tessarine: past the limits of the cloud store: %s\n", key.c_str());
        }
      });
}

/// Until a signal comes.
void follow(const sigset_t& signals) {
  const int interruption = ::signalfd(-1, &signals, SFD_CLOEXEC);
  std::array<pollfd, 2> files{
      {{interruption, POLLIN, 0}, {MainQueue::fileDescriptor(), POLLIN, 0}}};
  while (::poll(files.data(), files.size(), -1) >= 0 && (files[0].revents & POLLIN) == 0) {
    MainQueue::drain();
  }
  ::close(interruption);
}

int sync(const Options& options, bool hasSuite) {
  // Blocked before the library starts its threads, so that only this one takes them.
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  if (options.follow) pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  signIn(options);
  if (hasSuite && !UserDefaults::suite(options.suite)) {
    throw UsageError("no domain can have that name: " + options.suite);
  }
  const auto controller = UbiquitousController::controller(
      hasSuite ? std::optional(options.suite) : std::nullopt, true);
  controller->setVesperline({[](const std::string& text, LogType type) {
                               if (type == LogType::error) throw UsageError(text);
                               if (text.find(": Synchronized key") != std::string::npos) {
                                 printLine(text);
                                 std::cout.flush();  // whoever follows has it now
                               }
                             },
                             {LogType::debug, LogType::error}});
  controller->setDebugEnabled(options.follow);
  std::atomic<bool> isRefused = false;
  const auto refusals = tellRefusals(isRefused);
  controller->startObserving(options.keys);
  NSUbiquitousKeyValueStore::Exchange exchange;
  do {
    exchange = store().exchange();
    while (settle(*controller)) continue;
  } while (exchange.error.empty() && (exchange.received > 0 || store().status().waiting > 0));
  if (options.follow) {
    follow(signals);
    return Exit::done;
  }
  const bool isDone = exchange.error.empty() && !isRefused;
  return isDone && controller->localDefaults()->synchronize() ? Exit::done : Exit::negative;
}

// ---- status and list ----

int status(const Options& options) {
  signIn(options);
  CloudAccount::signOut();  // the pairs are this user's now; nothing is to be exchanged
  const auto status = store().status();
  printLine("user\t" + options.user);
  printLine("hub\t" + options.hub);
  printLine("waiting\t" + std::to_string(status.waiting));
  printLine("last exchange\t" + textOf(status.lastExchange));
  return Exit::done;
}

int list(const Options& options) {
  signIn(options);
  const auto exchange = store().exchange();
  constexpr std::string_view dateKey = "udcDate";
  const auto pairs = store().dictionaryRepresentation();
  for (const auto& [key, value] : *pairs) {
    const std::string_view name = key;
    if (name == dateKey) continue;
    const bool isDate = name.starts_with("udcDate.");
    const std::string valueKey(isDate ? name.substr(dateKey.size() + 1) : name);
    if (isDate && pairs->contains(valueKey)) continue;  // told with its value
    const auto dated = pairs->find(std::string(dateKey) + "." + valueKey);
    printLine(rowOf(valueKey, isDate ? std::nullopt : std::optional(value)) + "\t" +
              textOf(dated != pairs->end() ? dynamicCast<Date>(dated->second) : std::nullopt));
  }
  return exchange.error.empty() ? Exit::done : Exit::negative;
}

}  // namespace

void addCloud(CLI::App& tool, int& exit) {
  auto options = std::make_shared<Options>();
  auto* const cloud =
      tool.add_subcommand("cloud", "Keep preferences in step with a user's other machines.");
  const std::string common = "tessarine cloud --dir /tmp/one --hub file:/tmp/hub --user ann ";
  cloud->footer("Example: " + common + "sync fontSize");
  cloud->require_subcommand(1);
  cloud->add_option("--dir", options->directory, "Folder of the domains (default: the user's own)");
  auto* const suite = cloud->add_option("--suite", options->suite, "Name of the domain");
  cloud->add_option("--hub", options->hub, "Where the machines meet: file:PATH")->required();
  cloud->add_option("--user", options->user, "Whose machines")->required();

  auto* const syncCommand = cloud->add_subcommand(
      "sync", "Bring keys into step, first what was written while nobody watched them.");
  syncCommand->footer("Example: " + common + "sync fontSize");
  syncCommand->add_option("keys", options->keys)->required();
  syncCommand->add_flag("--follow", options->follow,
                        "Go on until interrupted, a line for each import and export");
  syncCommand->callback([&exit, options, suite] { exit = sync(*options, suite->count() > 0); });

  auto* const statusCommand = cloud->add_subcommand(
      "status", "Print the account, how many keys wait to be sent, and the last exchange.");
  statusCommand->footer("Example: " + common + "status");
  statusCommand->callback([&exit, options] { exit = status(*options); });

  auto* const listCommand =
      cloud->add_subcommand("list", "Print key, kind, value and date of the cloud store's pairs.");
  listCommand->footer("Example: " + common + "list");
  listCommand->callback([&exit, options] { exit = list(*options); });
}

}  // namespace tessarine::tool
