// Memory and string primitives: differential tests against element-wise
// reference models for every size up to 300 at every source and destination
// misalignment, overlapping moves, scans and copies next to inaccessible
// pages, the checked variants and the processor dispatch.
//
// The routines are called through their library-internal names; the C names
// the library exports are the same entry points (checked). CTest runs this
// program once more per dispatch level (UVT_CPU_LEVEL), so every loop
// variant is checked on one machine.

#include <uvt/impl/memlib/memlib>

#include "support/guarded_memory.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace uvt::impl;
using uvt_test::guarded;
using uvt_test::page_size;

// ---------------------------------------------------------------------------
// The string routines of each width, and the C names.

template <class C>
struct string_routines {
    std::size_t (*len)(const C*);
    std::size_t (*nlen)(const C*, std::size_t);
    C* (*cpy)(C*, const C*);
    C* (*cat)(C*, const C*);
};

const string_routines<char> narrow{strlen_impl, strnlen_impl, strcpy_impl, strcat_impl};
const string_routines<wchar_t> wide{wcslen_impl, wcsnlen_impl, wcscpy_impl, wcscat_impl};

// Exported, each C name is an alias of its internal entry point, so the
// tests below cover both; not exported, the library leaves the C name to
// the C library.
TEST(MemlibExport, CNamesAreTheInternalEntryPointsExactlyWhenExported)
{
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&memcpy_impl), &info), 0);
    void* const library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const std::pair<const char*, void*> names[] = {
        {"memcpy", reinterpret_cast<void*>(&memcpy_impl)},   {"memmove", reinterpret_cast<void*>(&memmove_impl)},
        {"memset", reinterpret_cast<void*>(&memset_impl)},   {"strlen", reinterpret_cast<void*>(&strlen_impl)},
        {"strnlen", reinterpret_cast<void*>(&strnlen_impl)}, {"strcpy", reinterpret_cast<void*>(&strcpy_impl)},
        {"strcat", reinterpret_cast<void*>(&strcat_impl)},   {"wcslen", reinterpret_cast<void*>(&wcslen_impl)},
        {"wcsnlen", reinterpret_cast<void*>(&wcsnlen_impl)}, {"wcscpy", reinterpret_cast<void*>(&wcscpy_impl)},
        {"wcscat", reinterpret_cast<void*>(&wcscat_impl)},
    };
    for (auto [name, internal] : names)
        EXPECT_EQ(dlsym(library, name) == internal, UVT_EXPORT_C_MEMLIB == 1) << name;
    dlclose(library);
}

// ---------------------------------------------------------------------------
// Reference models: buffers are filled from a position-dependent pattern so
// that the expected contents are computed, never copied (a copying loop in
// this file could itself be compiled into a call of the routine under test).

unsigned char pattern(std::size_t i, unsigned seed)
{
    return static_cast<unsigned char>((i * 167 + seed * 59 + (i >> 8)) % 251 + 1); // never 0
}

// Never 0 either; the wide elements hold zero bytes and bytes above 0x7F.
template <class C>
C element(std::size_t i, unsigned seed)
{
    if constexpr (sizeof(C) == 1)
        return static_cast<C>(pattern(i, seed));
    else
        return static_cast<C>(i % 3 == 0 ? 0x100 * (i + seed) : i % 3 == 1 ? 0x7FFFFF00 : 0x41 + (i + seed) % 26);
}

template <class C>
void fill(C* p, std::size_t n, unsigned seed)
{
    for (std::size_t i = 0; i < n; ++i)
        p[i] = element<C>(i, seed);
}

// Index of the first element of p[0..n) that differs from expected(i), or n.
template <class C, class Expected>
std::size_t first_mismatch(const C* p, std::size_t n, Expected expected)
{
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] != expected(i))
            return i;
    return n;
}

// For a buffer of pattern `seed` into which n elements of pattern
// `from_seed` were copied from `from` to `to`: the first wrong element, or
// the size.
template <class C>
std::size_t copy_mismatch(const C* buffer, std::size_t size, std::size_t to, std::size_t from, std::size_t n,
                          unsigned seed, unsigned from_seed)
{
    return first_mismatch(buffer, size, [&](std::size_t i) {
        return i >= to && i < to + n ? element<C>(i - to + from, from_seed) : element<C>(i, seed);
    });
}

