// The order that a parallel loop of oneTBB guarantees, told to the thread
// sanitizer: what the caller did before the loop happens before every body,
// and every body happens before what the caller does after it. oneTBB keeps
// these promises inside its own library, which is not instrumented, so the
// sanitizer cannot see them and would take every hand-over of data between
// the caller and the bodies for a race. Bodies stay unordered among
// themselves, so races between them are still found. In other builds this
// is nothing.
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ARBOLIN_TELL_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define ARBOLIN_TELL_TSAN 1
#endif

#ifdef ARBOLIN_TELL_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace arbolin {

// A loop body that tells the order. The caller makes it just before the loop
// (after all it hands over) and keeps it until the loop has ended, by return
// or by exception; oneTBB calls it, or copies of it, on any thread.
//
// The two points are fixed addresses, not members: a body must reach its
// point before it reads anything, its own members included. One pair serves
// every loop of a kind of body. Loops of one kind that run at once (the
// predictor loops of the nodes of a layer) then look more ordered than they
// are, which can hide a race between them but never reports a false one.
template <class Body>
class ForkJoinBody {
public:
    explicit ForkJoinBody(const Body& body) noexcept : body_(body) { release(&forkPoint); }
    ~ForkJoinBody() { acquire(&joinPoint); }
    ForkJoinBody(const ForkJoinBody&) = default;
    ForkJoinBody& operator=(const ForkJoinBody&) = delete;

    template <class Item>
    void operator()(Item item) const {
        acquire(&forkPoint);
        Leaving leaving;
        body_(item);
    }

private:
    struct Leaving {
        ~Leaving() { release(&joinPoint); }
    };

#ifdef ARBOLIN_TELL_TSAN
    static void release(char* point) noexcept { __tsan_release(point); }
    static void acquire(char* point) noexcept { __tsan_acquire(point); }
#else
    static void release(char*) noexcept {}
    static void acquire(char*) noexcept {}
#endif

    static inline char forkPoint = 0;
    static inline char joinPoint = 0;

    const Body& body_;
};

}  // namespace arbolin
