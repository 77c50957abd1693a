// uvt/impl/checksum/crc32.h: 32-bit cyclic redundancy checks.
//
// Internal: not installed and not exported from the shared object. The
// library's own units, the CRC test and benchmark include it through the
// source tree and link the checksum objects (the uvt_checksum object
// library) directly.
//
// Two polynomials are served and deliberately kept apart:
//   - IEEE 802.3 CRC-32 (reflected polynomial 0xEDB88320), only through the
//     accumulator class `CRC32`, always computed from slicing tables;
//   - Castagnoli CRC-32C (reflected polynomial 0x82F63B78), through every
//     free function. The word-oriented ones use the processor's SSE4.2
//     `crc32` instruction where it exists and slicing tables elsewhere; both
//     paths give bit-identical results.
//
// Two conventions of CRC value are used and must not be mixed:
//   - conditioned (zlib's convention): the value is inverted on entry and on
//     exit; start from 0 and the result is the finished checksum
//     (`CRC32::putblock`, `crc32C_iSCSI`);
//   - raw register: no inversion at either end; the caller picks the initial
//     register (0xFFFFFFFF for the usual CRC-32C) and inverts the result
//     itself if it wants the finished checksum (every other function).
//
// The functions are reentrant, never allocate and work on caller memory;
// none validates pointers (a null pointer with zero length is harmless).
// Tables and the hardware/software choice are set up once at load time, or
// on first use before that.
//
// Example:
//   const unsigned char digits[] = "123456789";
//   uvt::CRC32 ieee;
//   ieee.putblock(digits, 9);
//   ieee.value();                                  // 0xCBF43926, the CRC-32 check value
//   uvt::crc32C_iSCSI(0, digits, 9);               // 0xE3069283, the CRC-32C check value
//   std::uint32_t raw = uvt::crc32(0xFFFFFFFF, "12345678", 8);
//   ~raw == uvt::crc32C_iSCSI(0, digits, 8);       // true (8 % 4 == 0: no padding)
#pragma once

#include <cstddef>
#include <cstdint>

namespace uvt {

// Running IEEE CRC-32 in conditioned form; a default-constructed or reset
// accumulator starts the standard CRC-32.
class CRC32 {
public:
    CRC32() noexcept = default;

    // Feeds `len` bytes at `data`. Cost: slicing-by-4, about one table round
    // per 4 bytes.
    void putblock(const unsigned char* data, std::size_t len) noexcept;

    // The CRC-32 of everything fed since construction or the last reset.
    std::uint32_t value() const noexcept { return value_; }
    void reset() noexcept { value_ = 0; }

private:
    std::uint32_t value_ = 0;
};

// Conditioned CRC-32C of `len` bytes continuing from `crc` (0 to start).
// Always the slicing-by-8 tables, even where the instruction exists.
std::uint32_t crc32C_iSCSI(std::uint32_t crc, const unsigned char* data, std::size_t len) noexcept;

// Raw CRC-32C register after `len` bytes followed by (4 - len % 4) % 4 bytes
// of 0xFF: the bytes are taken as 32-bit little-endian words and a partial
// last word is padded with 0xFF. The result therefore differs from a plain
// byte CRC whenever len is not a multiple of 4. No alignment required.
std::uint32_t crc32(std::uint32_t crc, const char* data, std::size_t len) noexcept;
// Raw CRC-32C register after `count` 4-byte wide characters, each taken as
// one 32-bit little-endian word.
std::uint32_t crc32(std::uint32_t crc, const wchar_t* data, std::size_t count) noexcept;
// Raw CRC-32C register after one 32-bit word (its little-endian bytes).
std::uint32_t crc32(std::uint32_t crc, std::uint32_t value) noexcept;

// Raw CRC-32C register after every word of [begin, end).
std::uint32_t crc32_u32(std::uint32_t crc, const std::uint32_t* begin, const std::uint32_t* end) noexcept;
std::uint32_t crc32_u64(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end) noexcept;

// Raw CRC-32C register over a strided selection of [begin, end): the range
// is a sequence of periods of `takeWords` words that are checksummed followed
// by `skipWords` words that are not. Only the whole periods of the range
// count: with n words and period = takeWords + skipWords, the selection
// starts at word `startWord` and steps by period while it starts before
// (n / period) * period - skipWords; each step folds takeWords words (a step
// that starts inside a skip region still folds takeWords words; only the end
// of the range clips it). A range shorter than one period, a start beyond the
// last period or an empty period returns `crc` unchanged.
// Throws uvt::runtime_error (ERR_UVT_BUF_UNALIGNED, "Invalid alignment $ALM$
// (8 expected)" with ALM = begin % 8) when begin is not 8-byte aligned.
std::uint32_t crc32_u64(std::uint32_t crc, const std::uint64_t* begin, const std::uint64_t* end, std::size_t takeWords,
                        std::size_t skipWords, std::size_t startWord);

// The raw register of A followed by B, from the raw registers crc1 of A and
// crc2 of B (both started at 0xFFFFFFFF) and the length of B in bytes, for
// the reflected polynomial `poly` (0x82F63B78 for CRC-32C). Does not combine
// conditioned values. len2 == 0 returns crc1. Cost: O(log len2) operations on
// 32x32 bit matrices; needs no tables.
std::uint32_t crc32_combine(std::uint32_t crc1, std::uint32_t crc2, std::size_t len2, std::uint32_t poly) noexcept;

// True when the word functions use the SSE4.2 instruction.
bool crc32_supported() noexcept;

namespace impl {
// Re-selects the word paths of the CRC-32C functions: the instruction when
// `allowed` and the processor has it, the slicing tables otherwise. For tests
// and measurements that must reach the table path on any machine; must not
// run while other threads compute CRCs.
void crc32UseHardware(bool allowed) noexcept;
} // namespace impl

} // namespace uvt
