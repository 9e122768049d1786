#pragma once

// Under sanitizers a part of the cases stands for all.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TESSARINE_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TESSARINE_TEST_SANITIZED 1
#endif
#endif

namespace tessarine::test {

#ifdef TESSARINE_TEST_SANITIZED
inline constexpr int thoroughness = 1;
#else
inline constexpr int thoroughness = 20;
#endif

}  // namespace tessarine::test
