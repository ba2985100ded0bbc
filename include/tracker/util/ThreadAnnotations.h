#pragma once

// Marks for clang's -Wthread-safety analysis: which mutex guards a member, which lock a helper
// requires. Other compilers ignore them; the clang build makes them count.

#if defined(__clang__)
#define TRACKER_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TRACKER_THREAD_ANNOTATION(x)
#endif

#define TRACKER_CAPABILITY(x) TRACKER_THREAD_ANNOTATION(capability(x))
#define TRACKER_SCOPED_CAPABILITY TRACKER_THREAD_ANNOTATION(scoped_lockable)
#define TRACKER_GUARDED_BY(x) TRACKER_THREAD_ANNOTATION(guarded_by(x))
#define TRACKER_PT_GUARDED_BY(x) TRACKER_THREAD_ANNOTATION(pt_guarded_by(x))
#define TRACKER_REQUIRES(...) TRACKER_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TRACKER_EXCLUDES(...) TRACKER_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define TRACKER_ACQUIRE(...) TRACKER_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRACKER_RELEASE(...) TRACKER_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRACKER_NO_THREAD_SAFETY_ANALYSIS TRACKER_THREAD_ANNOTATION(no_thread_safety_analysis)
