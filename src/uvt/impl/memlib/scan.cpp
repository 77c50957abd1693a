// String lengths and the copies and concatenations built on them.
//
// The scans read aligned 16-byte blocks, starting with the block that holds
// the first character and discarding the bytes before it, so that no read
// reaches into a page the string does not touch: a block in the first
// block's page is always readable, and further on a group of blocks tested
// at once is aligned to its own size, so that it never straddles two pages.
// After the first block strlen and wcslen test the next two blocks and then
// the next line and the next 128 bytes at once, as far as the first page
// reaches; then one block, two blocks and a line as needed to reach a
// 128-byte boundary, and from there eight blocks a round with one combined
// test.

#include "memlib_internal.h"

namespace uvt::impl::memlib {
namespace {

std::uint32_t byteMask(__m128i equal) noexcept { return static_cast<std::uint32_t>(_mm_movemask_epi8(equal)); }

// Element-size specific parts: one mask bit per byte, set for every byte of
// a zero element.
template <class C>
struct zero_elements;

template <>
struct zero_elements<char> {
    static std::uint32_t in(__m128i v) noexcept { return byteMask(_mm_cmpeq_epi8(v, _mm_setzero_si128())); }
    // Two blocks merged: a zero byte wherever either has one; merged
    // vectors combine the same way.
    static __m128i merge(__m128i a, __m128i b) noexcept { return _mm_min_epu8(a, b); }
    static __m128i combine(__m128i a, __m128i b) noexcept { return _mm_min_epu8(a, b); }
    static bool inMerged(__m128i v) noexcept { return in(v) != 0; }
};

template <>
struct zero_elements<wchar_t> {
    static_assert(sizeof(wchar_t) == 4);
    static __m128i equal(__m128i v) noexcept { return _mm_cmpeq_epi32(v, _mm_setzero_si128()); }
    static std::uint32_t in(__m128i v) noexcept { return byteMask(equal(v)); }
    // Zero elements cannot be merged by a minimum; their equality masks can.
    static __m128i merge(__m128i a, __m128i b) noexcept { return _mm_or_si128(equal(a), equal(b)); }
    static __m128i combine(__m128i a, __m128i b) noexcept { return _mm_or_si128(a, b); }
    static bool inMerged(__m128i v) noexcept { return byteMask(v) != 0; }
};

template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) std::uint32_t zerosIn(const char* block) noexcept
{
    return zero_elements<C>::in(loadBlock(block));
}

std::size_t misalignment(const void* p) noexcept { return reinterpret_cast<std::uintptr_t>(p) & 15; }

// One mask bit per byte of the two blocks or the 64-byte line at p, set for
// every byte of a zero element.
template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) std::uint32_t zerosInPair(const char* p) noexcept
{
    return zerosIn<C>(p) | zerosIn<C>(p + 16) << 16;
}

template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) std::uint64_t zerosInLine(const char* line) noexcept
{
    return std::uint64_t{zerosInPair<C>(line)} | std::uint64_t{zerosInPair<C>(line + 32)} << 32;
}

// Whether the two blocks at p, the four blocks at p, or the eight blocks at
// p hold a zero element.
template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) bool zeroInPair(const char* p) noexcept
{
    using z = zero_elements<C>;
    return z::inMerged(z::merge(loadBlock(p), loadBlock(p + 16)));
}

template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) bool zeroInLine(const char* p) noexcept
{
    using z = zero_elements<C>;
    const __m128i a = z::merge(loadBlock(p), loadBlock(p + 16));
    const __m128i b = z::merge(loadBlock(p + 32), loadBlock(p + 48));
    return z::inMerged(z::combine(a, b));
}

template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) bool zeroInPairOfLines(const char* p) noexcept
{
    using z = zero_elements<C>;
    const __m128i a = z::merge(loadBlock(p), loadBlock(p + 16));
    const __m128i b = z::merge(loadBlock(p + 32), loadBlock(p + 48));
    const __m128i c = z::merge(loadBlock(p + 64), loadBlock(p + 80));
    const __m128i d = z::merge(loadBlock(p + 96), loadBlock(p + 112));
    return z::inMerged(z::combine(z::combine(a, b), z::combine(c, d)));
}

