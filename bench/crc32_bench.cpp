// CRC-32C with the SSE4.2 instruction (crc32_u64 over words, crc32 over
// bytes) against ISA-L's crc32_iscsi, and the table paths against their
// usual counterparts: CRC32::putblock against zlib's crc32 and crc32C_iSCSI
// against a plain slicing-by-8 loop. Each on 4 KiB, 64 KiB and 1 MiB.
//
// Two further anchors of the word case show where the interleaved
// instruction path stands: "one_stream" (a single dependent chain of the
// instruction) and "vpclmul_fold" (an experimental folding path with
// 512-bit carry-less multiplication, kept here only as a measurement).

#include "support/ratio.h"

#include <uvt/impl/checksum/crc32.h>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#ifdef UVT_BENCH_HAVE_ISAL
#include <isa-l/crc.h>
#endif

namespace {

constexpr std::uint32_t kCastagnoli = 0x82F63B78;

// One random buffer for all runs, 64-byte aligned, as bytes and as words.
const std::vector<std::uint64_t>& buffer()
{
    static const std::vector<std::uint64_t> words = [] {
        std::vector<std::uint64_t> w((1 << 20) / 8);
        std::mt19937_64 rng(42);
        for (auto& x : w)
            x = rng();
        return w;
    }();
    return words;
}

const unsigned char* bytes() { return reinterpret_cast<const unsigned char*>(buffer().data()); }

template <class Body>
void run(benchmark::State& state, Body body)
{
    const auto len = static_cast<std::size_t>(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(body(len));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * len));
}

// --- CRC-32C word paths with the instruction ---

void u64_uvt(benchmark::State& state)
{
    const std::uint64_t* w = buffer().data();
    run(state, [w](std::size_t len) { return uvt::crc32_u64(0xFFFFFFFF, w, w + len / 8); });
}

__attribute__((target("sse4.2"))) std::uint32_t one_stream(std::uint32_t crc, const std::uint64_t* w, std::size_t n)
{
    std::uint64_t c = crc;
    for (std::size_t i = 0; i < n; ++i)
        c = _mm_crc32_u64(c, w[i]);
    return static_cast<std::uint32_t>(c);
}

void u64_one_stream(benchmark::State& state)
{
    const std::uint64_t* w = buffer().data();
    run(state, [w](std::size_t len) { return one_stream(0xFFFFFFFF, w, len / 8); });
}

// x^n mod P as a 64-bit carry-less multiplier: the remainder's coefficient
// of x^d at bit 63 - d (the bit order of data loaded little-endian).
std::uint64_t fold_constant(unsigned n)
{
    const std::uint64_t poly = (std::uint64_t{1} << 32) | [] {
        std::uint32_t normal = 0; // bit-reverse of the reflected polynomial
        for (int bit = 0; bit < 32; ++bit)
            if (kCastagnoli & (1u << bit))
                normal |= 1u << (31 - bit);
        return normal;
    }();
    std::uint64_t r = 1;
    for (unsigned i = 0; i < n; ++i) {
        r <<= 1;
        if (r & (std::uint64_t{1} << 32))
            r ^= poly;
    }
    std::uint64_t reflected = 0;
    for (int d = 0; d < 32; ++d)
        if (r & (std::uint64_t{1} << d))
            reflected |= std::uint64_t{1} << (63 - d);
    return reflected;
}

// Experimental: sixteen 128-bit lanes in four 512-bit registers, each lane
// folded forward over 256 bytes per round (the carry-less product carries
// one extra factor x, hence the exponents minus one); the lanes, stored in
// message order, are congruent to the message modulo the polynomial, so
// the instruction over them (from 0) gives the register. len: a multiple of
// 256 bytes, at least 256.
__attribute__((target("avx512f,vpclmulqdq,sse4.2"))) std::uint32_t vpclmul_fold(std::uint32_t crc,
                                                                                const unsigned char* p, std::size_t len)
{
    static const __m512i k = _mm512_set4_epi64(static_cast<long long>(fold_constant(2048 - 1)),
                                               static_cast<long long>(fold_constant(2048 + 63)),
                                               static_cast<long long>(fold_constant(2048 - 1)),
                                               static_cast<long long>(fold_constant(2048 + 63)));
    __m512i lane[4];
    for (int r = 0; r < 4; ++r)
        lane[r] = _mm512_loadu_si512(p + 64 * r);
    lane[0] = _mm512_xor_si512(lane[0], _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc))));
    for (p += 256, len -= 256; len != 0; p += 256, len -= 256)
        for (int r = 0; r < 4; ++r)
            lane[r] = _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(lane[r], k, 0x00),
                                                _mm512_clmulepi64_epi128(lane[r], k, 0x11),
                                                _mm512_loadu_si512(p + 64 * r), 0x96);
    alignas(64) std::uint64_t folded[32];
    for (int r = 0; r < 4; ++r)
        _mm512_store_si512(folded + 8 * r, lane[r]);
    std::uint64_t c = 0;
    for (std::uint64_t w : folded)
        c = _mm_crc32_u64(c, w);
    return static_cast<std::uint32_t>(c);
}