// A string of `length` pattern elements at `at`, its terminator, and more
// non-zero elements.
template <class C>
void place_string(C* buffer, std::size_t size, std::size_t at, std::size_t length, unsigned seed = 8)
{
    fill(buffer, size, seed);
    buffer[at + length] = 0;
}

// first, first + 1, ..., last
template <class T>
std::vector<T> every(T first, T last)
{
    std::vector<T> all;
    for (T v = first; v <= last; ++v)
        all.push_back(v);
    return all;
}

constexpr std::size_t max_size = 300;
constexpr std::size_t margin = 64; // untouched bytes checked on both sides

TEST(Memlib, MemcpyAndMemsetEverySizeAndMisalignmentAndLargeCopiesAndMoves)
{
    alignas(64) static unsigned char src[max_size + 2 * margin];
    alignas(64) static unsigned char dst[max_size + 2 * margin];
    fill(src, sizeof src, 1);
    for (std::size_t n = 0; n <= max_size; ++n)
        for (std::size_t da = 0; da < 16; ++da) {
            for (std::size_t sa = 0; sa < 16; ++sa) {
                fill(dst, sizeof dst, 2);
                ASSERT_EQ(memcpy_impl(dst + margin + da, src + margin + sa, n), dst + margin + da);
                ASSERT_EQ(copy_mismatch(dst, sizeof dst, margin + da, margin + sa, n, 2, 1), sizeof dst)
                    << "memcpy n " << n << " src+" << sa << " dst+" << da;
            }
            for (int c : {0, 0xA5, 0x17F}) { // only the low byte of c counts
                fill(dst, sizeof dst, 7);
                ASSERT_EQ(memset_impl(dst + margin + da, c, n), dst + margin + da);
                const std::size_t at = first_mismatch(dst, sizeof dst, [&](std::size_t i) {
                    const bool inside = i >= margin + da && i < margin + da + n;
                    return inside ? static_cast<unsigned char>(c) : pattern(i, 7);
                });
                ASSERT_EQ(at, sizeof dst) << "memset c " << c << " n " << n << " dst+" << da;
            }
        }

    // Large copies and moves.
    for (std::size_t n : {4095ul, 4096ul, 4097ul, 65536ul + 5, (1ul << 20) + 3})
        for (auto [sa, da] : {std::pair{0ul, 0ul}, {3ul, 11ul}, {15ul, 1ul}, {8ul, 8ul}}) {
            std::vector<unsigned char> src(n + 32), dst(n + 32);
            fill(src.data(), src.size(), 4);
            fill(dst.data(), dst.size(), 5);
            memcpy_impl(dst.data() + da, src.data() + sa, n);
            EXPECT_EQ(copy_mismatch(dst.data(), dst.size(), da, sa, n, 5, 4), dst.size())
                << "memcpy n " << n << " src+" << sa << " dst+" << da;
            for (long shift : {-4097l, -33l, -1l, 1l, 17l, 4095l}) {
                std::vector<unsigned char> buffer(n + 8200 + 32);
                fill(buffer.data(), buffer.size(), 6);
                const std::size_t s = 4100 + sa, d = s + shift;
                memmove_impl(buffer.data() + d, buffer.data() + s, n);
                EXPECT_EQ(copy_mismatch(buffer.data(), buffer.size(), d, s, n, 6, 6), buffer.size())
                    << "memmove n " << n << " shift " << shift;
            }
        }
}

