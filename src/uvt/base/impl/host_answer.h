// The one way the library caches what the host object answers.
//
// Every process-wide accessor that consults the host (allocators, callbacks,
// the stream provider, the trace-file switch, the host object itself) asks
// once and keeps the answer for the life of the process. Two situations
// shape how:
//   - Re-entry: a host's getter may call back into the library, even into
//     the very accessor that is asking it (a getter that builds its
//     allocator through `allocator::global_allocator()`). A guarded static
//     would deadlock or recurse there; instead the inner call, on the same
//     thread, gets the library's own default without caching it, and the
//     outer call caches the host's real answer.
//   - Racing first callers on different threads: each may ask the host;
//     they store the same answer, and every caller sees a complete value
//     (release/acquire on the "known" flag).
// A `host_answer` has a constexpr constructor, so a static one is ready
// before any dynamic initialiser runs and needs no guard.
#pragma once

#include <atomic>

namespace uvt::impl {

// The answers being asked for on this thread, innermost first; the frames
// live on the askers' stacks.
struct host_question {
    const void* answer;
    const host_question* outer;
};
extern thread_local const host_question* host_questions_asked;

template <class T>
class host_answer {
public:
    constexpr host_answer() noexcept = default;

    // The cached answer; on first use `ask()` computes it. A call made from
    // inside `ask()` on the same thread returns `while_asking` uncached.
    template <class Ask>
    T get(Ask ask, T while_asking)
    {
        if (known_.load(std::memory_order_acquire))
            return value_.load(std::memory_order_relaxed);
        return first_get(ask, while_asking);
    }

private:
    template <class Ask>
    __attribute__((noinline)) T first_get(Ask ask, T while_asking)
    {
        for (const host_question* q = host_questions_asked; q; q = q->outer) {
            if (q->answer == this)
                return while_asking;
        }
        const host_question question{this, host_questions_asked};
        host_questions_asked = &question;
        struct pop {
            const host_question* outer;
            ~pop() { host_questions_asked = outer; }
        } restore{question.outer};
        T v = ask();
        value_.store(v, std::memory_order_relaxed);
        known_.store(true, std::memory_order_release);
        return v;
    }

    std::atomic<T> value_{};
    std::atomic<bool> known_{false};
};

} // namespace uvt::impl
