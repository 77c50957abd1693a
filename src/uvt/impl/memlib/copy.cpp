// memcpy and memmove: the entry points, the head and count tables, and the
// self-patching tables of inner loops (the loops themselves are built in
// copy_sse2.cpp and copy_ssse3.cpp).
//
// Below 64 bytes a copy loads everything (one to four overlapping 16-byte
// pieces, or from the count table two overlapping 8-, 4- or 2-byte pieces)
// before it stores anything, which makes it right for overlapping ranges in
// either direction. A forward copy of 64 bytes or more goes through the head
// table by the 0..15 bytes that bring the destination to a 16-byte boundary:
// the entry loads the 16 bytes that cover them (stored by the loop at the
// end) and jumps through the loop table by the source's misalignment; the
// loop copies with aligned stores, 128 bytes a round while more than 160
// are left, then without loop control at most 64, 32 and 32 more, and
// finishes the tail.
// memmove mirrors that from the end when the destination lies above the
// source within the copied range.

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

// Copies N (0..15) bytes from s to d: the largest piece of 8, 4, 2 or 1
// bytes that fits, twice, the second ending at N (the two overlap unless N is
// twice the piece); both are loaded before either is stored.
template <std::size_t N>
UVT_MEMLIB_RAW inline void copyUnder16(char* d, const char* s) noexcept
{
    if constexpr (N != 0) {
        constexpr std::size_t piece = N >= 8 ? 8 : N >= 4 ? 4 : N >= 2 ? 2 : 1;
        using word = typename scalar_of<piece>::type;
        const word first = *reinterpret_cast<const word*>(s);
        const word last = *reinterpret_cast<const word*>(s + N - piece);
        *reinterpret_cast<word*>(d) = first;
        *reinterpret_cast<word*>(d + N - piece) = last;
    }
}

// Copies 16..63 bytes: pieces at both ends, and for more than 32 bytes two
// more after the first and before the last; all loaded before any store.
UVT_MEMLIB_RAW inline void copy16To63(char* d, const char* s, std::size_t n) noexcept
{
    const __m128i first = loadPiece(s);
    const __m128i last = loadPiece(s + n - 16);
    if (n > 32) {
        const __m128i second = loadPiece(s + 16);
        const __m128i penultimate = loadPiece(s + n - 32);
        storePiece(d + 16, second);
        storePiece(d + n - 32, penultimate);
    }
    storePiece(d, first);
    storePiece(d + n - 16, last);
}

std::size_t misalignment(const void* p) noexcept { return reinterpret_cast<std::uintptr_t>(p) & 15; }

const copy_loop_table& loopsForThisProcessor() noexcept
{
    return dispatchLevel() >= CPU_SSSE3 ? memcpyAlignedSupSSE3JTab : memcpyAlignedSSE2JTab;
}

const copy_loop_table& backwardLoopsForThisProcessor() noexcept
{
    return dispatchLevel() >= CPU_SSSE3 ? memmoveAlignedSupSSE3JTab : memmoveAlignedSSE2JTab;
}

