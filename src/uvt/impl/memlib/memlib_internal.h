// Shared pieces of the memory primitives: the hidden entry points that the
// routines call among themselves, the jump-table types and the small moves
// the tables are built from.
//
// Every routine has one hidden C-linkage definition (`uvt_memlib_<name>`).
// The names of <uvt/impl/memlib/memlib> and, when exported, the C names are
// aliases of it, so calls inside the library never go through the PLT and
// never reach whatever else a process may interpose under the C names.
#pragma once

#include <uvt/impl/memlib/memlib>

#include <emmintrin.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

// Marks every routine that touches the caller's memory: the sanitizers leave
// it uninstrumented. Two reasons: the scans and the loops for misaligned
// sources read whole aligned blocks around the caller's range (inside blocks
// that hold at least one byte of the range, hence inside mapped pages, but
// outside the objects the sanitizers know); and the sanitizer runtimes
// themselves call memset and memcpy, which may be these, on their shadow
// memory, where instrumented accesses would fault. The interceptors of the C
// names still check the caller's ranges.
#define UVT_MEMLIB_RAW __attribute__((no_sanitize("address", "thread")))

// Defines an exported name as another symbol for the same code.
#define UVT_MEMLIB_ALIAS_OF(core) __attribute__((alias(#core)))

// Compiles the rest of a source file for an instruction-set extension
// ("ssse3", "avx", "avx2"): functions defined between UVT_MEMLIB_TARGET_BEGIN
// and UVT_MEMLIB_TARGET_END may use it, and are reached only through the
// dispatch on processors that have it. g++ and clang spell this differently.
#define UVT_MEMLIB_PRAGMA(text) _Pragma(#text)
#if defined(__clang__)
#define UVT_MEMLIB_TARGET_BEGIN(isa) \
    UVT_MEMLIB_PRAGMA(clang attribute push(__attribute__((target(isa))), apply_to = function))
#define UVT_MEMLIB_TARGET_END UVT_MEMLIB_PRAGMA(clang attribute pop)
#else
#define UVT_MEMLIB_TARGET_BEGIN(isa) UVT_MEMLIB_PRAGMA(GCC push_options) UVT_MEMLIB_PRAGMA(GCC target(isa))
#define UVT_MEMLIB_TARGET_END UVT_MEMLIB_PRAGMA(GCC pop_options)
#endif

extern "C" {
void* uvt_memlib_memcpy(void* dst, const void* src, std::size_t n) noexcept;
void* uvt_memlib_memmove(void* dst, const void* src, std::size_t n) noexcept;
void* uvt_memlib_memset(void* dst, int c, std::size_t n) noexcept;
std::size_t uvt_memlib_strlen(const char* s) noexcept;
std::size_t uvt_memlib_strnlen(const char* s, std::size_t maxlen) noexcept;
std::size_t uvt_memlib_wcslen(const wchar_t* s) noexcept;
std::size_t uvt_memlib_wcsnlen(const wchar_t* s, std::size_t maxlen) noexcept;
char* uvt_memlib_strcpy(char* dst, const char* src) noexcept;
char* uvt_memlib_strcat(char* dst, const char* src) noexcept;
wchar_t* uvt_memlib_wcscpy(wchar_t* dst, const wchar_t* src) noexcept;
wchar_t* uvt_memlib_wcscat(wchar_t* dst, const wchar_t* src) noexcept;
char* uvt_memlib_strncpy(char* dst, const char* src, std::size_t n) noexcept;
}

namespace uvt::impl::memlib {

// Scalars of 1, 2, 4 and 8 bytes for access at any address, without
// undefined behaviour and without a call.
template <std::size_t Bytes>
struct scalar_of;
template <>
struct scalar_of<1> {
    typedef std::uint8_t type __attribute__((aligned(1), may_alias));
};
template <>
struct scalar_of<2> {
    typedef std::uint16_t type __attribute__((aligned(1), may_alias));
};
template <>
struct scalar_of<4> {
    typedef std::uint32_t type __attribute__((aligned(1), may_alias));
};
template <>
struct scalar_of<8> {
    typedef std::uint64_t type __attribute__((aligned(1), may_alias));
};

// 16-byte aligned blocks and unaligned pieces. In an unnamed namespace, as
// everything that a file compiled for a richer instruction set may inline,
// so that every file keeps its own copy.
namespace {

UVT_MEMLIB_RAW inline __m128i loadBlock(const char* p) noexcept
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
}

UVT_MEMLIB_RAW inline void storeBlock(char* p, __m128i v) noexcept
{
    _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
}

UVT_MEMLIB_RAW inline __m128i loadPiece(const char* p) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

UVT_MEMLIB_RAW inline void storePiece(char* p, __m128i v) noexcept
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

} // namespace

// Copies `Bytes` (1, 2, 4, 8 or 16) from s to d: one load, then one store.
template <std::size_t Bytes>
UVT_MEMLIB_RAW inline void movePiece(char* d, const char* s) noexcept
{
    if constexpr (Bytes == 16) {
        storePiece(d, loadPiece(s));
    } else {
        using word = typename scalar_of<Bytes>::type;
        *reinterpret_cast<word*>(d) = *reinterpret_cast<const word*>(s);
    }
}

// Stores the low `Bytes` (1, 2 or 4) of a replicated byte pattern at d.
template <std::size_t Bytes>
UVT_MEMLIB_RAW inline void storePattern(char* d, std::uint32_t pattern) noexcept
{
    using word = typename scalar_of<Bytes>::type;
    *reinterpret_cast<word*>(d) = static_cast<word>(pattern);
}