// Overlapping moves, by dst - src. Every size with shifts both ways within
// and beyond a 16-byte piece, a 32-byte round and the 64-byte threshold; and
// the sizes the loops take (64 and up) with every shift below a piece: the
// piece that covers the head (and those at the far end) overlap bytes the
// loops still read, so they must be loaded before, and stored after,
// everything else.
TEST(Memlib, MemmoveOverlappingBothWays)
{
    const struct {
        std::size_t shortest, longest;
        std::vector<long> shifts;
    } rows[] = {
        {0, max_size, {-300, -100, -65, -64, -63, -33, -32, -31, -17, -16, -15, -8, -7, -3, -2,  -1, 0,
                       1,    2,    3,   7,   8,   15,  16,  17,  31,  32,  33,  63, 64, 65, 100, 300}},
        {64, 200, every(-15l, 15l)},
    };
    constexpr std::size_t size = 2 * max_size + 2 * margin + 16;
    alignas(64) static unsigned char buffer[size];
    for (const auto& row : rows)
        for (std::size_t n = row.shortest; n <= row.longest; ++n)
            for (long shift : row.shifts)
                for (std::size_t sa = 0; sa < 16; ++sa) {
                    const std::size_t src = margin + max_size + sa, dst = src + shift;
                    fill(buffer, size, 3);
                    ASSERT_EQ(memmove_impl(buffer + dst, buffer + src, n), buffer + dst);
                    ASSERT_EQ(copy_mismatch(buffer, size, dst, src, n, 3, 3), size)
                        << "n " << n << " shift " << shift << " src+" << sa;
                }
}

template <class C>
void expect_lengths(const string_routines<C>& f, std::size_t misalignments)
{
    alignas(64) static C buffer[max_size + 2 * margin];
    for (std::size_t length = 0; length <= max_size; ++length)
        for (std::size_t sa = 0; sa < misalignments; ++sa) {
            place_string(buffer, std::size(buffer), margin + sa, length);
            const C* s = buffer + margin + sa;
            ASSERT_EQ(f.len(s), length) << "+" << sa;
            for (std::size_t limit :
                 {0ul, 1ul, length / 2, length - 1, length, length + 1, length + 5, length + 17, ~0ul})
                ASSERT_EQ(f.nlen(s, limit), std::min(length, limit)) << "+" << sa << " limit " << limit;
        }
}

// Then wide strings whose elements lie off their natural alignment.
// Whether dst holds, at `start`, the string placed by place_string at
// `from`, with its terminator, and the fill pattern 9 everywhere else.
template <class C>
bool holds_string(const C* dst, std::size_t size, std::size_t start, std::size_t length, std::size_t from)
{
    return first_mismatch(dst, size, [&](std::size_t i) {
               if (i >= start && i < start + length)
                   return element<C>(i - start + from, 8);
               return i == start + length ? C(0) : element<C>(i, 9);
           }) == size;
}

// strcat onto strings of many lengths, then strcpy, at several destination
// misalignments.
template <class C>
void expect_copies(const string_routines<C>& f, std::size_t longest, std::size_t misalignments)
{
    alignas(64) static C src[max_size + 2 * margin];
    alignas(64) static C dst[2 * max_size + 2 * margin];
    for (std::size_t length = 0; length <= longest; ++length)
        for (std::size_t sa = 0; sa < misalignments; ++sa)
            for (std::size_t da : {0ul, 1ul, 7ul, 15ul}) {
                place_string(src, std::size(src), margin + sa, length);
                const C* s = src + margin + sa;
                C* d = dst + margin + da;
                const std::size_t prefix = (length * 7 + sa) % 40;
                place_string(dst, std::size(dst), margin + da, prefix, 9);
                ASSERT_EQ(f.cat(d, s), d);
                ASSERT_TRUE(holds_string(dst, std::size(dst), margin + da + prefix, length, margin + sa))
                    << "cat length " << length << " prefix " << prefix;
                fill(dst, std::size(dst), 9);
                ASSERT_EQ(f.cpy(d, s), d);
                ASSERT_TRUE(holds_string(dst, std::size(dst), margin + da, length, margin + sa))
                    << "cpy length " << length;
            }
}

