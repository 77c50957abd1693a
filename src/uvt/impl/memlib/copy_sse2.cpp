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

// The blocks of each part are loaded before any of them is stored, so that
// the loops stay right for ranges that overlap by less than that.
UVT_MEMLIB_RAW inline void forwardAligned32(char* d, const char* s) noexcept
{
    const __m128i b0 = loadBlock(s), b1 = loadBlock(s + 16);
    storeBlock(d, b0);
    storeBlock(d + 16, b1);
}

UVT_MEMLIB_RAW inline void forwardAligned64(char* d, const char* s) noexcept
{
    const __m128i b0 = loadBlock(s), b1 = loadBlock(s + 16), b2 = loadBlock(s + 32), b3 = loadBlock(s + 48);
    storeBlock(d, b0);
    storeBlock(d + 16, b1);
    storeBlock(d + 32, b2);
    storeBlock(d + 48, b3);
}

// The 32 and 64 bytes below the cursors.
UVT_MEMLIB_RAW inline void backwardAligned32(char* d, const char* s) noexcept
{
    const __m128i b0 = loadBlock(s - 16), b1 = loadBlock(s - 32);
    storeBlock(d - 16, b0);
    storeBlock(d - 32, b1);
}

UVT_MEMLIB_RAW inline void backwardAligned64(char* d, const char* s) noexcept
{
    const __m128i b0 = loadBlock(s - 16), b1 = loadBlock(s - 32), b2 = loadBlock(s - 48), b3 = loadBlock(s - 64);
    storeBlock(d - 16, b0);
    storeBlock(d - 32, b1);
    storeBlock(d - 48, b2);
    storeBlock(d - 64, b3);
}

// The same parts as the joined loops (copy_loops.h).
UVT_MEMLIB_RAW void* forwardAlignedSource(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    const copy_tail tail = loadTail(s + n - 32);
    char* const tailAt = d + n - 32;
    if (n > 96) [[unlikely]] {
        for (; n > 160; n -= 128, d += 128, s += 128) {
            forwardAligned64(d, s);
            forwardAligned64(d + 64, s + 64);
        }
        if (n > 96) {
            forwardAligned64(d, s);
            n -= 64, d += 64, s += 64;
        }
    }
    forwardAligned32(d, s);
    if (n > 64)
        forwardAligned32(d + 32, s + 32);
    finish(tailAt, tail, headAt, head);
    return headAt;
}

UVT_MEMLIB_RAW void* backwardAlignedSource(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    const copy_tail tail = loadTail(s - n);
    char* const tailAt = d - n;
    if (n > 96) [[unlikely]] {
        for (; n > 160; n -= 128, d -= 128, s -= 128) {
            backwardAligned64(d, s);
            backwardAligned64(d - 64, s - 64);
        }
        if (n > 96) {
            backwardAligned64(d, s);
            n -= 64, d -= 64, s -= 64;
        }
    }
    backwardAligned32(d, s);
    if (n > 64)
        backwardAligned32(d - 32, s - 32);
    finish(tailAt, tail, headAt, head);
    return tailAt;
}

constinit const copy_loop_table memcpyAlignedSSE2JTab = forwardLoops<shift_join>(std::make_index_sequence<15>{});
constinit const copy_loop_table memmoveAlignedSSE2JTab = backwardLoops<shift_join>(std::make_index_sequence<15>{});

} // namespace uvt::impl::memlib
