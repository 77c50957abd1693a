// The table side of the CRC component: the slicing tables of both
// polynomials, the processor check, the function pointers through which the
// word functions dispatch, and the public entry points.
//
// Set-up is lazy and idempotent: the static initialiser runs it at load
// time, and every entry point runs it first if it has not completed, for
// callers that come before static initialisation. Racing first users write
// identical tables and pointers; `crcTablesInitialized` is published last.

#include <uvt/exception>
#include <uvt/impl/checksum/crc32.h>
#include <uvt/impl/error_code>
#include <uvt/stdexcept>

#include "crc32_paths.h"

#include <cpuid.h>

#include <atomic>
#include <cstring>

namespace uvt {

namespace impl::crc {
namespace {

using BytesFn = std::uint32_t (*)(std::uint32_t crc, const std::uint8_t* data, std::size_t len);
using Words32Fn = std::uint32_t (*)(std::uint32_t crc, const std::uint32_t* words, std::size_t count);
using Words64Fn = std::uint32_t (*)(std::uint32_t crc, const std::uint64_t* words, std::size_t count);
using Range32Fn = std::uint32_t (*)(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end);
using Range64Fn = std::uint32_t (*)(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end);
using StridedFn = std::uint32_t (*)(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end,
                                    std::size_t takeWords, std::size_t skipWords, std::size_t startWord);

constexpr std::uint32_t kSoftwarePath = 1;
constexpr std::uint32_t kHardwarePath = 2;

std::uint32_t crcTableZ[4][256];
std::uint32_t crcTableI[8][256];
std::atomic<bool> crcTablesReady{false};
std::atomic<bool> crcTablesInitialized{false};
std::atomic<std::uint32_t> crc32_Support{0};

std::atomic<BytesFn> pCrc32Z{nullptr};
std::atomic<BytesFn> pCrc32I{nullptr};
std::atomic<Words32Fn> pCrc32Ia32{nullptr};
std::atomic<Words64Fn> pCrc32Ia64{nullptr};
std::atomic<Range32Fn> pCrc32U32{nullptr};
std::atomic<Range64Fn> pCrc32U64{nullptr};
std::atomic<StridedFn> pCrc32U64Ext{nullptr};

// --- table construction ---

template <std::size_t Slices>
void buildSlicingTables(std::uint32_t (&table)[Slices][256], std::uint32_t poly)
{
    for (std::uint32_t n = 0; n < 256; ++n) {
        std::uint32_t c = n;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1) ? (c >> 1) ^ poly : c >> 1;
        table[0][n] = c;
    }
    for (std::size_t k = 1; k < Slices; ++k)
        for (std::size_t n = 0; n < 256; ++n)
            table[k][n] = (table[k - 1][n] >> 8) ^ table[0][table[k - 1][n] & 0xFF];
}

// --- the slicing steps ---

template <std::size_t Slices>
std::uint32_t byteStep(const std::uint32_t (&table)[Slices][256], std::uint32_t c, std::uint8_t b)
{
    return table[0][(c ^ b) & 0xFF] ^ (c >> 8);
}

// One 32-bit little-endian word through tables 0..3.
template <std::size_t Slices>
std::uint32_t wordStep(const std::uint32_t (&table)[Slices][256], std::uint32_t c, std::uint32_t word)
{
    c ^= word;
    return table[3][c & 0xFF] ^ table[2][(c >> 8) & 0xFF] ^ table[1][(c >> 16) & 0xFF] ^ table[0][c >> 24];
}

// One 64-bit little-endian word through the eight Castagnoli tables.
std::uint32_t doubleWordStep(std::uint32_t c, std::uint64_t word)
{
    const std::uint64_t x = c ^ word;
    std::uint32_t r = 0;
    for (int byte = 0; byte < 8; ++byte)
        r ^= crcTableI[7 - byte][(x >> (8 * byte)) & 0xFF];
    return r;
}

// --- the table functions ---

// IEEE, conditioned: bytes up to 4-byte alignment, 32-byte rounds of eight
// word steps, single word steps, then the last bytes.
std::uint32_t crc32LittleZ(std::uint32_t crc, const std::uint8_t* data, std::size_t len)
{
    std::uint32_t c = ~crc;
    for (; len != 0 && reinterpret_cast<std::uintptr_t>(data) % 4 != 0; --len)
        c = byteStep(crcTableZ, c, *data++);
    for (; len >= 32; len -= 32)
        for (int word = 0; word < 8; ++word, data += 4)
            c = wordStep(crcTableZ, c, load32(data));
    for (; len >= 4; len -= 4, data += 4)
        c = wordStep(crcTableZ, c, load32(data));
    for (; len != 0; --len)
        c = byteStep(crcTableZ, c, *data++);
    return ~c;
}

// Castagnoli, raw: eight words per round, then the remaining words.
std::uint32_t crc32LittleIa64(std::uint32_t c, const std::uint64_t* words, std::size_t count)
{
    const auto* p = reinterpret_cast<const unsigned char*>(words);
    for (; count >= 8; count -= 8)
        for (int word = 0; word < 8; ++word, p += 8)
            c = doubleWordStep(c, load64(p));
    for (; count != 0; --count, p += 8)
        c = doubleWordStep(c, load64(p));
    return c;
}

// Castagnoli, raw: two words per round, then an odd last word.
std::uint32_t crc32LittleIa32(std::uint32_t c, const std::uint32_t* words, std::size_t count)
{
    const auto* p = reinterpret_cast<const unsigned char*>(words);
    for (; count >= 2; count -= 2, p += 8) {
        c = wordStep(crcTableI, c, load32(p));
        c = wordStep(crcTableI, c, load32(p + 4));
    }
    return count != 0 ? wordStep(crcTableI, c, load32(p)) : c;
}

// Castagnoli, conditioned: bytes up to 8-byte alignment, words, last bytes.
std::uint32_t crc32LittleI(std::uint32_t crc, const std::uint8_t* data, std::size_t len)
{
    std::uint32_t c = ~crc;
    for (; len != 0 && reinterpret_cast<std::uintptr_t>(data) % 8 != 0; --len)
        c = byteStep(crcTableI, c, *data++);
    c = pCrc32Ia64.load(std::memory_order_relaxed)(c, reinterpret_cast<const std::uint64_t*>(data), len / 8);
    data += len / 8 * 8;
    for (len %= 8; len != 0; --len)
        c = byteStep(crcTableI, c, *data++);
    return ~c;
}

std::uint32_t crc32U32Soft(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end)
{
    return pCrc32Ia32.load(std::memory_order_relaxed)(crc, begin, end - begin);
}

std::uint32_t crc32U64Soft(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end)
{
    return pCrc32Ia64.load(std::memory_order_relaxed)(crc, begin, end - begin);
}

std::uint32_t crc32U64SoftExt(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end,
                              std::size_t takeWords, std::size_t skipWords, std::size_t startWord)
{
    const Words64Fn words = pCrc32Ia64.load(std::memory_order_relaxed);
    return foldStrided(crc, begin, end - begin, takeWords, skipWords, startWord, words);
}

// --- set-up ---

// SSE4.2 as CPUID leaf 1 reports it, asked once per process.
bool checkCPUSupport()
{
    static const bool sse42 = [] {
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        return __get_cpuid_count(1, 0, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_SSE4_2) != 0;
    }();
    return sse42;
}

void selectWordPaths(bool hardware)
{
    pCrc32U32.store(hardware ? crc32U32Hard : crc32U32Soft, std::memory_order_relaxed);
    pCrc32U64.store(hardware ? crc32U64Hard : crc32U64Soft, std::memory_order_relaxed);
    pCrc32U64Ext.store(hardware ? crc32U64HardExt : crc32U64SoftExt, std::memory_order_relaxed);
    crc32_Support.store(hardware ? kSoftwarePath | kHardwarePath : kSoftwarePath, std::memory_order_relaxed);
}

void initCrcTables()
{
    if (!crcTablesReady.load(std::memory_order_acquire)) {
        buildSlicingTables(crcTableZ, reflectedPolynomial(pZ));
        buildSlicingTables(crcTableI, reflectedPolynomial(pI));
        crcTablesReady.store(true, std::memory_order_release);
    }
    pCrc32Z.store(crc32LittleZ, std::memory_order_relaxed);
    pCrc32I.store(crc32LittleI, std::memory_order_relaxed);
    pCrc32Ia32.store(crc32LittleIa32, std::memory_order_relaxed);
    pCrc32Ia64.store(crc32LittleIa64, std::memory_order_relaxed);
    selectWordPaths(checkCPUSupport());
    crcTablesInitialized.store(true, std::memory_order_release);
}

void ensureInitialized()
{
    if (!crcTablesInitialized.load(std::memory_order_acquire))
        initCrcTables();
}

// The byte and wide overloads follow the selected path rather than asking
// the processor again, so that a test that selects the tables reaches them
// too; after set-up both answers are the same.
bool hardwareSelected() { return (crc32_Support.load(std::memory_order_relaxed) & kHardwarePath) != 0; }

std::int32_t initializeAtLoad()
{
    ensureInitialized();
    return static_cast<std::int32_t>(crcTableZ[0][0]);
}

[[noreturn]] void throwUnaligned(const char* file, int line, std::uintptr_t misalignment)
{
    runtime_error e(file, line, uvt__ERR_UVT_BUF_UNALIGNED().value(), "Invalid alignment $ALM$ (8 expected)");
    tThrow(e << message_argument<long>("ALM", static_cast<long>(misalignment)));
}

// Reversed ranges count as empty.
template <class T>
std::size_t wordCount(const T* begin, const T* end)
{
    return end > begin ? static_cast<std::size_t>(end - begin) : 0;
}

} // namespace
} // namespace impl::crc

