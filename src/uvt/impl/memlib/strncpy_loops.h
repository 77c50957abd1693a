// The inner loops of strncpy_impl, written once over a vector type `Vec`
// (16-byte SSE2, 32-byte AVX or AVX2). Included by exactly the files that
// build a strncpy table, each under its own instruction-set options; the
// templates are in an unnamed namespace so that every such file gets its own
// copies.
//
// Vec provides: `width`, `load` (aligned), `loadu`, `storeu`, and `zeros`,
// the mask with bit i set when byte i of a vector is zero.
//
// The entry for source misalignment K tests the aligned block holding the
// first byte, shifted by K. When the string and the count both go beyond
// that block, the first width bytes are copied unaligned (the next block
// holds string bytes, so reading into it is safe) and the copy continues a
// source-aligned block at a time. The last partial block and the zero
// padding go through the short tables (padding of 32 bytes and more through
// memset).
#pragma once

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

template <class Vec>
struct strncpy_loops {
    static constexpr std::size_t width = Vec::width;

    // Bytes of the string within `left`, given the zero mask of its next
    // block: up to the first zero, at most `left`.
    static std::size_t prefix(std::uint32_t zeros, std::size_t left) noexcept
    {
        if (zeros == 0)
            return left;
        const std::size_t length = __builtin_ctz(zeros);
        return length < left ? length : left;
    }

    // Copies `count` (< 32) bytes at `done` and zero-fills up to n.
    static char* finish(char* dst, const char* src, std::size_t n, std::size_t done, std::size_t count) noexcept
    {
        strncpyShortChunkJTab[count](dst + done, src + done);
        padWithZeros(dst + done + count, n - done - count);
        return dst;
    }

    // src + done is width-aligned and every byte before it has been copied.
    UVT_MEMLIB_RAW static char* fromBlock(char* dst, const char* src, std::size_t n, std::size_t done) noexcept
    {
        for (;; done += width) {
            const std::size_t left = n - done;
            if (left == 0)
                return dst;
            const auto v = Vec::load(src + done);
            const std::uint32_t zeros = Vec::zeros(v);
            if (zeros != 0 || left < width)
                return finish(dst, src, n, done, prefix(zeros, left));
            Vec::storeu(dst + done, v);
        }
    }

    template <std::size_t K>
    UVT_MEMLIB_RAW static char* entry(char* dst, const char* src, std::size_t n) noexcept
    {
        constexpr std::size_t available = width - K;
        const std::uint32_t zeros = Vec::zeros(Vec::load(src - K)) >> K;
        if (zeros != 0 || n < available)
            return finish(dst, src, n, 0, prefix(zeros, n));
        if (n >= width)
            Vec::storeu(dst, Vec::loadu(src));
        else
            strncpyShortChunkJTab[available](dst, src);
        return fromBlock(dst, src, n, available);
    }

    template <std::size_t... K>
    static constexpr std::array<strncpy_loop, width> tableOf(std::index_sequence<K...>) noexcept
    {
        return {entry<K>...};
    }

    static constexpr std::array<strncpy_loop, width> table = tableOf(std::make_index_sequence<width>{});
};

} // namespace
} // namespace uvt::impl::memlib
