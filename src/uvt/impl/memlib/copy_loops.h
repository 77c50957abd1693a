// The per-misalignment inner loops of memcpy and memmove, written once over
// a `Join` that builds 16 source bytes from two aligned blocks.
//
// Included by exactly the files that build a loop table, each under its own
// instruction-set options; the templates are in an unnamed namespace so that
// every such file gets its own copies and no copy compiled for a richer
// instruction set can stand in for a plainer one at link time.
//
// A loop for source misalignment K reads only aligned blocks that hold at
// least one byte of the source and stores 16-byte aligned: 128 bytes a
// round while more than 160 bytes are left, then straight on, without a
// loop, 64 bytes if more than 96 are left, 32 bytes, and 32 more if more
// than 64 are left (33..160 bytes reach that part, and the 32 at the far
// end are the tail's). Everything above 96 bytes sits behind one test laid
// out of line, so that the short copies run straight through without a
// taken branch: at these sizes taken branches, not the stores, set the
// pace. A block is read after stores to the destination only
// in the forward loops, and only where the bytes it contributes lie above
// everything stored so far (memmove hands them overlapping ranges only with
// the destination below the source), which keeps the loops right for
// overlapping ranges. The 32 bytes at the far end of the copy (the tail) and
// the 16 bytes of the head are loaded unaligned before the first store and
// stored, overlapping what the rounds wrote, after the last load.
#pragma once

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

// The far end of a copy: 32 bytes, loaded before the loop and stored after.
struct copy_tail {
    __m128i low, high;
};

UVT_MEMLIB_RAW inline copy_tail loadTail(const char* from) noexcept { return {loadPiece(from), loadPiece(from + 16)}; }

UVT_MEMLIB_RAW inline void finish(char* tailAt, copy_tail tail, char* headAt, copy_head head) noexcept
{
    storePiece(tailAt, tail.low);
    storePiece(tailAt + 16, tail.high);
    storePiece(headAt, head.bytes);
}

// 32 and 64 bytes of a forward joined copy: destination block j is joined
// from the aligned blocks at 16j and 16j + 16 from `block`. All blocks are
// loaded before the first store, which keeps loads clear of the stores just
// issued. The 32-byte part joins from the top down, so that each join may
// overwrite its upper operand, which the join below it no longer needs; the
// 64-byte part joins and stores upwards, which measured faster in the
// rounds of long copies.
template <class Join>
UVT_MEMLIB_RAW inline void forwardJoined32(char* d, const char* block) noexcept
{
    const __m128i b0 = loadBlock(block), b1 = loadBlock(block + 16), b2 = loadBlock(block + 32);
    storeBlock(d + 16, Join::join(b1, b2));
    storeBlock(d, Join::join(b0, b1));
}

template <class Join>
UVT_MEMLIB_RAW inline void forwardJoined64(char* d, const char* block) noexcept
{
    const __m128i b0 = loadBlock(block), b1 = loadBlock(block + 16), b2 = loadBlock(block + 32);
    const __m128i b3 = loadBlock(block + 48), b4 = loadBlock(block + 64);
    storeBlock(d, Join::join(b0, b1));
    storeBlock(d + 16, Join::join(b1, b2));
    storeBlock(d + 32, Join::join(b2, b3));
    storeBlock(d + 48, Join::join(b3, b4));
}

// Source misaligned by Join::shift (1..15); n >= 49. A part that ends at
// byte e of the destination reads the block at e from `block`, which still
// holds a source byte as long as e < n + Join::shift.
template <class Join>
UVT_MEMLIB_RAW void* forwardJoined(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    const copy_tail tail = loadTail(s + n - 32);
    char* const tailAt = d + n - 32;
    const char* block = s - Join::shift;
    if (n > 96) [[unlikely]] {
        for (; n > 160; n -= 128, d += 128, block += 128) {
            forwardJoined64<Join>(d, block);
            forwardJoined64<Join>(d + 64, block + 64);
        }
        if (n > 96) {
            forwardJoined64<Join>(d, block);
            n -= 64, d += 64, block += 64;
        }
    }
    forwardJoined32<Join>(d, block);
    if (n > 64)
        forwardJoined32<Join>(d + 32, block + 32);
    finish(tailAt, tail, headAt, head);
    return headAt;
}

// The 64 and 32 bytes below a backward joined copy's cursors; `top` is the
// block at `block`, already loaded. Return the lowest block, which the next
// part needs again.
template <class Join>
UVT_MEMLIB_RAW inline __m128i backwardJoined32(char* d, const char* block, __m128i top) noexcept
{
    const __m128i b1 = loadBlock(block - 16);
    storeBlock(d - 16, Join::join(b1, top));
    const __m128i b2 = loadBlock(block - 32);
    storeBlock(d - 32, Join::join(b2, b1));
    return b2;
}

template <class Join>
UVT_MEMLIB_RAW inline __m128i backwardJoined64(char* d, const char* block, __m128i top) noexcept
{
    return backwardJoined32<Join>(d - 32, block - 32, backwardJoined32<Join>(d, block, top));
}

// Cursors at the end, source end misaligned by Join::shift (1..15); n >= 49.
// The mirror image of forwardJoined, from the block holding the last byte.
// Here the lowest block of a part, which the next part needs again, is
// carried over: every join may then overwrite its upper operand, so no copy
// is needed, and the loop never rereads bytes it may just have stored (an
// overlapping memmove would wait for those stores to be forwarded).
template <class Join>
UVT_MEMLIB_RAW void* backwardJoined(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    const copy_tail tail = loadTail(s - n);
    char* const tailAt = d - n;
    const char* block = s - Join::shift;
    __m128i top = loadBlock(block);
    if (n > 96) [[unlikely]] {
        for (; n > 160; n -= 128, d -= 128, block -= 128)
            top = backwardJoined64<Join>(d - 64, block - 64, backwardJoined64<Join>(d, block, top));
        if (n > 96) {
            top = backwardJoined64<Join>(d, block, top);
            n -= 64, d -= 64, block -= 64;
        }
    }
    top = backwardJoined32<Join>(d, block, top);
    if (n > 64)
        backwardJoined32<Join>(d - 32, block - 32, top);
    finish(tailAt, tail, headAt, head);
    return tailAt;
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
