/// Clang thread-safety annotations: which lock guards what, checked by the clang-ts build, empty elsewhere.
#pragma once

#if defined(__clang__)
#define VEXA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VEXA_THREAD_ANNOTATION(x)
#endif

#define VEXA_CAPABILITY(name) VEXA_THREAD_ANNOTATION(capability(name))
#define VEXA_SCOPED_CAPABILITY VEXA_THREAD_ANNOTATION(scoped_lockable)
#define VEXA_GUARDED_BY(lock) VEXA_THREAD_ANNOTATION(guarded_by(lock))
#define VEXA_REQUIRES(...) VEXA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VEXA_EXCLUDES(...) VEXA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VEXA_ACQUIRE(...) VEXA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VEXA_RELEASE(...) VEXA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VEXA_ACQUIRED_BEFORE(...) VEXA_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define VEXA_NO_THREAD_SAFETY_ANALYSIS VEXA_THREAD_ANNOTATION(no_thread_safety_analysis)
