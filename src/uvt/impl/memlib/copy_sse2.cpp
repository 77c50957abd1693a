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

UVT_MEMLIB_RAW void* forwardAlignedSource(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    __m128i lo = loadBlock(s);
    __m128i hi = loadBlock(s + 16);
    for (; n >= 64; n -= 32, d += 32, s += 32) {
        const __m128i nextLo = loadBlock(s + 32);
        const __m128i nextHi = loadBlock(s + 48);
        storeBlock(d, lo);
        storeBlock(d + 16, hi);
        lo = nextLo;
        hi = nextHi;
    }
    storeBlock(d, lo);
    storeBlock(d + 16, hi);
    return forwardTail(ret, d + 32, s + 32, n - 32);
}

UVT_MEMLIB_RAW void* backwardAlignedSource(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    __m128i hi = loadBlock(s - 16);
    __m128i lo = loadBlock(s - 32);
    for (; n >= 64; n -= 32, d -= 32, s -= 32) {
        const __m128i nextHi = loadBlock(s - 48);
        const __m128i nextLo = loadBlock(s - 64);
        storeBlock(d - 16, hi);
        storeBlock(d - 32, lo);
        hi = nextHi;
        lo = nextLo;
    }
    storeBlock(d - 16, hi);
    storeBlock(d - 32, lo);
    return backwardTail(ret, d - 32, s - 32, n - 32);
}

constinit const copy_loop_table memcpyAlignedSSE2JTab = forwardLoops<shift_join>(std::make_index_sequence<15>{});
constinit const copy_loop_table memmoveAlignedSSE2JTab = backwardLoops<shift_join>(std::make_index_sequence<15>{});

} // namespace uvt::impl::memlib
