// The per-misalignment inner loops of memcpy and memmove, written once over
// a `Join` that builds 16 source bytes from two aligned blocks.
//
// Included by exactly the files that build a loop table, each under its own
// instruction-set options; the templates are in an unnamed namespace so that
// every such file gets its own copies and no copy compiled for a richer
// instruction set can stand in for a plainer one at link time.
//
// A loop for source misalignment K reads only aligned blocks that hold at
// least one byte of the source and stores 16-byte aligned. A block is read
// after stores to the destination only in the forward loops, and only where
// the bytes it contributes lie above everything stored so far (memmove hands
// them overlapping ranges only with the destination below the source), which
// keeps the loops right for overlapping ranges.
#pragma once

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

UVT_MEMLIB_RAW inline __m128i loadBlock(const char* p) noexcept
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
}

UVT_MEMLIB_RAW inline void storeBlock(char* p, __m128i v) noexcept
{
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
}

// After the loops: fewer than 32 bytes, destination cursor aligned.
UVT_MEMLIB_RAW inline void* forwardTail(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    if (n >= 16) {
        movePiece<16>(d, s);
        d += 16;
        s += 16;
        n -= 16;
    }
    return memcpyAlignCountJTab[n](ret, d, s);
}

UVT_MEMLIB_RAW inline void* backwardTail(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    if (n >= 16) {
        d -= 16;
        s -= 16;
        n -= 16;
        movePiece<16>(d, s);
    }
    return memmoveAlignCountJTab[n](ret, d, s);
}

// Source misaligned by Join::shift (1..15); n >= 49. Round r joins the
// aligned blocks at 32r, 32r + 16 and 32r + 32 from `block`; the last round
// reads the block at 32 * (n / 32), which still holds a source byte. Every
// round loads its blocks afresh rather than carrying them over in
// registers: loads are cheaper than the register copies that the
// destructive two-operand joins would otherwise need.
template <class Join>
UVT_MEMLIB_RAW void* forwardJoined(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const char* const block = s - Join::shift;
    const std::size_t rounds = n / 32 * 32;
    for (std::size_t i = 0; i < rounds; i += 32) {
        const __m128i mid = loadBlock(block + i + 16);
        storeBlock(d + i, Join::join(loadBlock(block + i), mid));
        storeBlock(d + i + 16, Join::join(mid, loadBlock(block + i + 32)));
    }
    return forwardTail(ret, d + rounds, s + rounds, n % 32);
}

// Cursors at the end, source end misaligned by Join::shift (1..15); n >= 49.
// The mirror image of forwardJoined, from the block holding the last byte.
// Here the lowest block of a round, which the next round needs again, is
// carried over: every join may then overwrite its upper operand, so no copy
// is needed, and the loop never rereads bytes it may just have stored (an
// overlapping memmove would wait for those stores to be forwarded).
template <class Join>
UVT_MEMLIB_RAW void* backwardJoined(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const char* const block = s - Join::shift;
    const std::size_t rounds = n / 32 * 32;
    __m128i top = loadBlock(block);
    for (std::size_t i = 0; i < rounds; i += 32) {
        const __m128i mid = loadBlock(block - i - 16);
        const __m128i low = loadBlock(block - i - 32);
        storeBlock(d - i - 16, Join::join(mid, top));
        storeBlock(d - i - 32, Join::join(low, mid));
        top = low;
    }
    return backwardTail(ret, d - rounds, s - rounds, n % 32);
}

// The loop tables: entry 0 is the shared aligned-source loop, entry K the
// joined loop for misalignment K.
template <template <int> class Join, std::size_t... K>
constexpr copy_loop_table forwardLoops(std::index_sequence<K...>) noexcept
{
    return {forwardAlignedSource, forwardJoined<Join<K + 1>>...};
}

template <template <int> class Join, std::size_t... K>
constexpr copy_loop_table backwardLoops(std::index_sequence<K...>) noexcept
{
    return {backwardAlignedSource, backwardJoined<Join<K + 1>>...};
}

} // namespace
} // namespace uvt::impl::memlib
