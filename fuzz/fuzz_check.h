// FUZZ_CHECK(condition): an invariant of a fuzz target. A violation prints
// the condition and its place and aborts, which libFuzzer reports as a crash
// and saves the input for.
#pragma once

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition) \
    do { \
        if (!(condition)) { \
            std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort(); \
        } \
    } while (0)