TEST(Memlib, LengthsAndCopiesEveryLengthAndMisalignment)
{
    expect_lengths(narrow, 16);
    expect_lengths(wide, 4);
    alignas(64) static unsigned char bytes[(max_size + 8) * sizeof(wchar_t)];
    static wchar_t units[max_size + 8];
    for (std::size_t length : {0ul, 1ul, 5ul, 37ul, 200ul})
        for (std::size_t offset : {1ul, 2ul, 3ul}) {
            place_string(units, std::size(units), 0, length);
            std::memcpy(bytes + offset, units, (length + 1) * sizeof(wchar_t));
            const auto* s = reinterpret_cast<const wchar_t*>(bytes + offset);
            EXPECT_EQ(wide.len(s), length) << "+" << offset;
            EXPECT_EQ(wide.nlen(s, length / 2), length / 2) << "+" << offset;
        }

    // strcat and strcpy, narrow and wide.
    expect_copies(narrow, 130, 16);
    expect_copies(wide, 70, 4);
}

// ---------------------------------------------------------------------------
// Next to inaccessible pages: a page of `guarded` is fenced on both sides.

// A string whose terminator is the last element of the page; then the same
// elements unterminated, where only the limit stops the scan at the page end.
template <class C>
void scan_to_page_end(const string_routines<C>& f, std::size_t length)
{
    const guarded<C> page(page_size() / sizeof(C));
    fill(page.begin(), page.size(), 10);
    C* s = page.end() - 1 - length;
    page.end()[-1] = 0;
    EXPECT_EQ(f.len(s), length);
    EXPECT_EQ(f.nlen(s, length + 3), length);
    EXPECT_EQ(f.nlen(s, ~0ul), length);
    std::vector<C> copy(length + 1);
    EXPECT_EQ(f.cpy(copy.data(), s), copy.data());
    EXPECT_EQ(f.len(copy.data()), length);
    page.end()[-1] = element<C>(0, 10);
    EXPECT_EQ(f.nlen(s, length + 1), length + 1);
}

// A string at every start within the page, with a zero just before it and
// none after its terminator up to the page end: the scans test different
// groups of blocks at once depending on how far the page reaches beyond the
// start, and none may report the zero before the start, miss the terminator
// or read past the page.
template <class C>
void scan_from_every_start(const string_routines<C>& f, std::size_t length)
{
    const guarded<C> page(page_size() / sizeof(C));
    fill(page.begin(), page.size(), 15);
    for (std::size_t start = 0; start + length < page.size(); ++start) {
        C* s = page.begin() + start;
        if (start > 0)
            s[-1] = 0;
        s[length] = 0;
        ASSERT_EQ(f.len(s), length) << "start " << start;
        ASSERT_EQ(f.nlen(s, length + 100), length) << "start " << start;
        s[length] = element<C>(start + length, 15);
        if (start > 0)
            s[-1] = element<C>(start - 1, 15);
    }
}

// Each row: how the strings are placed and their lengths (up to the whole
// page, where the string starts right after the guard below).
TEST(Memlib, ScansAndCopiesTouchingTheEdgesOfAPage)
{
    const struct {
        int line;
        void (*scan)(std::size_t length);
        std::vector<std::size_t> lengths;
    } rows[] = {
        {__LINE__, [](std::size_t n) { scan_to_page_end(narrow, n); }, every(0ul, 1100ul)},
        {__LINE__, [](std::size_t n) { scan_to_page_end(narrow, n); }, {page_size() - 1}},
        {__LINE__, [](std::size_t n) { scan_to_page_end(wide, n); }, every(0ul, 300ul)},
        {__LINE__,
         [](std::size_t n) { scan_from_every_start(narrow, n); },
         {0, 1, 15, 16, 17, 40, 63, 64, 95, 111, 127, 130, 200, 255}},
        {__LINE__, [](std::size_t n) { scan_from_every_start(wide, n); }, {0, 3, 4, 5, 15, 16, 31, 32, 50, 64}},
    };
    for (const auto& row : rows)
        for (std::size_t length : row.lengths) {
            SCOPED_TRACE(testing::Message() << "row at line " << row.line << ", length " << length);
            row.scan(length);
            if (HasFatalFailure())
                return;
        }

    // Copies, moves and fills touching both edges of a page.
    const guarded<unsigned char> page(page_size());
    std::vector<unsigned char> other(max_size + 32);
    for (std::size_t n = 0; n <= max_size; ++n)
        for (std::size_t a = 0; a < 16; ++a) {
            fill(page.begin(), page.size(), 11);
            fill(other.data(), other.size(), 12);
            // Source ending at the page end, then starting at the page start.
            memcpy_impl(other.data() + a, page.end() - n, n);
            ASSERT_EQ(copy_mismatch(other.data(), other.size(), a, page.size() - n, n, 12, 11), other.size());
            memcpy_impl(other.data() + a, page.begin(), n);
            ASSERT_EQ(copy_mismatch(other.data(), other.size(), a, 0, n, 12, 11), other.size());
            // Backward moves reading up to the page end and down to its start.
            memmove_impl(page.end() - n, page.end() - n - 1 - a, n);
            ASSERT_EQ(copy_mismatch(page.begin(), page.size(), page.size() - n, page.size() - n - 1 - a, n, 11, 11),
                      page.size());
            fill(page.begin(), page.size(), 11);
            memmove_impl(page.begin() + a + 1, page.begin(), n);
            ASSERT_EQ(copy_mismatch(page.begin(), page.size(), a + 1, 0, n, 11, 11), page.size());
            memset_impl(page.end() - n, 0x5A, n);
            ASSERT_EQ(first_mismatch(page.end() - n, n, [](std::size_t) { return 0x5A; }), n);
        }
}

