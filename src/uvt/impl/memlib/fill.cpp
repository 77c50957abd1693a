// memset: up to 16 bytes through a table of straight-line fills by count;
// beyond that an unaligned 16-byte store at the start and one ending exactly
// at the end (enough up to 32 bytes), and aligned stores over the interior,
// 64 bytes a round and the last one to four blocks without a loop (the
// stores overlap where they meet, which costs nothing and saves the edge
// cases). The rounds are laid out of line, so that fills up to about 80
// bytes run straight through.

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

// Entries return d, so that memset ends in a jump to them.
using fill_short = void* (*)(char* d, std::uint32_t pattern) noexcept;

// N bytes by 4-byte stores, the last one overlapping back to end at N;
// below 4 bytes by a 2- and a 1-byte store.
struct short_fill {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(char* d, std::uint32_t pattern) noexcept
    {
        if constexpr (N >= 4) {
            for (std::size_t at = 0; at + 4 <= N; at += 4)
                storePattern<4>(d + at, pattern);
            if constexpr (N % 4 != 0)
                storePattern<4>(d + N - 4, pattern);
        } else {
            if constexpr ((N & 2) != 0)
                storePattern<2>(d, pattern);
            if constexpr ((N & 1) != 0)
                storePattern<1>(d + N - 1, pattern);
        }
        return d;
    }
    template <std::size_t N>
    static constexpr fill_short at = run<N>;
};

constexpr std::array<fill_short, 17> memsetShortChunkJTab = tableOf<short_fill, 17>();

} // namespace
} // namespace uvt::impl::memlib

using namespace uvt::impl::memlib;

extern "C" UVT_MEMLIB_RAW void* uvt_memlib_memset(void* dst, int c, std::size_t n) noexcept
{
    char* const d = static_cast<char*>(dst);
    const std::uint32_t pattern = 0x01010101u * static_cast<std::uint8_t>(c);
    if (n <= 16)
        return memsetShortChunkJTab[n](d, pattern);
    const __m128i v = _mm_set1_epi32(static_cast<int>(pattern));
    char* const last = d + n - 16;
    storePiece(d, v);
    storePiece(last, v);
    if (n <= 32)
        return dst;
    // The aligned blocks from the one holding d + 16 to the one holding
    // last - 1 cover the rest; each lies within [d, d + n).
    char* p = reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(d + 16) & ~std::uintptr_t{15});
    char* const final = reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(last - 1) & ~std::uintptr_t{15});
    if (final - p >= 64) [[unlikely]] {
        do {
            storeBlock(p, v);
            storeBlock(p + 16, v);
            storeBlock(p + 32, v);
            storeBlock(p + 48, v);
            p += 64;
        } while (final - p >= 64);
    }
    // 1 to 4 blocks left, from p to final.
    storeBlock(p, v);
    storeBlock(final, v);
    if (final - p >= 32) {
        storeBlock(p + 16, v);
        storeBlock(p + 32, v);
    }
    return dst;
}

namespace uvt::impl {
void* memset_impl(void* dst, int c, std::size_t n) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_memset);
} // namespace uvt::impl

#if UVT_EXPORT_C_MEMLIB
extern "C" UVT_API void* memset(void* dst, int c, std::size_t n) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_memset);
#endif