std::size_t page_offset(const char* p) noexcept { return reinterpret_cast<std::uintptr_t>(p) & 4095; }

// Length in elements of the string at s, whose elements are aligned. After
// the first block: when the next 96 bytes lie in the first block's page
// (which is mapped, since it holds the first character), two blocks and
// then a line at once, wherever they fall; then, or straight away near the
// end of a page, one block, two blocks and one line as needed to reach a
// 128-byte boundary, and from there eight blocks a round.
template <class C>
UVT_MEMLIB_RAW inline __attribute__((always_inline)) std::size_t alignedLength(const C* s) noexcept
{
    const char* const start = reinterpret_cast<const char*>(s);
    const char* p = start - misalignment(start);
    const std::uint32_t first = zerosIn<C>(p) >> misalignment(start);
    if (first != 0)
        return std::size_t{static_cast<unsigned>(__builtin_ctz(first))} / sizeof(C);
    p += 16;
    const auto at = [start](const char* from, std::size_t zeroBit) noexcept {
        return (static_cast<std::size_t>(from - start) + zeroBit) / sizeof(C);
    };
    if (page_offset(p) <= 4096 - 96) {
        if (zeroInPair<C>(p))
            return at(p, static_cast<unsigned>(__builtin_ctz(zerosInPair<C>(p))));
        p += 32;
        if (zeroInLine<C>(p))
            return at(p, static_cast<unsigned>(__builtin_ctzll(zerosInLine<C>(p))));
        p += 64;
        if (page_offset(p) <= 4096 - 128) {
            if (zeroInPairOfLines<C>(p)) {
                if (const std::uint64_t zeros = zerosInLine<C>(p); zeros != 0)
                    return at(p, static_cast<unsigned>(__builtin_ctzll(zeros)));
                return at(p + 64, static_cast<unsigned>(__builtin_ctzll(zerosInLine<C>(p + 64))));
            }
            p += 128;
        }
    }
    if ((reinterpret_cast<std::uintptr_t>(p) & 16) != 0) {
        if (const std::uint32_t zeros = zerosIn<C>(p); zeros != 0)
            return at(p, static_cast<unsigned>(__builtin_ctz(zeros)));
        p += 16;
    }
    if ((reinterpret_cast<std::uintptr_t>(p) & 32) != 0) {
        if (zeroInPair<C>(p))
            return at(p, static_cast<unsigned>(__builtin_ctz(zerosInPair<C>(p))));
        p += 32;
    }
    if ((reinterpret_cast<std::uintptr_t>(p) & 64) != 0) {
        if (zeroInLine<C>(p))
            return at(p, static_cast<unsigned>(__builtin_ctzll(zerosInLine<C>(p))));
        p += 64;
    }
    while (!zeroInPairOfLines<C>(p))
        p += 128;
    std::uint64_t zeros = zerosInLine<C>(p);
    if (zeros == 0) {
        p += 64;
        zeros = zerosInLine<C>(p);
    }
    return at(p, static_cast<unsigned>(__builtin_ctzll(zeros)));
}

// Length in elements, at most maxlen; reads no block beyond the one holding
// element maxlen - 1.
template <class C>
UVT_MEMLIB_RAW std::size_t alignedBoundedLength(const C* s, std::size_t maxlen) noexcept
{
    if (maxlen == 0)
        return 0;
    const char* const start = reinterpret_cast<const char*>(s);
    const char* block = start - misalignment(start);
    std::uint32_t zeros = zerosIn<C>(block) >> misalignment(start);
    std::size_t before = 0; // elements ahead of the block being tested
    std::size_t seen = (16 - misalignment(start)) / sizeof(C);
    while (zeros == 0 && seen < maxlen) {
        block += 16;
        before = seen;
        seen += 16 / sizeof(C);
        zeros = zerosIn<C>(block);
    }
    const std::size_t length = zeros == 0 ? maxlen : before + __builtin_ctz(zeros) / sizeof(C);
    return length < maxlen ? length : maxlen;
}