void impl::crc32UseHardware(bool allowed) noexcept
{
    crc::ensureInitialized();
    crc::selectWordPaths(allowed && crc::checkCPUSupport());
}

namespace global_initializer {
// Written by the static initialiser; exists so that the tables are built at
// load time.
std::int32_t crcTablesInit = impl::crc::initializeAtLoad();
} // namespace global_initializer

using namespace impl::crc;

void CRC32::putblock(const unsigned char* data, std::size_t len) noexcept
{
    ensureInitialized();
    value_ = pCrc32Z.load(std::memory_order_relaxed)(value_, data, len);
}

std::uint32_t crc32C_iSCSI(std::uint32_t crc, const unsigned char* data, std::size_t len) noexcept
{
    ensureInitialized();
    return pCrc32I.load(std::memory_order_relaxed)(crc, data, len);
}

std::uint32_t crc32(std::uint32_t crc, const char* data, std::size_t len) noexcept
{
    ensureInitialized();
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    if (hardwareSelected())
        return crc32BytesHard(crc, bytes, len);
    static constexpr unsigned char padding[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    const BytesFn table = pCrc32I.load(std::memory_order_relaxed);
    std::uint32_t r = table(~crc, bytes, len);
    if (const std::size_t tail = len % 4; tail != 0)
        r = table(r, padding, 4 - tail);
    return ~r;
}

std::uint32_t crc32(std::uint32_t crc, const wchar_t* data, std::size_t count) noexcept
{
    static_assert(sizeof(wchar_t) == 4, "wide characters are checksummed as 32-bit words");
    ensureInitialized();
    if (hardwareSelected()) {
        const auto* words = reinterpret_cast<const std::uint32_t*>(data);
        return pCrc32U32.load(std::memory_order_relaxed)(crc, words, words + count);
    }
    return ~pCrc32I.load(std::memory_order_relaxed)(~crc, reinterpret_cast<const unsigned char*>(data), 4 * count);
}

std::uint32_t crc32(std::uint32_t crc, std::uint32_t value) noexcept
{
    ensureInitialized();
    return hardwareSelected() ? crc32WordHard(crc, value) : wordStep(crcTableI, crc, value);
}

std::uint32_t crc32_u32(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end) noexcept
{
    ensureInitialized();
    return pCrc32U32.load(std::memory_order_relaxed)(crc, begin, begin + wordCount(begin, end));
}

std::uint32_t crc32_u64(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end) noexcept
{
    ensureInitialized();
    return pCrc32U64.load(std::memory_order_relaxed)(crc, begin, begin + wordCount(begin, end));
}

std::uint32_t crc32_u64(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end, std::size_t takeWords,
                        std::size_t skipWords, std::size_t startWord)
{
    if (const auto misalignment = reinterpret_cast<std::uintptr_t>(begin) % 8; misalignment != 0)
        throwUnaligned(__FILE__, __LINE__, misalignment);
    ensureInitialized();
    return pCrc32U64Ext.load(std::memory_order_relaxed)(crc, begin, begin + wordCount(begin, end), takeWords, skipWords,
                                                        startWord);
}

std::uint32_t crc32_combine(std::uint32_t crc1, std::uint32_t crc2, std::size_t len2, std::uint32_t poly) noexcept
{
    if (len2 == 0)
        return crc1;
    return ~(shiftOverZeros(~crc1, len2, poly) ^ ~crc2);
}

bool crc32_supported() noexcept
{
    ensureInitialized();
    return hardwareSelected();
}

} // namespace uvt