void* memcpyAlignedStub(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept;
void* memmoveAlignedStub(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept;

constinit live_table<copy_loop, 16> memcpyAlignedJTab{memcpyAlignedStub};
constinit live_table<copy_loop, 16> memmoveAlignedJTab{memmoveAlignedStub};

void* memcpyAlignedStub(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    memcpyAlignedJTab.fill(loopsForThisProcessor());
    return memcpyAlignedJTab[misalignment(s)](d, s, n, head, headAt);
}

void* memmoveAlignedStub(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept
{
    memmoveAlignedJTab.fill(backwardLoopsForThisProcessor());
    return memmoveAlignedJTab[misalignment(s)](d, s, n, head, headAt);
}

// Entries of the head tables: copy_loop without the head arguments. They
// take memcpy's own arguments (for memmove the ends of the ranges), so that
// the entry points reach them by a jump without moving a register.
using copy_loop_entry = void* (*)(char* d, const char* s, std::size_t n) noexcept;

// A head entry copies no byte itself: it loads the 16 bytes at the start
// (forward) or the end (backward), which cover the N bytes up to the
// destination's boundary, and hands them to the loop, which stores them
// after its last load.
struct forward_head {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(char* d, const char* s, std::size_t n) noexcept
    {
        const copy_head head{loadPiece(s)};
        return memcpyAlignedJTab[misalignment(s + N)](d + N, s + N, n - N, head, d);
    }
    template <std::size_t N>
    static constexpr copy_loop_entry at = run<N>;
};

struct forward_count {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(char* d, const char* s) noexcept
    {
        copyUnder16<N>(d, s);
        return d;
    }
    template <std::size_t N>
    static constexpr copy_count at = run<N>;
};

struct backward_head {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(char* d, const char* s, std::size_t n) noexcept
    {
        const copy_head head{loadPiece(s - 16)};
        return memmoveAlignedJTab[misalignment(s - N)](d - N, s - N, n - N, head, d - 16);
    }
    template <std::size_t N>
    static constexpr copy_loop_entry at = run<N>;
};

struct backward_count {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(char* d, const char* s) noexcept
    {
        copyUnder16<N>(d - N, s - N);
        return d - N;
    }
    template <std::size_t N>
    static constexpr copy_count at = run<N>;
};

// Entered with at least 64 bytes; copy the head that aligns the destination
// (its start, or for memmove its end) and continue into the loops.
constexpr std::array<copy_loop_entry, 16> memcpyAlignDestinationJTab = tableOf<forward_head, 16>();
constexpr std::array<copy_loop_entry, 16> memmoveAlignDestinationJTab = tableOf<backward_head, 16>();

} // namespace

constinit const std::array<copy_count, 16> memcpyAlignCountJTab = tableOf<forward_count, 16>();
constinit const std::array<copy_count, 16> memmoveAlignCountJTab = tableOf<backward_count, 16>();

void settleCopyLoops() noexcept
{
    memcpyAlignedJTab.fill(loopsForThisProcessor());
    memmoveAlignedJTab.fill(backwardLoopsForThisProcessor());
}

bool memcpyLoopsAre(const copy_loop_table& t) noexcept { return memcpyAlignedJTab.holds(t); }

bool memmoveLoopsAre(const copy_loop_table& t) noexcept { return memmoveAlignedJTab.holds(t); }

} // namespace uvt::impl::memlib

using namespace uvt::impl::memlib;

extern "C" UVT_MEMLIB_RAW void* uvt_memlib_memcpy(void* dst, const void* src, std::size_t n) noexcept
{
    char* d = static_cast<char*>(dst);
    const char* s = static_cast<const char*>(src);
    if (n < 64) {
        if (n < 16)
            return memcpyAlignCountJTab[n](d, s);
        copy16To63(d, s, n);
        return dst;
    }
    return memcpyAlignDestinationJTab[-reinterpret_cast<std::uintptr_t>(d) & 15](d, s, n);
}

extern "C" UVT_MEMLIB_RAW void* uvt_memlib_memmove(void* dst, const void* src, std::size_t n) noexcept
{
    // Unsigned distance: at least n when the ranges are disjoint or the
    // destination lies below the source, where copying forward is safe.
    if (reinterpret_cast<std::uintptr_t>(dst) - reinterpret_cast<std::uintptr_t>(src) >= n)
        return uvt_memlib_memcpy(dst, src, n);
    char* d = static_cast<char*>(dst) + n;
    const char* s = static_cast<const char*>(src) + n;
    if (n < 64) {
        if (n < 16)
            return memmoveAlignCountJTab[n](d, s);
        // Everything is loaded before anything is stored: no direction.
        copy16To63(static_cast<char*>(dst), static_cast<const char*>(src), n);
        return dst;
    }
    return memmoveAlignDestinationJTab[misalignment(d)](d, s, n);
}

namespace uvt::impl {
void* memcpy_impl(void* dst, const void* src, std::size_t n) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_memcpy);
void* memmove_impl(void* dst, const void* src, std::size_t n) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_memmove);
} // namespace uvt::impl

#if UVT_EXPORT_C_MEMLIB
extern "C" UVT_API void* memcpy(void* dst, const void* src, std::size_t n) noexcept
    UVT_MEMLIB_ALIAS_OF(uvt_memlib_memcpy);
extern "C" UVT_API void* memmove(void* dst, const void* src, std::size_t n) noexcept
    UVT_MEMLIB_ALIAS_OF(uvt_memlib_memmove);
#endif
