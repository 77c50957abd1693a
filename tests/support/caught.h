// The exception of class E that a call throws, marked processed, for
// checking what it carries. A call that throws nothing is a test failure
// reported with the line of the caller; one that throws something else
// fails the test by escaping.
#pragma once

#include <gtest/gtest.h>

namespace uvt_test {

template <class E, class F>
E caught(F thrower, int line = __builtin_LINE())
{
    try {
        thrower();
    } catch (const E& e) {
        e.mark_processed();
        return e;
    }
    ADD_FAILURE() << "line " << line << ": nothing thrown";
    return E();
}

} // namespace uvt_test