// ---------------------------------------------------------------------------
// strncpy_impl (no C name) and the checked variants.

volatile std::sig_atomic_t segv_count = 0;

// Runs `op` on a destination holding "ab" with a size of `fits` and of
// `fits - 1` elements: the first must not signal, the second must signal
// once; both must leave `expected`, terminator and one untouched '#'
// included.
template <class C, class Op>
void check_signalled(std::size_t fits, const std::basic_string<C>& expected, Op op)
{
    for (std::size_t size : {fits, fits - 1}) {
        C dst[64] = {'a', 'b'};
        std::fill(dst + 3, std::end(dst), C('#'));
        segv_count = 0;
        op(dst, size);
        EXPECT_EQ(segv_count, size < fits ? 1 : 0) << "size " << size;
        EXPECT_EQ(std::basic_string<C>(dst, expected.size()), expected) << "size " << size;
    }
}

TEST(MemlibStrncpy, EveryLengthCountAndMisalignmentThePageEndAndTheCheckedVariants)
{
    alignas(64) static char src[256 + 2 * margin];
    alignas(64) static char dst[512 + 2 * margin];
    for (std::size_t length = 0; length <= 100; ++length)
        for (std::size_t sa = 0; sa < 32; ++sa)
            for (std::size_t da : {0ul, 1ul, 15ul})
                for (std::size_t n : {0ul, 1ul, length / 2, length, length + 1, length + 31, length + 32, 300ul}) {
                    place_string(src, sizeof src, margin + sa, length);
                    fill(dst, sizeof dst, 13);
                    char* d = dst + margin + da;
                    ASSERT_EQ(strncpy_impl(d, src + margin + sa, n), d);
                    const std::size_t at = first_mismatch(dst, sizeof dst, [&](std::size_t i) {
                        const std::size_t start = margin + da;
                        if (i < start || i >= start + n)
                            return element<char>(i, 13);
                        return i - start < length ? element<char>(i - start + margin + sa, 8) : '\0';
                    });
                    ASSERT_EQ(at, sizeof dst) << "length " << length << " src+" << sa << " dst+" << da << " n " << n;
                }

    // A source ending at the last byte of a page.
    const guarded<char> page(page_size());
    char copy[400];
    fill(page.begin(), page.size(), 14);
    for (std::size_t length = 0; length <= 80; ++length) {
        page.end()[-1] = 0;
        const char* s = page.end() - 1 - length;
        strncpy_impl(copy, s, sizeof copy);
        EXPECT_EQ(std::memcmp(copy, s, length), 0);
        EXPECT_TRUE(std::all_of(copy + length, copy + sizeof copy, [](char c) { return c == 0; })) << length;
        // Unterminated up to the page end: the count stops the copy there.
        page.end()[-1] = 'x';
        strncpy_impl(copy, s, length + 1);
        EXPECT_EQ(std::memcmp(copy, s, length + 1), 0);
    }
    // A count of zero reads nothing, not even a source in an unmapped page.
    copy[0] = '#';
    EXPECT_EQ(strncpy_impl(copy, page.end(), 0), copy);
    EXPECT_EQ(copy[0], '#');

    // The checked variants raise SIGSEGV when the destination is too small,
    // then do the operation anyway.
    using namespace std::string_literals;
    struct sigaction action {
    }, previous{};
    action.sa_handler = [](int) { segv_count = segv_count + 1; };
    sigemptyset(&action.sa_mask);
    ASSERT_EQ(sigaction(SIGSEGV, &action, &previous), 0);
    const char* digits = "0123456789";
    check_signalled(10, "0123456789#"s, [&](char* d, std::size_t size) { __memcpy_chk(d, digits, 10, size); });
    check_signalled(10, "0123456789#"s, [&](char* d, std::size_t size) { __memmove_chk(d, digits, 10, size); });
    check_signalled(7, "zzzzzzz#"s, [&](char* d, std::size_t size) { __memset_chk(d, 'z', 7, size); });
    check_signalled(14, "0123456789\0\0\0\0#"s, [&](char* d, std::size_t size) { __strncpy_chk(d, digits, 14, size); });
    check_signalled(11, "0123456789\0#"s, [&](char* d, std::size_t size) { __strcpy_chk(d, digits, size); });
    check_signalled(13, "ab0123456789\0#"s, [&](char* d, std::size_t size) { __strcat_chk(d, digits, size); });
    // The wide variants count elements.
    check_signalled(5, L"wide\0#"s, [](wchar_t* d, std::size_t size) { __wcscpy_chk(d, L"wide", size); });
    check_signalled(7, L"abwide\0#"s, [](wchar_t* d, std::size_t size) { __wcscat_chk(d, L"wide", size); });
    sigaction(SIGSEGV, &previous, nullptr);
}

