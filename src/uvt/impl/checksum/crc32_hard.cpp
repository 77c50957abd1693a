// The SSE4.2 side of the CRC component: CRC-32C with the processor's crc32
// instruction, reached only through the dispatch of crc32.cpp once the
// processor has been seen to support it.
//
// The instruction takes 3 cycles, and a core issues one (older cores) or two
// (AMD Zen 4, for one) per cycle, so a single dependent chain uses a third
// or a sixth of it. Long inputs are therefore cut into rounds of six equal
// slices, each checksummed from 0 by its own chain, side by side. Moving a
// raw register over n zero bytes is a linear map; it is applied with four
// lookups in a table precomputed at compile time for each distance needed:
// one slice (to join the slices of a round) and one round (to carry the
// running register over it). The running register thus never waits for the
// chains, and the result is bit-identical to one sequential chain.

#include "crc32_paths.h"

#include <nmmintrin.h>

#include <cstring>

namespace uvt::impl::crc {
namespace {

constexpr std::uint32_t kCastagnoli = reflectedPolynomial(pI);

// The raw register moved over a fixed number of zero bytes: the linear map
// split into one 256-entry table per register byte.
struct ZeroShift {
    std::uint32_t table[4][256];

    std::uint32_t operator()(std::uint32_t reg) const
    {
        return table[0][reg & 0xFF] ^ table[1][(reg >> 8) & 0xFF] ^ table[2][(reg >> 16) & 0xFF] ^ table[3][reg >> 24];
    }
};

constexpr ZeroShift makeZeroShift(std::size_t bytes)
{
    std::uint32_t column[32] = {};
    for (int bit = 0; bit < 32; ++bit)
        column[bit] = shiftOverZeros(1u << bit, bytes, kCastagnoli);
    ZeroShift shift = {};
    for (int k = 0; k < 4; ++k)
        for (std::uint32_t b = 0; b < 256; ++b)
            shift.table[k][b] = gf2Times(column + 8 * k, b);
    return shift;
}

constexpr std::size_t kChains = 6;

template <std::size_t SliceWords>
struct RoundShifts {
    ZeroShift slice;
    ZeroShift round;
};

template <std::size_t SliceWords>
constexpr RoundShifts<SliceWords> kRoundShifts = {makeZeroShift(8 * SliceWords),
                                                  makeZeroShift(8 * SliceWords * kChains)};

// The raw register, from 0, after the kChains * SliceWords words at p.
template <std::size_t SliceWords>
__attribute__((target("sse4.2"))) std::uint32_t roundOfSlices(const unsigned char* p)
{
    constexpr std::size_t sliceBytes = 8 * SliceWords;
    std::uint64_t chain[kChains] = {};
    for (const unsigned char* end = p + sliceBytes; p != end; p += 8)
#pragma GCC unroll 6
        for (std::size_t c = 0; c < kChains; ++c)
            chain[c] = _mm_crc32_u64(chain[c], load64(p + c * sliceBytes));
    std::uint32_t joined = static_cast<std::uint32_t>(chain[0]);
    for (std::size_t c = 1; c < kChains; ++c)
        joined = kRoundShifts<SliceWords>.slice(joined) ^ static_cast<std::uint32_t>(chain[c]);
    return joined;
}

// As many rounds as fit into the n bytes at p; advances both.
template <std::size_t SliceWords>
__attribute__((target("sse4.2"))) std::uint32_t rounds(std::uint32_t crc, const unsigned char*& p, std::size_t& n)
{
    constexpr std::size_t roundBytes = 8 * SliceWords * kChains;
    for (; n >= roundBytes; n -= roundBytes, p += roundBytes)
        crc = kRoundShifts<SliceWords>.round(crc) ^ roundOfSlices<SliceWords>(p);
    return crc;
}

// The raw register after n bytes at p, n a multiple of 4: long rounds, then
// shorter ones for what is left (slices of 512, 64, 16 and 4 words, so that
// at most 23 words remain), then a single chain for the last words.
__attribute__((target("sse4.2"))) std::uint32_t wordsHard(std::uint32_t crc, const unsigned char* p, std::size_t n)
{
    crc = rounds<512>(crc, p, n);
    crc = rounds<64>(crc, p, n);
    crc = rounds<16>(crc, p, n);
    crc = rounds<4>(crc, p, n);
    std::uint64_t c = crc;
    for (; n >= 8; n -= 8, p += 8)
        c = _mm_crc32_u64(c, load64(p));
    crc = static_cast<std::uint32_t>(c);
    return n >= 4 ? _mm_crc32_u32(crc, load32(p)) : crc;
}

} // namespace

std::uint32_t crc32U32Hard(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end)
{
    return wordsHard(crc, reinterpret_cast<const unsigned char*>(begin), 4 * static_cast<std::size_t>(end - begin));
}

std::uint32_t crc32U64Hard(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end)
{
    return wordsHard(crc, reinterpret_cast<const unsigned char*>(begin), 8 * static_cast<std::size_t>(end - begin));
}

std::uint32_t crc32U64HardExt(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end,
                              std::size_t takeWords, std::size_t skipWords, std::size_t startWord)
{
    const auto fold = [](std::uint32_t c, const std::uint64_t* words, std::size_t count) {
        return wordsHard(c, reinterpret_cast<const unsigned char*>(words), 8 * count);
    };
    return foldStrided(crc, begin, static_cast<std::size_t>(end - begin), takeWords, skipWords, startWord, fold);
}

__attribute__((target("sse4.2"))) std::uint32_t crc32BytesHard(std::uint32_t crc, const unsigned char* data,
                                                               std::size_t len)
{
    const std::size_t whole = len & ~std::size_t{3};
    crc = wordsHard(crc, data, whole);
    if (whole == len)
        return crc;
    std::uint32_t padded = 0xFFFFFFFF; // the missing high bytes stay 0xFF
    std::memcpy(&padded, data + whole, len - whole);
    return _mm_crc32_u32(crc, padded);
}

__attribute__((target("sse4.2"))) std::uint32_t crc32WordHard(std::uint32_t crc, std::uint32_t value)
{
    return _mm_crc32_u32(crc, value);
}

} // namespace uvt::impl::crc
