// Shared by the unicode fuzz targets: running a converter on a heap target
// of a given size (so that AddressSanitizer sees any write past it) with the
// checks every converter owes, and comparing a run into a small target with
// a run into a target large enough for everything.
#pragma once

#include "fuzz_check.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace uvt_fuzz {

template <class T>
struct Converted {
    int rc;
    std::size_t read;
    std::vector<T> out;
};

// Runs `convert` (source, end, stop, target, end, stop) on [source, source +
// count) into a target of `room` units. Checks that the result code is one of
// the four, both stops lie inside their ranges and code 0 means that the
// whole source was read.
template <class T, class S, class Convert>
Converted<T> convert(Convert convert, const S* source, std::size_t count, std::size_t room)
{
    std::vector<T> target(room);
    const S* sourceStop = nullptr;
    T* targetStop = nullptr;
    const int rc = convert(source, source + count, sourceStop, target.data(), target.data() + room, targetStop);
    FUZZ_CHECK(rc >= 0 && rc <= 3);
    FUZZ_CHECK(sourceStop >= source && sourceStop <= source + count);
    FUZZ_CHECK(targetStop >= target.data() && targetStop <= target.data() + room);
    FUZZ_CHECK((rc == 0) == (sourceStop == source + count));
    target.resize(static_cast<std::size_t>(targetStop - target.data()));
    return {rc, static_cast<std::size_t>(sourceStop - source), std::move(target)};
}

// `small` ran into a target of `room` units, `whole` into one that cannot
// fill up. Unless `small` ran out of room they agree; if it did, it stopped
// at a character `whole` converted, wrote a prefix of `whole`'s output, and
// the room left was less than `longest` units (the most one character needs).
template <class T>
void expectPrefixOf(const Converted<T>& small, const Converted<T>& whole, std::size_t room, std::size_t longest)
{
    FUZZ_CHECK(whole.rc != 3);
    if (small.rc != 3) {
        FUZZ_CHECK(small.rc == whole.rc && small.read == whole.read && small.out == whole.out);
        return;
    }
    FUZZ_CHECK(small.read < whole.read);
    FUZZ_CHECK(small.out.size() <= whole.out.size());
    FUZZ_CHECK(std::equal(small.out.begin(), small.out.end(), whole.out.begin()));
    FUZZ_CHECK(room - small.out.size() < longest);
}

template <class T>
bool operator==(const Converted<T>& a, const Converted<T>& b)
{
    return a.rc == b.rc && a.read == b.read && a.out == b.out;
}

} // namespace uvt_fuzz
