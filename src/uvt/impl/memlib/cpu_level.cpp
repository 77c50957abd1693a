// Processor classification for the dispatch of the memory primitives, the
// UVT_CPU_LEVEL override and the report of what the dispatch settled on.

#include "memlib_internal.h"

#include <cpuid.h>

#include <cstdlib>

namespace uvt::impl {
namespace {

constexpr bool bit(std::uint64_t word, unsigned n) noexcept { return ((word >> n) & 1) != 0; }

std::uint64_t extendedControlRegister0() noexcept
{
    std::uint32_t lo = 0;
    std::uint32_t hi = 0;
    asm volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return std::uint64_t{hi} << 32 | lo;
}

// The decimal level in `text`, or -1 when it is not a plain number.
std::int32_t parseLevel(const char* text) noexcept
{
    std::int32_t level = 0;
    int digits = 0;
    for (; *text >= '0' && *text <= '9'; ++text)
        if (++digits <= 4)
            level = level * 10 + (*text - '0');
    return digits == 0 || *text != '\0' ? -1 : level;
}

std::int32_t levelFromFeatures(std::uint32_t leaf1Ecx, std::uint64_t xcr0, std::uint32_t leaf7Ebx) noexcept
{
    const bool avx = bit(leaf1Ecx, 28) && bit(leaf1Ecx, 27) && bit(xcr0, 1) && bit(xcr0, 2);
    const bool steps[] = {
        bit(leaf1Ecx, 0),                      // CPU_SSE3
        bit(leaf1Ecx, 9),                      // CPU_SSSE3
        bit(leaf1Ecx, 19),                     // CPU_SSE41
        bit(leaf1Ecx, 23),                     // CPU_POPCNT
        bit(leaf1Ecx, 20),                     // CPU_SSE42
        avx,                                   // CPU_AVX
        bit(leaf1Ecx, 1) && bit(leaf1Ecx, 25), // CPU_PCLMUL_AES
        bit(leaf7Ebx, 5),                      // CPU_AVX2
    };
    static constexpr std::int32_t levels[] = {CPU_SSE3,  CPU_SSSE3, CPU_SSE41,      CPU_POPCNT,
                                              CPU_SSE42, CPU_AVX,   CPU_PCLMUL_AES, CPU_AVX2};
    std::int32_t level = CPU_SSE2;
    for (std::size_t i = 0; i < sizeof(levels) / sizeof(levels[0]) && steps[i]; ++i)
        level = levels[i];
    return level;
}

std::int32_t hardwareLevel() noexcept
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return CPU_SSE2;
    // XGETBV faults unless the operating system has enabled it (OSXSAVE).
    const std::uint64_t xcr0 = bit(ecx, 27) ? extendedControlRegister0() : 0;
    unsigned leaf7Ebx = 0, unused = 0;
    if (!__get_cpuid_count(7, 0, &unused, &leaf7Ebx, &unused, &unused))
        leaf7Ebx = 0;
    return levelFromFeatures(ecx, xcr0, leaf7Ebx);
}

StrncpyLoops strncpyLoopsNow() noexcept
{
    using namespace memlib;
    const strncpy_loop path = strncpyPath();
    if (path == strncpyOldArchitecture)
        return StrncpyLoops::sse2;
    if (path != strncpyWide)
        return StrncpyLoops::unsettled;
    if (strncpyWideLoopsAre(strncpyAlignedAVX2JTab))
        return StrncpyLoops::avx2;
    return strncpyWideLoopsAre(strncpyAlignedAVXJTab) ? StrncpyLoops::avx : StrncpyLoops::unsettled;
}

} // namespace

// The exported functions are interposable, so the dispatch calls this hidden
// one and never goes through the PLT.
std::int32_t memlib::dispatchLevel() noexcept
{
    const std::int32_t level = hardwareLevel();
    const char* text = std::getenv("UVT_CPU_LEVEL");
    const std::int32_t cap = text == nullptr ? -1 : parseLevel(text);
    if (cap < 0 || cap >= level)
        return level;
    return cap < CPU_SSE2 ? CPU_SSE2 : cap;
}

std::int32_t cpuLevelFromFeatures(std::uint32_t leaf1Ecx, std::uint64_t xcr0, std::uint32_t leaf7Ebx) noexcept
{
    return levelFromFeatures(leaf1Ecx, xcr0, leaf7Ebx);
}

std::int32_t cpuInstructionSet() noexcept { return hardwareLevel(); }

std::int32_t dispatchInstructionSet() noexcept { return memlib::dispatchLevel(); }

MemlibDispatch memlibDispatch() noexcept
{
    using namespace memlib;
    const auto copyLoops = [](bool (*holds)(const copy_loop_table&) noexcept, const copy_loop_table& sse2,
                              const copy_loop_table& ssse3) {
        return holds(ssse3) ? CopyLoops::ssse3 : holds(sse2) ? CopyLoops::sse2 : CopyLoops::unsettled;
    };
    return {copyLoops(memcpyLoopsAre, memcpyAlignedSSE2JTab, memcpyAlignedSupSSE3JTab),
            copyLoops(memmoveLoopsAre, memmoveAlignedSSE2JTab, memmoveAlignedSupSSE3JTab), strncpyLoopsNow()};
}

} // namespace uvt::impl
