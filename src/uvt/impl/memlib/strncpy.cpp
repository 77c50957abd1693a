// strncpy_impl: the path choice on first use, the self-patching table of the
// AVX path and the short copy and zero-fill tables of every path (the loops
// themselves are built in strncpy_sse2.cpp, strncpy_avx.cpp and
// strncpy_avx2.cpp).

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

// The largest piece of 16, 8, 4, 2 or 1 bytes that fits in n (n > 0).
constexpr std::size_t pieceFor(std::size_t n) noexcept
{
    std::size_t piece = 16;
    while (piece > n)
        piece /= 2;
    return piece;
}

template <std::size_t Bytes>
UVT_MEMLIB_RAW inline void storeZeros(char* d) noexcept
{
    if constexpr (Bytes == 16) {
        storePiece(d, _mm_setzero_si128());
    } else {
        *reinterpret_cast<typename scalar_of<Bytes>::type*>(d) = 0;
    }
}

// N bytes as two pieces of the largest fitting size, the second ending at N
// (they overlap unless N is a power of two); 0 bytes do nothing.
struct short_chunk {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void run(char* d, const char* s) noexcept
    {
        if constexpr (N > 0) {
            constexpr std::size_t piece = pieceFor(N);
            movePiece<piece>(d, s);
            movePiece<piece>(d + N - piece, s + N - piece);
        }
    }
    template <std::size_t N>
    static constexpr strncpy_chunk at = run<N>;
};

struct short_exit {
    template <std::size_t N>
    UVT_MEMLIB_RAW static void run(char* d) noexcept
    {
        if constexpr (N > 0) {
            constexpr std::size_t piece = pieceFor(N);
            storeZeros<piece>(d);
            storeZeros<piece>(d + N - piece);
        }
    }
    template <std::size_t N>
    static constexpr strncpy_exit at = run<N>;
};

std::size_t misalignment(const char* p, std::size_t width) noexcept
{
    return reinterpret_cast<std::uintptr_t>(p) & (width - 1);
}

char* strncpySelect(char* dst, const char* src, std::size_t n) noexcept;
char* strncpyAlignedStub(char* dst, const char* src, std::size_t n) noexcept;

// The chosen path: strncpySelect until the first call has chosen.
constinit std::atomic<strncpy_loop> strncpyPathSlot{strncpySelect};
constinit live_table<strncpy_loop, 32> strncpyAlignedJTab{strncpyAlignedStub};

char* strncpySelect(char* dst, const char* src, std::size_t n) noexcept
{
    const strncpy_loop path = dispatchLevel() > CPU_SSE42 ? strncpyWide : strncpyOldArchitecture;
    strncpyPathSlot.store(path, std::memory_order_relaxed);
    return path(dst, src, n);
}

char* strncpyAlignedStub(char* dst, const char* src, std::size_t n) noexcept
{
    strncpyAlignedJTab.fill(dispatchLevel() >= CPU_AVX2 ? strncpyAlignedAVX2JTab : strncpyAlignedAVXJTab);
    return strncpyAlignedJTab[misalignment(src, 32)](dst, src, n);
}

} // namespace

constinit const std::array<strncpy_chunk, 32> strncpyShortChunkJTab = tableOf<short_chunk, 32>();
constinit const std::array<strncpy_exit, 32> strncpyShortExitJTab = tableOf<short_exit, 32>();

void padWithZeros(char* d, std::size_t n) noexcept
{
    if (n < 32)
        strncpyShortExitJTab[n](d);
    else
        uvt_memlib_memset(d, 0, n);
}

char* strncpyWide(char* dst, const char* src, std::size_t n) noexcept
{
    return strncpyAlignedJTab[misalignment(src, 32)](dst, src, n);
}

char* strncpyOldArchitecture(char* dst, const char* src, std::size_t n) noexcept
{
    return strncpyOldArhitectJTab[misalignment(src, 16)](dst, src, n);
}

void settleStrncpyPath() noexcept
{
    const std::int32_t level = dispatchLevel();
    if (level > CPU_SSE42)
        strncpyAlignedJTab.fill(level >= CPU_AVX2 ? strncpyAlignedAVX2JTab : strncpyAlignedAVXJTab);
    strncpyPathSlot.store(level > CPU_SSE42 ? strncpyWide : strncpyOldArchitecture, std::memory_order_relaxed);
}

strncpy_loop strncpyPath() noexcept { return strncpyPathSlot.load(std::memory_order_relaxed); }

bool strncpyWideLoopsAre(const strncpy_wide_table& t) noexcept { return strncpyAlignedJTab.holds(t); }

} // namespace uvt::impl::memlib

extern "C" char* uvt_memlib_strncpy(char* dst, const char* src, std::size_t n) noexcept
{
    // The loops read the source's first block before looking at n; with
    // nothing to copy the source need not even be readable.
    if (n == 0)
        return dst;
    return uvt::impl::memlib::strncpyPath()(dst, src, n);
}

namespace uvt::impl {
char* strncpy_impl(char* dst, const char* src, std::size_t n) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strncpy);
} // namespace uvt::impl
