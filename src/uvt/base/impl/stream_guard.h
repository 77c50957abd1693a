// The guard of the stream units around everything that calls into a
// stream buffer (see ios_base::guarded_).
#pragma once

#include <uvt/ios>

namespace uvt {

namespace impl {

// Called in a catch handler: marks a library exception that a stream
// absorbs into its state as handled, so it is not reported as forgotten.
inline void absorb_current_exception() noexcept
{
    try {
        throw;
    } catch (const exception& e) {
        e.mark_processed();
    } catch (...) {
    }
}

} // namespace impl

template <class Op>
[[gnu::always_inline]] inline void ios_base::guarded_(Op op)
{
    try {
        op();
    } catch (...) {
        add_state_(badbit);
        if (exceptions() & badbit)
            throw;
        impl::absorb_current_exception();
    }
}

} // namespace uvt