// Builds a table whose entry I is Entry::template at<I>, for I < N.
template <class Entry, std::size_t N, std::size_t... I>
constexpr auto tableOf(std::index_sequence<I...>) noexcept
{
    return std::array<std::remove_const_t<decltype(Entry::template at<0>)>, N>{Entry::template at<I>...};
}
template <class Entry, std::size_t N>
constexpr auto tableOf() noexcept
{
    return tableOf<Entry, N>(std::make_index_sequence<N>{});
}

// A writable jump table. Every slot starts as a stub; the stub's first call
// fills all slots from a template. Slots are read and written with relaxed
// atomics: racing writers store identical values, and the entries are code,
// so no other memory has to be ordered with them. Constant-initialised, so
// usable before any constructor of the library has run.
template <class Fn, std::size_t N>
class live_table {
public:
    constexpr explicit live_table(Fn stub) noexcept : live_table(stub, std::make_index_sequence<N>{}) {}

    Fn operator[](std::size_t i) const noexcept { return slots_[i].load(std::memory_order_relaxed); }

    void fill(const std::array<Fn, N>& from) noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            slots_[i].store(from[i], std::memory_order_relaxed);
    }

    bool holds(const std::array<Fn, N>& from) const noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            if ((*this)[i] != from[i])
                return false;
        return true;
    }

private:
    template <std::size_t... I>
    constexpr live_table(Fn stub, std::index_sequence<I...>) noexcept : slots_{((void)I, stub)...}
    {}

    std::atomic<Fn> slots_[N];
};

// Inner loops of memcpy/memmove, one per source misalignment. Called with
// n >= 49 bytes left and the destination cursor 16-byte aligned; forward
// loops get the cursors at the start of what is left, backward loops at its
// end. `head` holds the 16 source bytes that the head covers, loaded before
// anything was stored, and `headAt` is where they go: the loop stores them
// once it has read everything it needs, so that a copy whose destination
// lies just below its source never reads bytes it has already overwritten.
// The loops finish the copy (the last 32 bytes at the far end are likewise
// loaded first and stored last) and return the start of the whole
// destination: `headAt` going forward, the far end of what is left (d - n)
// going backward.
struct copy_head {
    __m128i bytes; // a class of one vector: passed in a vector register
};
using copy_loop = void* (*)(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept;
using copy_loop_table = std::array<copy_loop, 16>;

// Copies of 0..15 bytes by count; forward ones start at the cursors and
// return d, backward ones end at them and return where they started. Every
// piece is loaded before the first store, so they are right for overlapping
// ranges in either direction.
using copy_count = void* (*)(char* d, const char* s) noexcept;

extern const copy_loop_table memcpyAlignedSSE2JTab;
extern const copy_loop_table memcpyAlignedSupSSE3JTab;
extern const copy_loop_table memmoveAlignedSSE2JTab;
extern const copy_loop_table memmoveAlignedSupSSE3JTab;
extern const std::array<copy_count, 16> memcpyAlignCountJTab;
extern const std::array<copy_count, 16> memmoveAlignCountJTab;

// The plain loops for an aligned source, shared by both templates.
void* forwardAlignedSource(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept;
void* backwardAlignedSource(char* d, const char* s, std::size_t n, copy_head head, char* headAt) noexcept;

// strncpy_impl inner loops, one per source misalignment within a vector.
using strncpy_loop = char* (*)(char* dst, const char* src, std::size_t n) noexcept;
using strncpy_wide_table = std::array<strncpy_loop, 32>;

extern const std::array<strncpy_loop, 16> strncpyOldArhitectJTab;
extern const strncpy_wide_table strncpyAlignedAVXJTab;
extern const strncpy_wide_table strncpyAlignedAVX2JTab;

// Copies of 0..31 bytes and zero fills of 0..31 bytes by count, for the
// beginning and the end of strncpy_impl (non-overlapping ranges only).
using strncpy_chunk = void (*)(char* d, const char* s) noexcept;
using strncpy_exit = void (*)(char* d) noexcept;
extern const std::array<strncpy_chunk, 32> strncpyShortChunkJTab;
extern const std::array<strncpy_exit, 32> strncpyShortExitJTab;

// Writes n zero bytes at d: the short table below 32 bytes, memset above.
void padWithZeros(char* d, std::size_t n) noexcept;

// dispatchInstructionSet(), reached without the PLT.
std::int32_t dispatchLevel() noexcept;

// Fill the writable tables and the strncpy_impl path for the dispatch level
// now, whatever a stub may have chosen before. For the load-time warm-up:
// code that runs before the C library has set up the environment (a
// sanitizer runtime's start-up, for one) may already have gone through a
// stub, which then could not see UVT_CPU_LEVEL.
void settleCopyLoops() noexcept;
void settleStrncpyPath() noexcept;

// The writable tables, for diagnostics (memlibDispatch).
bool memcpyLoopsAre(const copy_loop_table& t) noexcept;
bool memmoveLoopsAre(const copy_loop_table& t) noexcept;
strncpy_loop strncpyPath() noexcept;
bool strncpyWideLoopsAre(const strncpy_wide_table& t) noexcept;
char* strncpyWide(char* dst, const char* src, std::size_t n) noexcept;
char* strncpyOldArchitecture(char* dst, const char* src, std::size_t n) noexcept;

} // namespace uvt::impl::memlib
