#pragma once

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>

namespace tessarine::detail {

/// A thread that takes no signals, as those are the host's. Not joinable if the system has none
/// left. `name` has up to 15 characters.
template <class Body>
std::thread makeQuietThread(const char* name, Body body) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread;
  try {
    thread = std::thread([name, body = std::move(body)] {
      pthread_setname_np(pthread_self(), name);
      body();
    });
  } catch (const std::system_error&) {  // none left
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

/// Starts one that nobody waits for. False if the system has none left.
template <class Body>
bool startQuietThread(const char* name, Body body) {
  std::thread thread = makeQuietThread(name, std::move(body));
  if (!thread.joinable()) return false;
  thread.detach();
  return true;
}

}  // namespace tessarine::detail
