// The powers of ten that fit 64 bits, 10^0 to 10^19, shared by the number
// writers.
#pragma once

#include <array>
#include <cstdint>

namespace uvt::impl {

inline constexpr std::array<std::uint64_t, 20> power_of_ten = [] {
    std::array<std::uint64_t, 20> powers{};
    std::uint64_t p = 1;
    for (std::uint64_t& power : powers) {
        power = p;
        p *= 10; // wraps after 10^19, which is never stored
    }
    return powers;
}();
static_assert(power_of_ten[19] == 10000000000000000000ULL);

} // namespace uvt::impl
