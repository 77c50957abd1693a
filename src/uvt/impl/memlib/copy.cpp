// memcpy and memmove: the entry points, the head and count tables, and the
// self-patching tables of inner loops (the loops themselves are built in
// copy_sse2.cpp and copy_ssse3.cpp).
//
// A forward copy of 64 bytes or more first copies the 0..15 bytes that bring
// the destination to a 16-byte boundary, then jumps through the loop table by
// the source's misalignment; the loop copies 32 bytes a round with aligned
// stores and finishes the tail. memmove mirrors that from the end when the
// destination lies above the source within the copied range.

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

// One piece of a forward copy when bit `Piece` is set in N; advances.
template <std::size_t Piece, std::size_t N>
UVT_MEMLIB_RAW inline void forwardStep(char*& d, const char*& s) noexcept
{
    if constexpr ((N & Piece) != 0) {
        movePiece<Piece>(d, s);
        d += Piece;
        s += Piece;
    }
}

// One piece of a backward copy, below the cursors, which move down.
template <std::size_t Piece, std::size_t N>
UVT_MEMLIB_RAW inline void backwardStep(char*& d, const char*& s) noexcept
{
    if constexpr ((N & Piece) != 0) {
        d -= Piece;
        s -= Piece;
        movePiece<Piece>(d, s);
    }
}

std::size_t misalignment(const void* p) noexcept
{
    return reinterpret_cast<std::uintptr_t>(p) & 15;
}

const copy_loop_table& loopsForThisProcessor() noexcept
{
    return dispatchLevel() >= CPU_SSSE3 ? memcpyAlignedSupSSE3JTab : memcpyAlignedSSE2JTab;
}

const copy_loop_table& backwardLoopsForThisProcessor() noexcept
{
    return dispatchLevel() >= CPU_SSSE3 ? memmoveAlignedSupSSE3JTab : memmoveAlignedSSE2JTab;
}

void* memcpyAlignedStub(void* ret, char* d, const char* s, std::size_t n) noexcept;
void* memmoveAlignedStub(void* ret, char* d, const char* s, std::size_t n) noexcept;

constinit live_table<copy_loop, 16> memcpyAlignedJTab{memcpyAlignedStub};
constinit live_table<copy_loop, 16> memmoveAlignedJTab{memmoveAlignedStub};

void* memcpyAlignedStub(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    memcpyAlignedJTab.fill(loopsForThisProcessor());
    return memcpyAlignedJTab[misalignment(s)](ret, d, s, n);
}

void* memmoveAlignedStub(void* ret, char* d, const char* s, std::size_t n) noexcept
{
    memmoveAlignedJTab.fill(backwardLoopsForThisProcessor());
    return memmoveAlignedJTab[misalignment(s)](ret, d, s, n);
}

// The heads take their pieces smallest first, so that starting from any
// address every store is naturally aligned and the destination ends on a
// 16-byte boundary, and then continue into the loop for the source's
// misalignment; the counts take them largest first, for the same reason from
// an aligned cursor. Every piece is loaded before it is stored, and pieces go
// in the direction of the copy, which is what makes them safe for memmove.
struct forward_head {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(void* ret, char* d, const char* s, std::size_t n) noexcept
    {
        forwardStep<1, N>(d, s);
        forwardStep<2, N>(d, s);
        forwardStep<4, N>(d, s);
        forwardStep<8, N>(d, s);
        return memcpyAlignedJTab[misalignment(s)](ret, d, s, n - N);
    }
    template <std::size_t N>
    static constexpr copy_loop at = run<N>;
};

struct forward_count {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(void* ret, char* d, const char* s) noexcept
    {
        forwardStep<8, N>(d, s);
        forwardStep<4, N>(d, s);
        forwardStep<2, N>(d, s);
        forwardStep<1, N>(d, s);
        return ret;
    }
    template <std::size_t N>
    static constexpr copy_count at = run<N>;
};

struct backward_head {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(void* ret, char* d, const char* s, std::size_t n) noexcept
    {
        backwardStep<1, N>(d, s);
        backwardStep<2, N>(d, s);
        backwardStep<4, N>(d, s);
        backwardStep<8, N>(d, s);
        return memmoveAlignedJTab[misalignment(s)](ret, d, s, n - N);
    }
    template <std::size_t N>
    static constexpr copy_loop at = run<N>;
};

struct backward_count {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void* run(void* ret, char* d, const char* s) noexcept
    {
        backwardStep<8, N>(d, s);
        backwardStep<4, N>(d, s);
        backwardStep<2, N>(d, s);
        backwardStep<1, N>(d, s);
        return ret;
    }
    template <std::size_t N>
    static constexpr copy_count at = run<N>;
};

// Entered with at least 64 bytes; copy the head that aligns the destination
// (its start, or for memmove its end) and continue into the loops.
constexpr copy_loop_table memcpyAlignDestinationJTab = tableOf<forward_head, 16>();
constexpr copy_loop_table memmoveAlignDestinationJTab = tableOf<backward_head, 16>();

} // namespace

constinit const std::array<copy_count, 16> memcpyAlignCountJTab = tableOf<forward_count, 16>();
constinit const std::array<copy_count, 16> memmoveAlignCountJTab = tableOf<backward_count, 16>();

void settleCopyLoops() noexcept
{
    memcpyAlignedJTab.fill(loopsForThisProcessor());
    memmoveAlignedJTab.fill(backwardLoopsForThisProcessor());
}

bool memcpyLoopsAre(const copy_loop_table& t) noexcept
{
    return memcpyAlignedJTab.holds(t);
}

bool memmoveLoopsAre(const copy_loop_table& t) noexcept
{
    return memmoveAlignedJTab.holds(t);
}

} // namespace uvt::impl::memlib

using namespace uvt::impl::memlib;

extern "C" UVT_MEMLIB_RAW void* uvt_memlib_memcpy(void* dst, const void* src, std::size_t n) noexcept
{
    char* d = static_cast<char*>(dst);
    const char* s = static_cast<const char*>(src);
    if (n < 64) {
        for (; n >= 16; n -= 16, d += 16, s += 16)
            movePiece<16>(d, s);
        return memcpyAlignCountJTab[n](dst, d, s);
    }
    return memcpyAlignDestinationJTab[-reinterpret_cast<std::uintptr_t>(d) & 15](dst, d, s, n);
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
        for (; n >= 16; n -= 16) {
            d -= 16;
            s -= 16;
            movePiece<16>(d, s);
        }
        return memmoveAlignCountJTab[n](dst, d, s);
    }
    return memmoveAlignDestinationJTab[misalignment(d)](dst, d, s, n);
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
