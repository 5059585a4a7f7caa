#pragma once

// Qt's thread pool and futures hand work to a pool thread and back under Qt's own futex-based
// locks, which ThreadSanitizer cannot see into (Debian's Qt is not instrumented): every value
// passed that way reads to it as a race. Where our code hands data to a pool task and takes the
// task's results back, these state that same order to ThreadSanitizer; in other builds they are
// nothing. Call handOff() on the side that gives, before the hand-off, and takeOver() on the side
// that receives, after it, both with the same address.
#if defined(__SANITIZE_THREAD__)
#define KV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KV_THREAD_SANITIZER 1
#endif
#endif

#ifdef KV_THREAD_SANITIZER
extern "C" void __tsan_acquire(void *addr);
extern "C" void __tsan_release(void *addr);
#endif

namespace OV {

inline void handOff([[maybe_unused]] const void *token)
{
#ifdef KV_THREAD_SANITIZER
    __tsan_release(const_cast<void *>(token));
#endif
}

inline void takeOver([[maybe_unused]] const void *token)
{
#ifdef KV_THREAD_SANITIZER
    __tsan_acquire(const_cast<void *>(token));
#endif
}

} // namespace OV
