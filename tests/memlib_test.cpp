// Memory and string primitives: differential tests against byte-wise
// reference models for every size up to 300 at every source and destination
// misalignment, overlapping moves, scans that end just before an unmapped
// page, the checked variants and the processor dispatch.
//
// The routines are called through their library-internal names and, when
// the library exports them, through the C names looked up in the library
// itself, so that the C library's versions never stand in for them. CTest
// runs this program once more per dispatch level (UVT_CPU_LEVEL), so every
// loop variant is checked on one machine.

#include <uvt/impl/memlib/memlib>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace uvt::impl;

// ---------------------------------------------------------------------------
// The routines under test, by internal name or by exported C name.

struct routines {
    const char* via;
    void* (*memcpy)(void*, const void*, std::size_t);
    void* (*memmove)(void*, const void*, std::size_t);
    void* (*memset)(void*, int, std::size_t);
    std::size_t (*strlen)(const char*);
    std::size_t (*strnlen)(const char*, std::size_t);
    std::size_t (*wcslen)(const wchar_t*);
    std::size_t (*wcsnlen)(const wchar_t*, std::size_t);
    char* (*strcpy)(char*, const char*);
    char* (*strcat)(char*, const char*);
    wchar_t* (*wcscpy)(wchar_t*, const wchar_t*);
    wchar_t* (*wcscat)(wchar_t*, const wchar_t*);
};

const routines internal_names{"internal names", memcpy_impl,  memmove_impl, memset_impl, strlen_impl, strnlen_impl,
                              wcslen_impl,      wcsnlen_impl, strcpy_impl,  strcat_impl, wcscpy_impl, wcscat_impl};

// The loaded library, found through one of its functions.
void* library_handle()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&memcpy_impl), &info) == 0)
        return nullptr;
    return dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
}

bool defined_in_library(void* symbol)
{
    Dl_info mine{}, theirs{};
    return symbol != nullptr && dladdr(reinterpret_cast<void*>(&memcpy_impl), &mine) != 0 &&
           dladdr(symbol, &theirs) != 0 && mine.dli_fbase == theirs.dli_fbase;
}

template <class F>
F c_name(const char* name)
{
    return reinterpret_cast<F>(dlsym(library_handle(), name));
}

#if UVT_EXPORT_C_MEMLIB
const routines c_names{"C names",
                       c_name<void* (*)(void*, const void*, std::size_t)>("memcpy"),
                       c_name<void* (*)(void*, const void*, std::size_t)>("memmove"),
                       c_name<void* (*)(void*, int, std::size_t)>("memset"),
                       c_name<std::size_t (*)(const char*)>("strlen"),
                       c_name<std::size_t (*)(const char*, std::size_t)>("strnlen"),
                       c_name<std::size_t (*)(const wchar_t*)>("wcslen"),
                       c_name<std::size_t (*)(const wchar_t*, std::size_t)>("wcsnlen"),
                       c_name<char* (*)(char*, const char*)>("strcpy"),
                       c_name<char* (*)(char*, const char*)>("strcat"),
                       c_name<wchar_t* (*)(wchar_t*, const wchar_t*)>("wcscpy"),
                       c_name<wchar_t* (*)(wchar_t*, const wchar_t*)>("wcscat")};
#endif

constexpr const char* c_function_names[] = {"memcpy",  "memmove", "memset", "strlen", "strnlen", "wcslen",
                                            "wcsnlen", "strcpy",  "strcat", "wcscpy", "wcscat"};

TEST(MemlibExport, CNamesAreTheLibrarysExactlyWhenExported)
{
    ASSERT_NE(library_handle(), nullptr);
    for (const char* name : c_function_names)
        EXPECT_EQ(defined_in_library(dlsym(library_handle(), name)), UVT_EXPORT_C_MEMLIB == 1) << name;
    // The checked variants and strncpy_impl never carry C names.
    for (const char* name : {"__memcpy_chk", "__strcat_chk", "strncpy", "strncpy_impl"})
        EXPECT_FALSE(defined_in_library(dlsym(library_handle(), name))) << name;
}

