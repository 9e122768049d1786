#pragma once

/// Clang's thread-safety annotations, empty for compilers without them. A declaration says with
/// `TESSARINE_GUARDED_BY(mutex)` which lock a field needs, and the debug build proves it.
#if defined(__clang__)
#define TESSARINE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TESSARINE_THREAD_ANNOTATION(x)
#endif

#define TESSARINE_CAPABILITY(name) TESSARINE_THREAD_ANNOTATION(capability(name))
#define TESSARINE_SCOPED_CAPABILITY TESSARINE_THREAD_ANNOTATION(scoped_lockable)
#define TESSARINE_GUARDED_BY(lock) TESSARINE_THREAD_ANNOTATION(guarded_by(lock))
#define TESSARINE_REQUIRES(...) TESSARINE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TESSARINE_EXCLUDES(...) TESSARINE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define TESSARINE_ACQUIRE(...) TESSARINE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TESSARINE_NO_THREAD_SAFETY_ANALYSIS TESSARINE_THREAD_ANNOTATION(no_thread_safety_analysis)
#define TESSARINE_RELEASE(...) TESSARINE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