void u64_vpclmul_fold(benchmark::State& state)
{
    if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("vpclmulqdq")) {
        state.SkipWithError("no AVX-512 carry-less multiplication");
        return;
    }
    const std::size_t words = static_cast<std::size_t>(state.range(0)) / 8;
    const std::uint32_t ours = uvt::crc32_u64(0xFFFFFFFF, buffer().data(), buffer().data() + words);
    if (vpclmul_fold(0xFFFFFFFF, bytes(), 8 * words) != ours) {
        state.SkipWithError("folding result differs");
        return;
    }
    run(state, [](std::size_t len) { return vpclmul_fold(0xFFFFFFFF, bytes(), len); });
}

void bytes_uvt(benchmark::State& state)
{
    const auto* chars = reinterpret_cast<const char*>(bytes());
    run(state, [chars](std::size_t len) { return uvt::crc32(0xFFFFFFFF, chars, len); });
}

#ifdef UVT_BENCH_HAVE_ISAL
// ISA-L takes and returns the raw register too.
template <bool Words>
void isal(benchmark::State& state)
{
    auto* p = const_cast<unsigned char*>(bytes());
    const auto len = static_cast<std::size_t>(state.range(0));
    const std::uint32_t ours = Words ? uvt::crc32_u64(0xFFFFFFFF, buffer().data(), buffer().data() + len / 8)
                                     : uvt::crc32(0xFFFFFFFF, reinterpret_cast<const char*>(p), len);
    if (crc32_iscsi(p, static_cast<int>(len), 0xFFFFFFFF) != ours) {
        state.SkipWithError("ISA-L result differs");
        return;
    }
    run(state, [p](std::size_t n) { return crc32_iscsi(p, static_cast<int>(n), 0xFFFFFFFF); });
}
#endif

// --- table paths ---

void ieee_uvt(benchmark::State& state)
{
    run(state, [](std::size_t len) {
        uvt::CRC32 crc;
        crc.putblock(bytes(), len);
        return crc.value();
    });
}

void ieee_zlib(benchmark::State& state)
{
    run(state, [](std::size_t len) { return ::crc32(0, bytes(), static_cast<uInt>(len)); });
}

void tables_uvt(benchmark::State& state)
{
    run(state, [](std::size_t len) { return uvt::crc32C_iSCSI(0, bytes(), len); });
}

// A plain slicing-by-8 CRC-32C (conditioned), tables built on first use.
std::uint32_t slicing8(std::uint32_t crc, const unsigned char* p, std::size_t len)
{
    static const auto table = [] {
        std::vector<std::uint32_t> t(8 * 256);
        for (std::uint32_t n = 0; n < 256; ++n) {
            std::uint32_t c = n;
            for (int bit = 0; bit < 8; ++bit)
                c = (c & 1) ? (c >> 1) ^ kCastagnoli : c >> 1;
            t[n] = c;
        }
        for (std::size_t k = 1; k < 8; ++k)
            for (std::size_t n = 0; n < 256; ++n)
                t[256 * k + n] = (t[256 * (k - 1) + n] >> 8) ^ t[t[256 * (k - 1) + n] & 0xFF];
        return t;
    }();
    const std::uint32_t* t = table.data();
    std::uint32_t c = ~crc;
    for (; len >= 8; len -= 8, p += 8) {
        std::uint64_t x;
        std::memcpy(&x, p, 8);
        x ^= c;
        c = t[7 * 256 + (x & 0xFF)] ^ t[6 * 256 + ((x >> 8) & 0xFF)] ^ t[5 * 256 + ((x >> 16) & 0xFF)] ^
            t[4 * 256 + ((x >> 24) & 0xFF)] ^ t[3 * 256 + ((x >> 32) & 0xFF)] ^ t[2 * 256 + ((x >> 40) & 0xFF)] ^
            t[256 + ((x >> 48) & 0xFF)] ^ t[x >> 56];
    }
    for (; len != 0; --len)
        c = t[(c ^ *p++) & 0xFF] ^ (c >> 8);
    return ~c;
}

void tables_slicing8(benchmark::State& state)
{
    run(state, [](std::size_t len) { return slicing8(0, bytes(), len); });
}

void sizes(benchmark::internal::Benchmark* b) { b->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20); }

BENCHMARK(u64_uvt)->Name("crc32c_u64/uvt")->Apply(sizes);
BENCHMARK(u64_one_stream)->Name("crc32c_u64/one_stream")->Apply(sizes);
BENCHMARK(u64_vpclmul_fold)->Name("crc32c_u64/vpclmul_fold")->Apply(sizes);
BENCHMARK(bytes_uvt)->Name("crc32c_bytes/uvt")->Apply(sizes);
#ifdef UVT_BENCH_HAVE_ISAL
BENCHMARK(isal<true>)->Name("crc32c_u64/isal")->Apply(sizes);
BENCHMARK(isal<false>)->Name("crc32c_bytes/isal")->Apply(sizes);
#endif
BENCHMARK(ieee_uvt)->Name("crc32_ieee/uvt")->Apply(sizes);
BENCHMARK(ieee_zlib)->Name("crc32_ieee/zlib")->Apply(sizes);
BENCHMARK(tables_uvt)->Name("crc32c_tables/uvt")->Apply(sizes);
BENCHMARK(tables_slicing8)->Name("crc32c_tables/slicing8")->Apply(sizes);

} // namespace

UVT_BENCHMARK_MAIN()