// ---------------------------------------------------------------------------
// Reference models: buffers are filled from a position-dependent pattern so
// that the expected contents are computed, never copied (a copying loop in
// this file could itself be compiled into a call of the routine under test).

unsigned char pattern(std::size_t i, unsigned seed)
{
    return static_cast<unsigned char>((i * 167 + seed * 59 + (i >> 8)) % 251 + 1); // never 0
}

void fill(unsigned char* p, std::size_t n, unsigned seed)
{
    for (std::size_t i = 0; i < n; ++i)
        p[i] = pattern(i, seed);
}

// Index of the first byte of p[0..n) that differs from expected(i), or n.
template <class Expected>
std::size_t first_mismatch(const unsigned char* p, std::size_t n, Expected expected)
{
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] != expected(i))
            return i;
    return n;
}

constexpr std::size_t max_size = 300;
constexpr std::size_t margin = 64; // untouched bytes checked on both sides

class Memlib : public ::testing::TestWithParam<const routines*> {
protected:
    const routines& f() const { return *GetParam(); }
};

TEST_P(Memlib, MemcpyEverySizeAndMisalignment)
{
    alignas(64) static unsigned char src[max_size + 2 * margin];
    alignas(64) static unsigned char dst[max_size + 2 * margin];
    fill(src, sizeof src, 1);
    for (std::size_t n = 0; n <= max_size; ++n)
        for (std::size_t sa = 0; sa < 16; ++sa)
            for (std::size_t da = 0; da < 16; ++da) {
                fill(dst, sizeof dst, 2);
                void* r = f().memcpy(dst + margin + da, src + margin + sa, n);
                ASSERT_EQ(r, dst + margin + da);
                const std::size_t at = first_mismatch(dst, sizeof dst, [&](std::size_t i) {
                    const bool inside = i >= margin + da && i < margin + da + n;
                    return inside ? pattern(i - da + sa, 1) : pattern(i, 2);
                });
                ASSERT_EQ(at, sizeof dst) << "n " << n << " src+" << sa << " dst+" << da;
            }
}

// dst - src for the overlapping moves: both directions, within and beyond a
// 16-byte block, a 32-byte round and the 64-byte threshold.
constexpr long overlap_shifts[] = {-300, -100, -65, -64, -63, -33, -32, -31, -17, -16, -15, -8, -7, -3, -2,  -1, 0,
                                   1,    2,    3,   7,   8,   15,  16,  17,  31,  32,  33,  63, 64, 65, 100, 300};

TEST_P(Memlib, MemmoveOverlappingBothWays)
{
    constexpr std::size_t size = 2 * max_size + 2 * margin + 16;
    alignas(64) static unsigned char buffer[size];
    for (std::size_t n = 0; n <= max_size; ++n)
        for (long shift : overlap_shifts)
            for (std::size_t sa = 0; sa < 16; ++sa) {
                const std::size_t src = margin + max_size + sa;
                const std::size_t dst = src + shift;
                fill(buffer, size, 3);
                void* r = f().memmove(buffer + dst, buffer + src, n);
                ASSERT_EQ(r, buffer + dst);
                const std::size_t at = first_mismatch(buffer, size, [&](std::size_t i) {
                    const bool inside = i >= dst && i < dst + n;
                    return inside ? pattern(i - dst + src, 3) : pattern(i, 3);
                });
                ASSERT_EQ(at, size) << "n " << n << " shift " << shift << " src+" << sa;
            }
}

// Moves of 64 bytes or more whose ranges are less than a 16-byte piece
// apart, in both directions: the piece that covers the head (and the pieces
// at the far end) overlap bytes the loops still read, so they must be loaded
// before, and stored after, everything else.
TEST_P(Memlib, MemmoveByLessThanAPiece)
{
    constexpr std::size_t size = 2 * 200 + 2 * margin;
    alignas(64) static unsigned char buffer[size];
    for (std::size_t n = 64; n <= 200; ++n)
        for (long shift = -15; shift <= 15; ++shift)
            for (std::size_t sa = 0; sa < 16; ++sa) {
                const std::size_t src = margin + 100 + sa;
                const std::size_t dst = src + shift;
                fill(buffer, size, 13);
                ASSERT_EQ(f().memmove(buffer + dst, buffer + src, n), buffer + dst);
                const std::size_t at = first_mismatch(buffer, size, [&](std::size_t i) {
                    const bool inside = i >= dst && i < dst + n;
                    return inside ? pattern(i - dst + src, 13) : pattern(i, 13);
                });
                ASSERT_EQ(at, size) << "n " << n << " shift " << shift << " src+" << sa;
            }
}

