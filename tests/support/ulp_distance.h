// How many representable doubles lie between two values: 0 when they are
// identical, 1 for neighbours (+0 and -0 count as neighbours). Shared by the
// number-conversion tests and fuzzers.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace uvt_test {

inline long ulpDistance(double a, double b)
{
    std::int64_t x, y;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    // Map the sign-magnitude bit patterns onto one monotonic integer line.
    x = x < 0 ? INT64_MIN - x : x;
    y = y < 0 ? INT64_MIN - y : y;
    return std::labs(long(x - y));
}

} // namespace uvt_test
