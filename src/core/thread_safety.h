// Which mutex guards what, checked by clang (-Wthread-safety). Other compilers see nothing.
#pragma once

#if defined(__clang__)
#define DDAL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define DDAL_THREAD_SAFETY(attribute)
#endif

#define DDAL_CAPABILITY(kind) DDAL_THREAD_SAFETY(capability(kind))
#define DDAL_SCOPED_CAPABILITY DDAL_THREAD_SAFETY(scoped_lockable)
#define DDAL_GUARDED_BY(mutex) DDAL_THREAD_SAFETY(guarded_by(mutex))
#define DDAL_REQUIRES(...) DDAL_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define DDAL_ACQUIRE(...) DDAL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define DDAL_RELEASE(...) DDAL_THREAD_SAFETY(release_capability(__VA_ARGS__))
// For a function whose locking the checker cannot follow. A comment at its use says why.
#define DDAL_UNCHECKED_LOCKING DDAL_THREAD_SAFETY(no_thread_safety_analysis)