TEST_P(Memlib, LargeCopiesAndMoves)
{
    for (std::size_t n : {4095ul, 4096ul, 4097ul, 65536ul + 5, (1ul << 20) + 3})
        for (auto [sa, da] : {std::pair{0ul, 0ul}, {3ul, 11ul}, {15ul, 1ul}, {8ul, 8ul}}) {
            std::vector<unsigned char> src(n + 32), dst(n + 32);
            fill(src.data(), src.size(), 4);
            fill(dst.data(), dst.size(), 5);
            f().memcpy(dst.data() + da, src.data() + sa, n);
            EXPECT_EQ(first_mismatch(dst.data(), dst.size(),
                                     [&](std::size_t i) {
                                         return i >= da && i < da + n ? pattern(i - da + sa, 4) : pattern(i, 5);
                                     }),
                      dst.size())
                << "memcpy n " << n << " src+" << sa << " dst+" << da;
            for (long shift : {-4097l, -33l, -1l, 1l, 17l, 4095l}) {
                std::vector<unsigned char> buffer(n + 8200 + 32);
                fill(buffer.data(), buffer.size(), 6);
                const std::size_t s = 4100 + sa;
                const std::size_t d = s + shift;
                f().memmove(buffer.data() + d, buffer.data() + s, n);
                EXPECT_EQ(first_mismatch(buffer.data(), buffer.size(),
                                         [&](std::size_t i) {
                                             return i >= d && i < d + n ? pattern(i - d + s, 6) : pattern(i, 6);
                                         }),
                          buffer.size())
                    << "memmove n " << n << " shift " << shift;
            }
        }
}

TEST_P(Memlib, MemsetEverySizeAndMisalignment)
{
    alignas(64) static unsigned char dst[max_size + 2 * margin];
    for (int c : {0, 0xA5, 0x17F}) // only the low byte of c counts
        for (std::size_t n = 0; n <= max_size; ++n)
            for (std::size_t da = 0; da < 16; ++da) {
                fill(dst, sizeof dst, 7);
                ASSERT_EQ(f().memset(dst + margin + da, c, n), dst + margin + da);
                const std::size_t at = first_mismatch(dst, sizeof dst, [&](std::size_t i) {
                    const bool inside = i >= margin + da && i < margin + da + n;
                    return inside ? static_cast<unsigned char>(c) : pattern(i, 7);
                });
                ASSERT_EQ(at, sizeof dst) << "c " << c << " n " << n << " dst+" << da;
            }
}

// A string of `length` pattern bytes (some above 0x7F) at `at`, followed by
// its terminator and more non-zero bytes.
void place_string(unsigned char* buffer, std::size_t size, std::size_t at, std::size_t length)
{
    fill(buffer, size, 8);
    buffer[at + length] = 0;
}

TEST_P(Memlib, StrlenAndStrnlenEveryLengthAndMisalignment)
{
    alignas(64) static unsigned char buffer[max_size + 2 * margin];
    for (std::size_t length = 0; length <= max_size; ++length)
        for (std::size_t sa = 0; sa < 16; ++sa) {
            place_string(buffer, sizeof buffer, margin + sa, length);
            const char* s = reinterpret_cast<const char*>(buffer + margin + sa);
            ASSERT_EQ(f().strlen(s), length) << "+" << sa;
            for (std::size_t limit : {0ul, 1ul, length / 2, length - 1, length, length + 1, length + 17, ~0ul})
                ASSERT_EQ(f().strnlen(s, limit), std::min(length, limit)) << "+" << sa << " limit " << limit;
        }
}