// ---------------------------------------------------------------------------
// Processor levels and the dispatch.

constexpr std::uint32_t ecx_sse3 = 1u << 0, ecx_pclmul = 1u << 1, ecx_ssse3 = 1u << 9, ecx_sse41 = 1u << 19,
                        ecx_sse42 = 1u << 20, ecx_popcnt = 1u << 23, ecx_aes = 1u << 25, ecx_osxsave = 1u << 27,
                        ecx_avx = 1u << 28;
constexpr std::uint32_t ebx7_avx2 = 1u << 5;
constexpr std::uint64_t xcr0_xmm_ymm = 0x6;
constexpr std::uint32_t ecx_all =
    ecx_sse3 | ecx_pclmul | ecx_ssse3 | ecx_sse41 | ecx_sse42 | ecx_popcnt | ecx_aes | ecx_osxsave | ecx_avx;

// The level the dispatch should see under this process's UVT_CPU_LEVEL.
std::int32_t expected_dispatch_level()
{
    const std::int32_t hardware = cpuInstructionSet();
    const char* text = std::getenv("UVT_CPU_LEVEL");
    if (text == nullptr || *text == '\0' || std::string(text).find_first_not_of("0123456789") != std::string::npos)
        return hardware;
    return std::clamp(std::atoi(text), CPU_SSE2, hardware);
}

