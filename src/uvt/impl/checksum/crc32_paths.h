// What the two units of the CRC component share: the Castagnoli polynomial,
// the GF(2) arithmetic that shifts a register over zero bytes, the strided
// word walk, and the entry points of the SSE4.2 unit (crc32_hard.cpp) that
// the table unit (crc32.cpp) dispatches to.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace uvt::impl::crc {

// Exponents of a polynomial without x^32.
inline constexpr unsigned char pZ[] = {0, 1, 2, 4, 5, 7, 8, 10, 11, 12, 16, 22, 23, 26};
inline constexpr unsigned char pI[] = {0, 6, 8, 9, 10, 11, 13, 14, 18, 19, 20, 22, 23, 25, 26, 27, 28};

// The reflected 32-bit form: exponent e becomes bit 31 - e.
template <std::size_t N>
constexpr std::uint32_t reflectedPolynomial(const unsigned char (&exponents)[N])
{
    std::uint32_t poly = 0;
    for (unsigned char e : exponents)
        poly |= 1u << (31 - e);
    return poly;
}

inline std::uint64_t load64(const unsigned char* p)
{
    std::uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

inline std::uint32_t load32(const unsigned char* p)
{
    std::uint32_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

// --- GF(2) operators on a raw register ---
//
// A 32x32 bit matrix is 32 columns; matrix times vector is the XOR of the
// columns selected by the vector's set bits.

constexpr std::uint32_t gf2Times(const std::uint32_t* matrix, std::uint32_t vector)
{
    std::uint32_t sum = 0;
    for (; vector != 0; vector >>= 1, ++matrix)
        if (vector & 1)
            sum ^= *matrix;
    return sum;
}

constexpr void gf2Square(std::uint32_t* square, const std::uint32_t* matrix)
{
    for (int n = 0; n < 32; ++n)
        square[n] = gf2Times(matrix, matrix[n]);
}

// The raw register after `len` zero bytes starting from `reg`, for the
// reflected polynomial `poly` (zlib's combine operator: the one-zero-bit
// operator squared up to the bits of len).
constexpr std::uint32_t shiftOverZeros(std::uint32_t reg, std::size_t len, std::uint32_t poly)
{
    std::uint32_t odd[32] = {poly};
    std::uint32_t even[32] = {};
    for (int n = 1; n < 32; ++n)
        odd[n] = 1u << (n - 1);
    gf2Square(even, odd); // two zero bits
    gf2Square(odd, even); // four zero bits
    for (;;) {
        gf2Square(even, odd);
        if (len & 1)
            reg = gf2Times(even, reg);
        len >>= 1;
        if (len == 0)
            break;
        gf2Square(odd, even);
        if (len & 1)
            reg = gf2Times(odd, reg);
        len >>= 1;
        if (len == 0)
            break;
    }
    return reg;
}

// --- strided words ---

// Folds the selected words of [begin, begin + n) with fold(crc, words,
// count); see the six-argument uvt::crc32_u64 for the selection.
template <class Fold>
std::uint32_t foldStrided(std::uint32_t crc, const std::uint64_t* begin, std::size_t n, std::size_t takeWords,
                          std::size_t skipWords, std::size_t startWord, Fold fold)
{
    std::size_t period = 0;
    if (__builtin_add_overflow(takeWords, skipWords, &period) || period == 0 || period > n)
        return crc;
    const std::size_t limit = n / period * period - skipWords;
    for (std::size_t p = startWord; p < limit; p += period)
        crc = fold(crc, begin + p, std::min(takeWords, n - p));
    return crc;
}

// --- the SSE4.2 paths (crc32_hard.cpp); call only when the processor has it ---

std::uint32_t crc32U32Hard(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end);
std::uint32_t crc32U64Hard(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end);
std::uint32_t crc32U64HardExt(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end,
                              std::size_t takeWords, std::size_t skipWords, std::size_t startWord);
// The byte overload of uvt::crc32: words, then a 0xFF-padded partial word.
std::uint32_t crc32BytesHard(std::uint32_t crc, const unsigned char* data, std::size_t len);
std::uint32_t crc32WordHard(std::uint32_t crc, std::uint32_t value);

} // namespace uvt::impl::crc