// Wide strings with elements that hold zero bytes but are not zero.
void place_wide_string(wchar_t* buffer, std::size_t size, std::size_t at, std::size_t length)
{
    for (std::size_t i = 0; i < size; ++i)
        buffer[i] = static_cast<wchar_t>(i % 3 == 0 ? 0x100 * (i + 1) : i % 3 == 1 ? 0x7FFFFF00 : 0x41 + i % 26);
    buffer[at + length] = 0;
}

TEST_P(Memlib, WcslenAndWcsnlenEveryLengthAndMisalignment)
{
    alignas(64) static wchar_t buffer[max_size + 2 * margin];
    for (std::size_t length = 0; length <= max_size; ++length)
        for (std::size_t sa = 0; sa < 4; ++sa) {
            place_wide_string(buffer, std::size(buffer), margin + sa, length);
            const wchar_t* s = buffer + margin + sa;
            ASSERT_EQ(f().wcslen(s), length) << "+" << sa;
            for (std::size_t limit : {0ul, 1ul, length - 1, length, length + 1, length + 5, ~0ul})
                ASSERT_EQ(f().wcsnlen(s, limit), std::min(length, limit)) << "+" << sa << " limit " << limit;
        }
}

TEST_P(Memlib, WideLengthsOfElementsOffTheirAlignment)
{
    alignas(64) static unsigned char bytes[(max_size + 8) * sizeof(wchar_t)];
    static wchar_t wide[max_size + 8];
    for (std::size_t length : {0ul, 1ul, 5ul, 37ul, 200ul})
        for (std::size_t offset : {1ul, 2ul, 3ul}) {
            place_wide_string(wide, std::size(wide), 0, length);
            std::memcpy(bytes + offset, wide, (length + 1) * sizeof(wchar_t));
            const auto* s = reinterpret_cast<const wchar_t*>(bytes + offset);
            EXPECT_EQ(f().wcslen(s), length);
            EXPECT_EQ(f().wcsnlen(s, length / 2), length / 2);
        }
}

// Whether dst holds, at `start`, the string placed by place_string at
// `from`, with its terminator, and the fill pattern 9 everywhere else.
bool holds_string(const unsigned char* dst, std::size_t size, std::size_t start, std::size_t length, std::size_t from)
{
    return first_mismatch(dst, size, [&](std::size_t i) -> unsigned char {
               if (i >= start && i < start + length)
                   return pattern(i - start + from, 8);
               return i == start + length ? 0 : pattern(i, 9);
           }) == size;
}

TEST_P(Memlib, StrcpyAndStrcatEveryLengthAndMisalignment)
{
    alignas(64) static unsigned char src[max_size + 2 * margin];
    alignas(64) static unsigned char dst[2 * max_size + 2 * margin];
    for (std::size_t length = 0; length <= 130; ++length)
        for (std::size_t sa = 0; sa < 16; ++sa)
            for (std::size_t da : {0ul, 1ul, 7ul, 15ul}) {
                place_string(src, sizeof src, margin + sa, length);
                const char* s = reinterpret_cast<const char*>(src + margin + sa);
                char* d = reinterpret_cast<char*>(dst + margin + da);
                const std::size_t prefix = (length * 7 + sa) % 40;
                fill(dst, sizeof dst, 9);
                dst[margin + da + prefix] = 0;
                ASSERT_EQ(f().strcat(d, s), d);
                ASSERT_TRUE(holds_string(dst, sizeof dst, margin + da + prefix, length, margin + sa))
                    << "strcat length " << length << " prefix " << prefix;
                fill(dst, sizeof dst, 9);
                ASSERT_EQ(f().strcpy(d, s), d);
                ASSERT_TRUE(holds_string(dst, sizeof dst, margin + da, length, margin + sa))
                    << "strcpy length " << length;
            }
}

