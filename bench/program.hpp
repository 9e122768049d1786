#pragma once

// What the main functions of the programs have in common.

#include <cstdio>
#include <cstdlib>

#include <benchmark/benchmark.h>

namespace {

/// Registers the rows, runs those that the arguments ask for, then calls `finish` and leaves at
/// once: threads of the peers and of the library run on, and leaving by `return` would destroy what
/// they use. Returns only to refuse the arguments.
int runRows(
    int& argc, char** argv, void (*registerRows)(), void (*finish)() = [] {}) {
#ifndef NDEBUG
  std::puts("WARNING: a debug build; its figures mean nothing");
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerRows();
  benchmark::RunSpecifiedBenchmarks();
  finish();
  std::fflush(stdout);
  std::_Exit(0);
}

}  // namespace
