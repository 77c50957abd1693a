// CRC-32 and CRC-32C: check values, zlib and a bitwise reference on random
// buffers, the 0xFF padding of the byte overload, combining, the strided
// word walk with its alignment error, each on the instruction and the table
// path. (The tables are filled at load time: nothing is left for concurrent
// callers to race on.)

#include "support/caught.h"

#include <uvt/impl/checksum/crc32.h>
#include <uvt/stdexcept>

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kIeee = 0xEDB88320;
constexpr std::uint32_t kCastagnoli = 0x82F63B78;

// Raw register after `bytes`, one bit at a time.
std::uint32_t bitwise(std::uint32_t reg, const std::vector<unsigned char>& bytes, std::uint32_t poly = kCastagnoli)
{
    for (unsigned char b : bytes) {
        reg ^= b;
        for (int bit = 0; bit < 8; ++bit)
            reg = (reg & 1) ? (reg >> 1) ^ poly : reg >> 1;
    }
    return reg;
}

template <class T>
std::vector<unsigned char> bytes_of(const T* data, std::size_t count)
{
    const auto* p = reinterpret_cast<const unsigned char*>(data);
    return std::vector<unsigned char>(p, p + count * sizeof(T));
}

std::vector<unsigned char> random_bytes(std::mt19937& rng, std::size_t n)
{
    std::vector<unsigned char> v(n);
    for (auto& b : v)
        b = static_cast<unsigned char>(rng());
    return v;
}

// Word counts around the boundaries of the interleaved rounds (6 x 4,
// 6 x 16, 6 x 64 and 6 x 512 words) and of the table loops.
const std::size_t kWordCounts[] = {0,  1,  2,  7,   8,   9,   23,   24,   25,   47,
                                   95, 96, 97, 383, 384, 385, 3071, 3072, 3073, 3072 + 384 + 96 + 24 + 5};

enum class path { instruction, tables };

// Every test of this suite runs once per path.
class Crc32Path : public ::testing::TestWithParam<path> {
protected:
    void SetUp() override
    {
        if (GetParam() == path::instruction && !__builtin_cpu_supports("sse4.2"))
            GTEST_SKIP() << "no SSE4.2 on this processor";
        uvt::impl::crc32UseHardware(GetParam() == path::instruction);
    }
    void TearDown() override { uvt::impl::crc32UseHardware(true); }

    std::mt19937 rng{12345};
};

INSTANTIATE_TEST_SUITE_P(Paths, Crc32Path, ::testing::Values(path::instruction, path::tables),
                         [](const auto& info) { return info.param == path::instruction ? "instruction" : "tables"; });

TEST_P(Crc32Path, CheckValuesIeeeAgainstZlibAndCastagnoliAgainstTheBitwiseReference)
{
    uvt::CRC32 ieee;
    ieee.putblock(reinterpret_cast<const unsigned char*>("123456789"), 9);
    EXPECT_EQ(ieee.value(), 0xCBF43926u);
    EXPECT_EQ(uvt::crc32C_iSCSI(0, reinterpret_cast<const unsigned char*>("123456789"), 9), 0xE3069283u);
    EXPECT_EQ(uvt::crc32(0xFFFFFFFF, "12345678", 8), 0x9F787F65u);
    EXPECT_EQ(uvt::crc32(0xFFFFFFFF, "123456789", 9), 0xA4EB6B52u);
    EXPECT_EQ(uvt::crc32(0, "123456789", 9), 0x707421F0u);
    EXPECT_EQ(uvt::crc32(0xFFFFFFFF, "1234", 4), 0x09C50B11u);
    EXPECT_EQ(uvt::crc32(0xFFFFFFFF, std::uint32_t{0x34333231}), 0x09C50B11u);
    EXPECT_EQ(uvt::crc32_supported(), GetParam() == path::instruction);

    const auto data = random_bytes(rng, 4096 + 64);
    for (std::size_t len : {0, 1, 3, 4, 5, 31, 32, 33, 63, 100, 1000, 4096})
        for (std::size_t offset = 0; offset < 4; ++offset) {
            const unsigned char* p = data.data() + offset;
            const std::size_t split = len / 3;
            uvt::CRC32 crc;
            crc.putblock(p, split);
            crc.putblock(p + split, len - split);
            EXPECT_EQ(crc.value(), ::crc32(0, p, static_cast<uInt>(len))) << len << " at +" << offset;
        }
    uvt::CRC32 crc;
    crc.putblock(data.data(), 10);
    crc.reset();
    EXPECT_EQ(crc.value(), 0u);
    crc.putblock(nullptr, 0);
    EXPECT_EQ(crc.value(), 0u);

    // Castagnoli words and bytes against the bitwise reference.
    for (std::size_t words : kWordCounts) {
        const auto data = random_bytes(rng, 8 * words + 8);
        std::vector<std::uint64_t> w64(words + 1);
        std::memcpy(w64.data(), data.data(), 8 * w64.size());
        const std::vector<unsigned char> bytes(data.begin(), data.begin() + 8 * words);
        const std::uint32_t expected = bitwise(0xFFFFFFFF, bytes);
        EXPECT_EQ(uvt::crc32_u64(0xFFFFFFFF, w64.data(), w64.data() + words), expected) << words;
        std::vector<std::uint32_t> w32(2 * words + 1); // an odd count as well
        std::memcpy(w32.data(), data.data(), w32.size() * 4);
        EXPECT_EQ(uvt::crc32_u32(0xFFFFFFFF, w32.data(), w32.data() + 2 * words), expected) << words;
        EXPECT_EQ(uvt::crc32_u32(0xFFFFFFFF, w32.data(), w32.data() + w32.size()),
                  bitwise(0xFFFFFFFF, bytes_of(w32.data(), w32.size())))
            << words;
        // Unaligned starts of the byte functions.
        for (std::size_t offset : {1, 3, 5}) {
            const std::vector<unsigned char> shifted(data.begin() + offset, data.begin() + offset + 8 * words);
            const auto* p = data.data() + offset;
            EXPECT_EQ(uvt::crc32(0, reinterpret_cast<const char*>(p), 8 * words), bitwise(0, shifted));
            EXPECT_EQ(uvt::crc32C_iSCSI(0, p, 8 * words), ~bitwise(0xFFFFFFFF, shifted)) << words;
        }
    }
}