TEST_P(Memlib, WcscpyAndWcscat)
{
    alignas(64) static wchar_t src[max_size + 2 * margin];
    alignas(64) static wchar_t dst[2 * max_size + 2 * margin];
    for (std::size_t length = 0; length <= 70; ++length)
        for (std::size_t sa = 0; sa < 4; ++sa)
            for (std::size_t prefix : {0ul, 3ul, 21ul}) {
                place_wide_string(src, std::size(src), margin + sa, length);
                const wchar_t* s = src + margin + sa;
                std::fill(std::begin(dst), std::end(dst), L'#');
                wchar_t* d = dst + margin + 1;
                d[prefix] = 0;
                ASSERT_EQ(f().wcscat(d, s), d);
                ASSERT_EQ(std::wmemcmp(d + prefix, s, length + 1), 0) << length;
                ASSERT_EQ(d[prefix + length + 1], L'#');
                ASSERT_EQ(d[-1], L'#');
                ASSERT_EQ(f().wcscpy(d, s), d);
                ASSERT_EQ(std::wmemcmp(d, s, length + 1), 0) << length;
            }
}

// ---------------------------------------------------------------------------
// Reads near unmapped pages: a readable page between two inaccessible ones.

class guarded_page {
public:
    guarded_page()
    {
        const long page = sysconf(_SC_PAGESIZE);
        size_ = static_cast<std::size_t>(page);
        base_ = static_cast<unsigned char*>(
            mmap(nullptr, 3 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED)
            throw std::runtime_error("mmap failed");
        mprotect(base_, size_, PROT_NONE);
        mprotect(base_ + 2 * size_, size_, PROT_NONE);
    }
    ~guarded_page() { munmap(base_, 3 * size_); }
    unsigned char* begin() const { return base_ + size_; }
    unsigned char* end() const { return base_ + 2 * size_; }
    std::size_t size() const { return size_; }

private:
    unsigned char* base_;
    std::size_t size_;
};

TEST_P(Memlib, ScansEndingAtTheLastByteOfAPage)
{
    guarded_page page;
    fill(page.begin(), page.size(), 10);
    for (std::size_t length = 0; length <= 100; ++length) {
        unsigned char* terminator = page.end() - 1;
        *terminator = 0;
        const char* s = reinterpret_cast<const char*>(terminator - length);
        EXPECT_EQ(f().strlen(s), length);
        EXPECT_EQ(f().strnlen(s, ~0ul), length);
        // No terminator at all: the limit stops the scan at the page end.
        *terminator = 'x';
        EXPECT_EQ(f().strnlen(s, length + 1), length + 1);
    }
    fill(page.begin(), page.size(), 10);
    page.end()[-1] = 0;
    const char* start = reinterpret_cast<const char*>(page.begin());
    EXPECT_EQ(f().strlen(start), page.size() - 1);
    char copy[64];
    EXPECT_EQ(f().strcpy(copy, reinterpret_cast<const char*>(page.end() - 40)), copy);
    EXPECT_EQ(f().strlen(copy), 39u);

    auto* wide_end = reinterpret_cast<wchar_t*>(page.end());
    for (std::size_t length = 0; length <= 40; ++length) {
        wide_end[-1] = 0;
        EXPECT_EQ(f().wcslen(wide_end - 1 - length), length);
        wide_end[-1] = L'x';
        EXPECT_EQ(f().wcsnlen(wide_end - 1 - length, length + 1), length + 1);
    }
}

// Long scans up to the last byte of a page, from every start within the
// last 128-byte pair of lines and beyond: the scans that test several
// blocks at once must never run into the next page.
TEST_P(Memlib, LongScansEndingAtTheLastByteOfAPage)
{
    guarded_page page;
    fill(page.begin(), page.size(), 14);
    unsigned char* terminator = page.end() - 1;
    *terminator = 0;
    for (std::size_t length = 100; length <= 1100; ++length) {
        const char* s = reinterpret_cast<const char*>(terminator - length);
        ASSERT_EQ(f().strlen(s), length);
        ASSERT_EQ(f().strnlen(s, length + 3), length);
    }
    auto* wide_end = reinterpret_cast<wchar_t*>(page.end());
    wide_end[-1] = 0;
    for (std::size_t length = 40; length <= 300; ++length) {
        ASSERT_EQ(f().wcslen(wide_end - 1 - length), length);
        ASSERT_EQ(f().wcsnlen(wide_end - 1 - length, length + 2), length);
    }
}

// Short and medium strings from every start within a page, with zero bytes
// just before the start and none after the terminator up to the page end:
// the scans test different groups of blocks at once depending on how far
// the page reaches beyond the start, and none of them may report a zero
// before the start, miss the terminator, or read past the page.
TEST_P(Memlib, ScansFromEveryStartWithinAPage)
{
    guarded_page page;
    for (std::size_t length : {0ul, 1ul, 15ul, 16ul, 17ul, 40ul, 63ul, 64ul, 95ul, 111ul, 127ul, 130ul, 200ul, 255ul}) {
        fill(page.begin(), page.size(), 15);
        for (std::size_t start = 0; start + length < page.size(); ++start) {
            if (start > 0)
                page.begin()[start - 1] = 0;
            page.begin()[start + length] = 0;
            const char* s = reinterpret_cast<const char*>(page.begin() + start);
            ASSERT_EQ(f().strlen(s), length) << "start " << start;
            ASSERT_EQ(f().strnlen(s, length + 100), length) << "start " << start;
            page.begin()[start + length] = pattern(start + length, 15);
            if (start > 0)
                page.begin()[start - 1] = pattern(start - 1, 15);
        }
    }
    auto* wide = reinterpret_cast<wchar_t*>(page.begin());
    const std::size_t elements = page.size() / sizeof(wchar_t);
    for (std::size_t length : {0ul, 3ul, 4ul, 5ul, 15ul, 16ul, 31ul, 32ul, 50ul, 64ul}) {
        for (std::size_t i = 0; i < elements; ++i)
            wide[i] = static_cast<wchar_t>(0x41 + i % 26);
        for (std::size_t start = 0; start + length < elements; ++start) {
            if (start > 0)
                wide[start - 1] = 0;
            wide[start + length] = 0;
            ASSERT_EQ(f().wcslen(wide + start), length) << "start " << start;
            wide[start + length] = L'x';
            if (start > 0)
                wide[start - 1] = L'y';
        }
    }
}

TEST_P(Memlib, CopiesTouchingBothEdgesOfAPage)
{
    guarded_page page;
    std::vector<unsigned char> other(max_size + 32);
    for (std::size_t n = 0; n <= max_size; ++n)
        for (std::size_t a = 0; a < 16; ++a) {
            fill(page.begin(), page.size(), 11);
            fill(other.data(), other.size(), 12);
            // Source ending at the page end, then starting at the page start.
            f().memcpy(other.data() + a, page.end() - n, n);
            ASSERT_EQ(first_mismatch(other.data() + a, n,
                                     [&](std::size_t i) { return pattern(page.size() - n + i, 11); }),
                      n);
            f().memcpy(other.data() + a, page.begin(), n);
            ASSERT_EQ(first_mismatch(other.data() + a, n, [&](std::size_t i) { return pattern(i, 11); }), n);
            // Backward moves reading up to the page end and down to its start.
            f().memmove(page.end() - n, page.end() - n - 1 - a, n);
            ASSERT_EQ(first_mismatch(page.end() - n, n,
                                     [&](std::size_t i) { return pattern(page.size() - n - 1 - a + i, 11); }),
                      n);
            fill(page.begin(), page.size(), 11);
            f().memmove(page.begin() + a + 1, page.begin(), n);
            ASSERT_EQ(first_mismatch(page.begin() + a + 1, n, [&](std::size_t i) { return pattern(i, 11); }), n);
            f().memset(page.end() - n, 0x5A, n);
            ASSERT_EQ(first_mismatch(page.end() - n, n, [](std::size_t) { return 0x5A; }), n);
        }
}

std::vector<const routines*> routine_sets()
{
#if UVT_EXPORT_C_MEMLIB
    return {&internal_names, &c_names};
#else
    return {&internal_names};
#endif
}

INSTANTIATE_TEST_SUITE_P(Names, Memlib, ::testing::ValuesIn(routine_sets()),
                         [](const auto& info) { return info.param == &internal_names ? "internal" : "c"; });

// ---------------------------------------------------------------------------
// strncpy_impl (internal only).

TEST(MemlibStrncpy, EveryLengthCountAndMisalignment)
{
    alignas(64) static unsigned char src[256 + 2 * margin];
    alignas(64) static unsigned char dst[512 + 2 * margin];
    for (std::size_t length = 0; length <= 100; ++length)
        for (std::size_t sa = 0; sa < 32; ++sa)
            for (std::size_t da : {0ul, 1ul, 15ul})
                for (std::size_t n : {0ul, 1ul, length / 2, length, length + 1, length + 31, length + 32, 300ul}) {
                    place_string(src, sizeof src, margin + sa, length);
                    fill(dst, sizeof dst, 13);
                    char* d = reinterpret_cast<char*>(dst + margin + da);
                    ASSERT_EQ(strncpy_impl(d, reinterpret_cast<const char*>(src + margin + sa), n), d);
                    const std::size_t at = first_mismatch(dst, sizeof dst, [&](std::size_t i) -> unsigned char {
                        const std::size_t start = margin + da;
                        if (i < start || i >= start + n)
                            return pattern(i, 13);
                        return i - start < length ? pattern(i - start + margin + sa, 8) : 0;
                    });
                    ASSERT_EQ(at, sizeof dst) << "length " << length << " src+" << sa << " dst+" << da << " n " << n;
                }
}

TEST(MemlibStrncpy, SourceEndingAtTheLastByteOfAPage)
{
    guarded_page page;
    char dst[400];
    fill(page.begin(), page.size(), 14);
    for (std::size_t length = 0; length <= 80; ++length) {
        page.end()[-1] = 0;
        const char* s = reinterpret_cast<const char*>(page.end() - 1 - length);
        strncpy_impl(dst, s, sizeof dst);
        EXPECT_EQ(std::memcmp(dst, s, length), 0);
        EXPECT_TRUE(std::all_of(dst + length, dst + sizeof dst, [](char c) { return c == 0; })) << length;
        // Unterminated up to the page end: the count stops the copy there.
        page.end()[-1] = 'x';
        strncpy_impl(dst, s, length + 1);
        EXPECT_EQ(std::memcmp(dst, s, length + 1), 0);
    }
    // A count of zero reads nothing, not even a source in an unmapped page.
    dst[0] = '#';
    EXPECT_EQ(strncpy_impl(dst, reinterpret_cast<const char*>(page.end()), 0), dst);
    EXPECT_EQ(dst[0], '#');
}

// ---------------------------------------------------------------------------
// Checked variants: SIGSEGV when the destination is too small, then the
// operation anyway.

volatile std::sig_atomic_t segv_count = 0;

class MemlibChecked : public ::testing::Test {
protected:
    void SetUp() override
    {
        struct sigaction action {};
        action.sa_handler = [](int) { segv_count = segv_count + 1; };
        sigemptyset(&action.sa_mask);
        ASSERT_EQ(sigaction(SIGSEGV, &action, &previous_), 0);
        segv_count = 0;
    }
    void TearDown() override { sigaction(SIGSEGV, &previous_, nullptr); }

