/// Clang thread-safety annotations: which lock guards what, checked by the clang-ts build, empty elsewhere.
#pragma once

#if defined(__clang__)
/// For the annotations below alone.
#define VEXA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VEXA_THREAD_ANNOTATION(x)
#endif

/// A class that is a lock; `name` stands in warnings.
#define VEXA_CAPABILITY(name) VEXA_THREAD_ANNOTATION(capability(name))
/// A class that holds a lock for the life of a scope.
#define VEXA_SCOPED_CAPABILITY VEXA_THREAD_ANNOTATION(scoped_lockable)
/// A member that is read and written only while the lock is held.
#define VEXA_GUARDED_BY(lock) VEXA_THREAD_ANNOTATION(guarded_by(lock))
/// A function that is called only while the locks are held.
#define VEXA_REQUIRES(...) VEXA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// A function that takes the locks itself: its caller does not hold them.
#define VEXA_EXCLUDES(...) VEXA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// A function after which the locks are held.
#define VEXA_ACQUIRE(...) VEXA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// A function after which the locks are free.
#define VEXA_RELEASE(...) VEXA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// A lock that is taken before the others where both are.
#define VEXA_ACQUIRED_BEFORE(...) VEXA_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
/// A function that does what the analysis cannot follow; a comment says what.
#define VEXA_NO_THREAD_SAFETY_ANALYSIS VEXA_THREAD_ANNOTATION(no_thread_safety_analysis)