TEST_P(Crc32Path, ByteAndWordOverloadsStridedWordsAndCombining)
{
    const auto data = random_bytes(rng, 64);
    for (std::size_t len = 0; len <= 40; ++len) {
        std::vector<unsigned char> padded(data.begin() + 1, data.begin() + 1 + len);
        padded.resize((len + 3) / 4 * 4, 0xFF);
        const auto* p = reinterpret_cast<const char*>(data.data() + 1);
        EXPECT_EQ(uvt::crc32(0x12345678, p, len), bitwise(0x12345678, padded)) << len;
    }
    // The wide and single-word overloads take little-endian words.
    const wchar_t text[] = L"wide \u00e9\u4e2d\U0001F600 text";
    const std::size_t count = std::wcslen(text);
    EXPECT_EQ(uvt::crc32(0xFFFFFFFF, text, count), bitwise(0xFFFFFFFF, bytes_of(text, count)));
    EXPECT_EQ(uvt::crc32(7, static_cast<const wchar_t*>(nullptr), 0), 7u);
    for (std::uint32_t value : {0u, 1u, 0x80000000u, 0xDEADBEEFu}) {
        EXPECT_EQ(uvt::crc32(0xFFFFFFFF, value), bitwise(0xFFFFFFFF, bytes_of(&value, 1)));
        EXPECT_EQ(uvt::crc32(0xFFFFFFFF, value), uvt::crc32(0xFFFFFFFF, reinterpret_cast<const char*>(&value), 4));
    }

    // The strided walk folds the selected periods.
    const struct {
        std::size_t words, take, skip, start;
        std::vector<std::size_t> folded;
    } cases[] = {
        {10, 2, 3, 0, {0, 1, 5, 6}}, // two whole periods
        {10, 2, 3, 4, {4, 5}},       // starts in a skip region, still folds take words
        {10, 2, 3, 6, {6, 7}},       // last start before the limit
        {10, 2, 3, 7, {}},           // at the limit: unchanged
        {12, 2, 3, 0, {0, 1, 5, 6}}, // a trailing partial period is ignored
        {4, 2, 3, 0, {}},            // shorter than one period
        {10, 4, 1, 8, {8, 9}},       // clipped at the end of the range
        {10, 0, 0, 0, {}},           // empty period
        {9, 3, 0, 0, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
        {10, 1, 1, 99, {}}, // start beyond the range
    };
    std::vector<std::uint64_t> words(12);
    for (auto& w : words)
        w = (std::uint64_t{rng()} << 32) | rng();
    for (const auto& c : cases) {
        std::vector<std::uint64_t> selected;
        for (std::size_t i : c.folded)
            selected.push_back(words[i]);
        const std::uint32_t expected = bitwise(0xFFFFFFFF, bytes_of(selected.data(), selected.size()));
        EXPECT_EQ(uvt::crc32_u64(0xFFFFFFFF, words.data(), words.data() + c.words, c.take, c.skip, c.start), expected)
            << c.words << " words, take " << c.take << ", skip " << c.skip << ", start " << c.start;
    }
    // A start off an 8-byte boundary is refused, even for an empty range.
    const auto* bytes = reinterpret_cast<const unsigned char*>(words.data());
    for (std::size_t misalignment = 1; misalignment < 8; ++misalignment) {
        const auto* begin = reinterpret_cast<const std::uint64_t*>(bytes + misalignment);
        const auto e = uvt_test::caught<uvt::runtime_error>([&] { uvt::crc32_u64(0, begin, begin, 1, 0, 0); });
        EXPECT_EQ(e.error_no(), uvt__ERR_UVT_BUF_UNALIGNED().value());
        EXPECT_STREQ(e.what(), "Invalid alignment $ALM$ (8 expected)");
        EXPECT_EQ(std::string(e.get_msgarg_by_name("ALM")), std::to_string(misalignment));
    }

    // Combining equals the CRC of the concatenation.
    const auto joined = random_bytes(rng, 3000);
    std::uniform_int_distribution<std::size_t> split_at(0, joined.size());
    for (int round = 0; round < 50; ++round) {
        const std::size_t split = split_at(rng);
        const std::vector<unsigned char> a(joined.begin(), joined.begin() + split),
            b(joined.begin() + split, joined.end());
        const auto raw_a = ~uvt::crc32C_iSCSI(0, a.data(), a.size());
        const auto raw_b = ~uvt::crc32C_iSCSI(0, b.data(), b.size());
        EXPECT_EQ(uvt::crc32_combine(raw_a, raw_b, b.size(), kCastagnoli),
                  ~uvt::crc32C_iSCSI(0, joined.data(), joined.size()))
            << split;
        EXPECT_EQ(uvt::crc32_combine(bitwise(0xFFFFFFFF, a, kIeee), bitwise(0xFFFFFFFF, b, kIeee), b.size(), kIeee),
                  bitwise(0xFFFFFFFF, joined, kIeee));
    }
    EXPECT_EQ(uvt::crc32_combine(0x11111111, 0xDEADBEEF, 0, kCastagnoli), 0x11111111u);
}

} // namespace
