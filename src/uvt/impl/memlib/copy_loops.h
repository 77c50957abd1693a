// The per-misalignment inner loops of memcpy and memmove, written once over
// a `Join` that builds 16 source bytes from two aligned blocks.
//
// Included by exactly the files that build a loop table, each under its own
// instruction-set options; the templates are in an unnamed namespace so that
// every such file gets its own copies and no copy compiled for a richer
// instruction set can stand in for a plainer one at link time.
//
// A loop for source misalignment K reads only aligned blocks that hold at
// least one byte of the source, keeps the last block of a round in a
// register for the next, and stores 16-byte aligned. It loads the next
// round before storing the current one: a load that follows a store to an
// address equal in its low 12 bits waits for that store (4 KiB aliasing),
// which would otherwise slow copies whose destination lies a few bytes
// above the source modulo the page size.
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

// Source misaligned by Join::shift (1..15); n >= 49.
template <class Join>
UVT_MEMLIB_RAW void* forwardJoined(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const char* block = s - Join::shift;
    const __m128i first = loadBlock(block);
    __m128i mid = loadBlock(block + 16);
    __m128i last = loadBlock(block + 32);
    __m128i lo = Join::join(first, mid);
    __m128i hi = Join::join(mid, last);
    for (; n >= 64; n -= 32, d += 32, s += 32) {
        block += 32;
        mid = loadBlock(block + 16);
        const __m128i next = loadBlock(block + 32);
        const __m128i nextLo = Join::join(last, mid);
        const __m128i nextHi = Join::join(mid, next);
        storeBlock(d, lo);
        storeBlock(d + 16, hi);
        lo = nextLo;
        hi = nextHi;
        last = next;
    }
    storeBlock(d, lo);
    storeBlock(d + 16, hi);
    return forwardTail(ret, d + 32, s + 32, n - 32);
}

// Cursors at the end, source end misaligned by Join::shift (1..15); n >= 49.
template <class Join>
UVT_MEMLIB_RAW void* backwardJoined(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    const char* block = s - Join::shift;
    const __m128i top = loadBlock(block);
    __m128i mid = loadBlock(block - 16);
    __m128i low = loadBlock(block - 32);
    __m128i hi = Join::join(mid, top);
    __m128i lo = Join::join(low, mid);
    for (; n >= 64; n -= 32, d -= 32, s -= 32) {
        block -= 32;
        mid = loadBlock(block - 16);
        const __m128i next = loadBlock(block - 32);
        const __m128i nextHi = Join::join(mid, low);
        const __m128i nextLo = Join::join(next, mid);
        storeBlock(d - 16, hi);
        storeBlock(d - 32, lo);
        hi = nextHi;
        lo = nextLo;
        low = next;
    }
    storeBlock(d - 16, hi);
    storeBlock(d - 32, lo);
    return backwardTail(ret, d - 32, s - 32, n - 32);
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