TEST(MemlibDispatch, LevelsFromTheFeaturesAndTablesFollowingTheLevel)
{
    struct row {
        std::uint32_t ecx;
        std::uint64_t xcr0;
        std::uint32_t ebx7;
        std::int32_t level;
    };
    const row rows[] = {
        {0, 0, 0, CPU_SSE2},
        {ecx_sse3, 0, 0, CPU_SSE3},
        {ecx_sse3 | ecx_ssse3, 0, 0, CPU_SSSE3},
        {ecx_sse3 | ecx_ssse3 | ecx_sse41, 0, 0, CPU_SSE41},
        {ecx_sse3 | ecx_ssse3 | ecx_sse41 | ecx_popcnt, 0, 0, CPU_POPCNT},
        {ecx_sse3 | ecx_ssse3 | ecx_sse41 | ecx_popcnt | ecx_sse42, 0, 0, CPU_SSE42},
        {ecx_all & ~(ecx_pclmul | ecx_aes), xcr0_xmm_ymm, ebx7_avx2, CPU_AVX},
        {ecx_all & ~ecx_aes, xcr0_xmm_ymm, ebx7_avx2, CPU_AVX},
        {ecx_all, xcr0_xmm_ymm, 0, CPU_PCLMUL_AES},
        {ecx_all, xcr0_xmm_ymm, ebx7_avx2, CPU_AVX2},
        // AVX present but the operating system keeps YMM state disabled.
        {ecx_all, 0x2, ebx7_avx2, CPU_SSE42},
        {ecx_all, 0x4, ebx7_avx2, CPU_SSE42},
        {ecx_all & ~ecx_osxsave, xcr0_xmm_ymm, ebx7_avx2, CPU_SSE42},
        // A missing lower feature caps everything above it.
        {ecx_all & ~ecx_ssse3, xcr0_xmm_ymm, ebx7_avx2, CPU_SSE3},
        {ecx_all & ~ecx_sse3, xcr0_xmm_ymm, ebx7_avx2, CPU_SSE2},
        {ecx_all & ~ecx_popcnt, xcr0_xmm_ymm, ebx7_avx2, CPU_SSE41},
    };
    for (const row& r : rows)
        EXPECT_EQ(cpuLevelFromFeatures(r.ecx, r.xcr0, r.ebx7), r.level) << std::hex << r.ecx << " " << r.xcr0;
    // Every subset of the features: never the unused level 7, SSSE3 and up
    // exactly with SSE3 and SSSE3, AVX2 only with everything.
    for (std::uint32_t ecx = 0;; ecx = (ecx - ecx_all) & ecx_all) {
        for (std::uint32_t ebx7 : {0u, ebx7_avx2}) {
            const std::int32_t level = cpuLevelFromFeatures(ecx, xcr0_xmm_ymm, ebx7);
            EXPECT_NE(level, 7) << std::hex << ecx;
            EXPECT_EQ(level >= CPU_SSSE3, (ecx & (ecx_sse3 | ecx_ssse3)) == (ecx_sse3 | ecx_ssse3)) << std::hex << ecx;
            EXPECT_TRUE(level < CPU_AVX2 || ecx == ecx_all) << std::hex << ecx;
        }
        if (ecx == ecx_all)
            break;
    }

    // The hardware level agrees with the compiler's feature tests; the dispatch
    // level and its tables follow it and UVT_CPU_LEVEL.
    const std::int32_t hardware = cpuInstructionSet();
    __builtin_cpu_init();
    EXPECT_EQ(hardware >= CPU_SSE3, __builtin_cpu_supports("sse3") != 0);
    EXPECT_EQ(hardware >= CPU_SSSE3, __builtin_cpu_supports("ssse3") != 0);
    EXPECT_EQ(hardware >= CPU_SSE42, __builtin_cpu_supports("sse4.2") != 0);
    EXPECT_EQ(hardware >= CPU_AVX, __builtin_cpu_supports("avx") != 0);
    EXPECT_EQ(hardware >= CPU_AVX2, __builtin_cpu_supports("avx2") != 0);
    const std::int32_t level = expected_dispatch_level();

    EXPECT_EQ(dispatchInstructionSet(), level);
    // The load-time warm-up has settled every table.
    const MemlibDispatch d = memlibDispatch();
    const CopyLoops copy = level >= CPU_SSSE3 ? CopyLoops::ssse3 : CopyLoops::sse2;
    EXPECT_EQ(d.memcpyLoops, copy);
    EXPECT_EQ(d.memmoveLoops, copy);
    const StrncpyLoops strncpy = level >= CPU_AVX2   ? StrncpyLoops::avx2
                                 : level > CPU_SSE42 ? StrncpyLoops::avx
                                                     : StrncpyLoops::sse2;
    EXPECT_EQ(d.strncpyLoops, strncpy);
    std::printf("dispatch level %d (hardware %d)\n", level, hardware);
}

} // namespace