// Wide strings whose elements are not 4-byte aligned cannot be scanned by
// aligned blocks; they are measured one element at a time.
bool wideElementsAligned(const wchar_t* s) noexcept
{
    return (reinterpret_cast<std::uintptr_t>(s) & (sizeof(wchar_t) - 1)) == 0;
}

UVT_MEMLIB_RAW std::size_t unalignedWideLength(const wchar_t* s, std::size_t maxlen) noexcept
{
    using element = scalar_of<sizeof(wchar_t)>::type;
    const char* p = reinterpret_cast<const char*>(s);
    std::size_t n = 0;
    while (n < maxlen && *reinterpret_cast<const element*>(p + n * sizeof(wchar_t)) != 0)
        ++n;
    return n;
}

} // namespace
} // namespace uvt::impl::memlib

using namespace uvt::impl::memlib;

extern "C" UVT_MEMLIB_RAW std::size_t uvt_memlib_strlen(const char* s) noexcept { return alignedLength(s); }

extern "C" UVT_MEMLIB_RAW std::size_t uvt_memlib_strnlen(const char* s, std::size_t maxlen) noexcept
{
    return alignedBoundedLength(s, maxlen);
}

extern "C" UVT_MEMLIB_RAW std::size_t uvt_memlib_wcslen(const wchar_t* s) noexcept
{
    return wideElementsAligned(s) ? alignedLength(s) : unalignedWideLength(s, ~std::size_t{0});
}

extern "C" UVT_MEMLIB_RAW std::size_t uvt_memlib_wcsnlen(const wchar_t* s, std::size_t maxlen) noexcept
{
    return wideElementsAligned(s) ? alignedBoundedLength(s, maxlen) : unalignedWideLength(s, maxlen);
}

extern "C" char* uvt_memlib_strcpy(char* dst, const char* src) noexcept
{
    uvt_memlib_memcpy(dst, src, uvt_memlib_strlen(src) + 1);
    return dst;
}

extern "C" char* uvt_memlib_strcat(char* dst, const char* src) noexcept
{
    uvt_memlib_strcpy(dst + uvt_memlib_strlen(dst), src);
    return dst;
}

extern "C" wchar_t* uvt_memlib_wcscpy(wchar_t* dst, const wchar_t* src) noexcept
{
    uvt_memlib_memcpy(dst, src, (uvt_memlib_wcslen(src) + 1) * sizeof(wchar_t));
    return dst;
}

extern "C" wchar_t* uvt_memlib_wcscat(wchar_t* dst, const wchar_t* src) noexcept
{
    uvt_memlib_wcscpy(dst + uvt_memlib_wcslen(dst), src);
    return dst;
}

namespace uvt::impl {
std::size_t strlen_impl(const char* s) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strlen);
std::size_t strnlen_impl(const char* s, std::size_t maxlen) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strnlen);
std::size_t wcslen_impl(const wchar_t* s) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcslen);
std::size_t wcsnlen_impl(const wchar_t* s, std::size_t maxlen) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcsnlen);
char* strcpy_impl(char* dst, const char* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strcpy);
char* strcat_impl(char* dst, const char* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strcat);
wchar_t* wcscpy_impl(wchar_t* dst, const wchar_t* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcscpy);
wchar_t* wcscat_impl(wchar_t* dst, const wchar_t* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcscat);
} // namespace uvt::impl

#if UVT_EXPORT_C_MEMLIB
extern "C" {
UVT_API std::size_t strlen(const char* s) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strlen);
UVT_API std::size_t strnlen(const char* s, std::size_t maxlen) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strnlen);
UVT_API std::size_t wcslen(const wchar_t* s) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcslen);
UVT_API std::size_t wcsnlen(const wchar_t* s, std::size_t maxlen) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcsnlen);
UVT_API char* strcpy(char* dst, const char* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strcpy);
UVT_API char* strcat(char* dst, const char* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_strcat);
UVT_API wchar_t* wcscpy(wchar_t* dst, const wchar_t* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcscpy);
UVT_API wchar_t* wcscat(wchar_t* dst, const wchar_t* src) noexcept UVT_MEMLIB_ALIAS_OF(uvt_memlib_wcscat);
}
#endif