    // Runs `op` with a destination size of `fits` and of `fits - 1`: the
    // first must not signal, the second must signal once; both must produce
    // `expected` in dst.
    template <class Op>
    void check(std::size_t fits, const std::string& expected, Op op)
    {
        for (std::size_t size : {fits, fits - 1}) {
            std::fill(std::begin(dst_), std::end(dst_), '#');
            std::copy(std::begin(prefix_), std::end(prefix_), dst_);
            segv_count = 0;
            op(dst_, size);
            EXPECT_EQ(segv_count, size < fits ? 1 : 0) << "size " << size;
            EXPECT_EQ(std::string(dst_, expected.size()), expected) << "size " << size;
        }
    }

    char dst_[64];
    static constexpr char prefix_[] = "ab"; // with its terminator

private:
    struct sigaction previous_ {};
};

TEST_F(MemlibChecked, RaiseSigsegvAndCarryOn)
{
    const char* src = "0123456789";
    check(10, "0123456789#", [&](char* d, std::size_t size) { __memcpy_chk(d, src, 10, size); });
    check(10, "0123456789#", [&](char* d, std::size_t size) { __memmove_chk(d, src, 10, size); });
    check(7, std::string(7, 'z') + "#", [&](char* d, std::size_t size) { __memset_chk(d, 'z', 7, size); });
    check(14, std::string("0123456789\0\0\0\0#", 15),
          [&](char* d, std::size_t size) { __strncpy_chk(d, src, 14, size); });
    check(11, std::string("0123456789\0#", 12), [&](char* d, std::size_t size) { __strcpy_chk(d, src, size); });
    check(13, std::string("ab0123456789\0#", 14), [&](char* d, std::size_t size) { __strcat_chk(d, src, size); });
}

TEST_F(MemlibChecked, WideVariantsCountElements)
{
    const wchar_t* src = L"wide";
    for (std::size_t size : {5ul, 4ul}) {
        wchar_t d[16] = L"xy";
        segv_count = 0;
        __wcscpy_chk(d, src, size);
        EXPECT_EQ(segv_count, size < 5 ? 1 : 0);
        EXPECT_EQ(std::wcscmp(d, src), 0);
    }
    for (std::size_t size : {7ul, 6ul}) {
        wchar_t d[16] = L"xy";
        segv_count = 0;
        __wcscat_chk(d, src, size);
        EXPECT_EQ(segv_count, size < 7 ? 1 : 0);
        EXPECT_EQ(std::wcscmp(d, L"xywide"), 0);
    }
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

TEST(MemlibCpuLevel, ClassifiesEveryLevel)
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
}

TEST(MemlibCpuLevel, NeverSevenAndNeverAboveWhatIsPresent)
{
    const std::uint32_t bits[] = {ecx_sse3,   ecx_pclmul, ecx_ssse3,   ecx_sse41, ecx_sse42,
                                  ecx_popcnt, ecx_aes,    ecx_osxsave, ecx_avx};
    for (std::uint32_t subset = 0; subset < (1u << std::size(bits)); ++subset) {
        std::uint32_t ecx = 0;
        for (std::size_t i = 0; i < std::size(bits); ++i)
            if (subset & (1u << i))
                ecx |= bits[i];
        for (std::uint32_t ebx7 : {0u, ebx7_avx2}) {
            const std::int32_t level = cpuLevelFromFeatures(ecx, xcr0_xmm_ymm, ebx7);
            EXPECT_NE(level, 7);
            EXPECT_EQ(level >= CPU_SSSE3, (ecx & (ecx_sse3 | ecx_ssse3)) == (ecx_sse3 | ecx_ssse3));
            if (level == CPU_AVX2) {
                EXPECT_EQ(ecx & ecx_all, ecx_all);
            }
        }
    }
}

TEST(MemlibCpuLevel, AgreesWithTheCompilersFeatureTests)
{
    const std::int32_t level = cpuInstructionSet();
    __builtin_cpu_init();
    EXPECT_EQ(level >= CPU_SSE3, __builtin_cpu_supports("sse3") != 0);
    EXPECT_EQ(level >= CPU_SSSE3, __builtin_cpu_supports("ssse3") != 0);
    EXPECT_EQ(level >= CPU_SSE42, __builtin_cpu_supports("sse4.2") != 0);
    EXPECT_EQ(level >= CPU_AVX, __builtin_cpu_supports("avx") != 0);
    EXPECT_EQ(level >= CPU_AVX2, __builtin_cpu_supports("avx2") != 0);
}

// The level the dispatch should see under this process's UVT_CPU_LEVEL.
std::int32_t expected_dispatch_level()
{
    const std::int32_t hardware = cpuInstructionSet();
    const char* text = std::getenv("UVT_CPU_LEVEL");
    if (text == nullptr || *text == '\0' || std::string(text).find_first_not_of("0123456789") != std::string::npos)
        return hardware;
    return std::clamp(std::atoi(text), CPU_SSE2, hardware);
}

TEST(MemlibDispatch, TablesFollowTheLevel)
{
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
    std::printf("dispatch level %d (hardware %d)\n", level, cpuInstructionSet());
}

} // namespace
