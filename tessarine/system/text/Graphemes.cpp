#include "tessarine/system/text/Graphemes.hpp"

#include <algorithm>
#include <memory>

#include <unicode/brkiter.h>
#include <unicode/utext.h>

namespace tessarine {
namespace {

std::vector<std::string_view> asciiClusters(std::string_view text) {
  std::vector<std::string_view> clusters;
  clusters.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t size = text.substr(i, 2) == "\r\n" ? 2 : 1;
    clusters.push_back(text.substr(i, size));
    i += size;
  }
  return clusters;
}

/// Making an iterator takes much longer than a typical text, so each thread keeps one.
struct KeptIterator {
  KeptIterator() {
    UErrorCode status = U_ZERO_ERROR;
    iterator.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  }
  std::unique_ptr<icu::BreakIterator> iterator;
};

icu::BreakIterator* iteratorOfThread() {
  thread_local const KeptIterator kept;
  // The analyzer ends the thread before the function.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
  return kept.iterator.get();
}

}  // namespace

std::vector<std::string_view> graphemeClusters(std::string_view text) {
  const bool isAscii = std::all_of(text.begin(), text.end(),
                                   [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  icu::BreakIterator* const iterator = isAscii ? nullptr : iteratorOfThread();
  if (iterator == nullptr) return asciiClusters(text);
  UErrorCode status = U_ZERO_ERROR;
  UText source = UTEXT_INITIALIZER;
  utext_openUTF8(&source, text.data(), static_cast<std::int64_t>(text.size()), &status);
  iterator->setText(&source, status);
  std::vector<std::string_view> clusters;
  if (U_SUCCESS(status)) {
    std::int32_t begin = iterator->first();
    for (std::int32_t end = iterator->next(); end != icu::BreakIterator::DONE;
         begin = end, end = iterator->next()) {
      clusters.push_back(
          text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin)));
    }
  }
  utext_close(&source);
  return clusters;
}

}  // namespace tessarine
