#pragma once

/// Marks what the shared library offers to hosts; everything else stays hidden in it.
#define TESSARINE_EXPORT __attribute__((visibility("default")))

/// All that the library offers.
namespace tessarine {}
