#pragma once

#include <csignal>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace tessarine::detail {

/// Starts a thread that takes no signals, as those are the host's. False if the system has none
/// left.
template <class Body>
bool startQuietThread(const char* name, Body body) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  bool started = true;
  try {
    std::thread([name, body] {
      pthread_setname_np(pthread_self(), name);
      body();
    }).detach();
  } catch (const std::system_error&) {
    started = false;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

}  // namespace tessarine::detail
