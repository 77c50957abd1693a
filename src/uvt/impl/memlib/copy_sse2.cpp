// The SSE2 loop tables of memcpy and memmove: misaligned sources are joined
// from two aligned blocks by byte shifts and an OR, and the plain loops for
// an aligned source that the SSSE3 tables share.

#include "copy_loops.h"

namespace uvt::impl::memlib {
namespace {

template <int K>
struct shift_join {
    static constexpr int shift = K;
    // Bytes K..15 of lo followed by bytes 0..K-1 of hi.
    static __m128i join(__m128i lo, __m128i hi) noexcept
    {
        return _mm_or_si128(_mm_srli_si128(lo, K), _mm_slli_si128(hi, 16 - K));
    }
};

} // namespace

// Both blocks of a round are loaded before either is stored, so that the
// loops stay right for ranges that overlap by less than a round.
UVT_MEMLIB_RAW void* forwardAlignedSource(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const std::size_t rounds = n / 32 * 32;
    for (std::size_t i = 0; i < rounds; i += 32) {
        const __m128i lo = loadBlock(s + i);
        const __m128i hi = loadBlock(s + i + 16);
        storeBlock(d + i, lo);
        storeBlock(d + i + 16, hi);
    }
    return forwardTail(ret, d + rounds, s + rounds, n % 32);
}

UVT_MEMLIB_RAW void* backwardAlignedSource(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const std::size_t rounds = n / 32 * 32;
    for (std::size_t i = 0; i < rounds; i += 32) {
        const __m128i hi = loadBlock(s - i - 16);
        const __m128i lo = loadBlock(s - i - 32);
        storeBlock(d - i - 16, hi);
        storeBlock(d - i - 32, lo);
    }
    return backwardTail(ret, d - rounds, s - rounds, n % 32);
}

constinit const copy_loop_table memcpyAlignedSSE2JTab = forwardLoops<shift_join>(std::make_index_sequence<15>{});
constinit const copy_loop_table memmoveAlignedSSE2JTab = backwardLoops<shift_join>(std::make_index_sequence<15>{});

} // namespace uvt::impl::memlib
