// memcpy, memmove, memset and strlen of the library against the C library's
// (looked up in libc.so.6 itself, so that the library's exported names do
// not stand in for them) at sizes from 8 bytes to 16 MiB.
//
// Every benchmark runs its operation at each offset 0..63 and at a few
// page-crossing ones (4032, 4080, 4095): for memcpy the destination's
// distance above the source modulo the page size (separate page-aligned
// buffers), for memmove the distance within one buffer (overlapping when
// smaller than the size), for memset and strlen the start within a page.
// Each offset keeps its best time over all iterations and repetitions, so
// that a noisy machine costs repetitions rather than accuracy; after the
// usual output a table gives, per operation and size, the median and the
// worst offset of both and their ratio (library throughput / C library
// throughput), and the same ratio for the 16-byte bound below.

#include "support/ratio.h"

#include <uvt/impl/memlib/memlib>

#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <emmintrin.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using copy_fn = void* (*)(void*, const void*, std::size_t);
using set_fn = void* (*)(void*, int, std::size_t);
using length_fn = std::size_t (*)(const char*);

struct implementation {
    copy_fn memcpy;
    copy_fn memmove;
    set_fn memset;
    length_fn strlen;
};

const implementation& library()
{
    static const implementation uvt{uvt::impl::memcpy_impl, uvt::impl::memmove_impl, uvt::impl::memset_impl,
                                    uvt::impl::strlen_impl};
    return uvt;
}

template <class F>
F from_c_library(const char* name)
{
    static void* const libc = dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    void* symbol = libc == nullptr ? nullptr : dlsym(libc, name);
    if (symbol == nullptr)
        throw std::runtime_error(std::string("C library function not found: ") + name);
    return reinterpret_cast<F>(symbol);
}

const implementation& c_library()
{
    static const implementation glibc{from_c_library<copy_fn>("memcpy"), from_c_library<copy_fn>("memmove"),
                                      from_c_library<set_fn>("memset"), from_c_library<length_fn>("strlen")};
    return glibc;
}

// The most that any route built on 16-byte loads and stores can do here:
// the same operations on 16-byte aligned ends (the pointers are rounded
// down, the buffers have room), whole rounds of 64 bytes (128 for strlen,
// which tests once a round), no head, no tail, no dispatch. Measured beside
// the others, it shows what share of the C library's speed 16-byte accesses
// leave room for at each size, whatever the route around them. Not a correct implementation: strlen stops at the
// 128-byte round holding the terminator.
namespace bound16 {

const char* aligned(const void* p)
{
    return reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(p) & ~std::uintptr_t{15});
}

__m128i load(const char* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
void store(const char* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(const_cast<char*>(p)), v); }

void* forward(void* dst, const void* src, std::size_t n)
{
    const char* d = aligned(dst);
    const char* s = aligned(src);
    for (const char* end = d + n; d < end; d += 64, s += 64) {
        const __m128i a = load(s), b = load(s + 16), c = load(s + 32), e = load(s + 48);
        store(d, a), store(d + 16, b), store(d + 32, c), store(d + 48, e);
    }
    return dst;
}

// Downwards from the end, so that an overlapping move never reads what it
// has just stored.
void* backward(void* dst, const void* src, std::size_t n)
{
    const char* d = aligned(static_cast<char*>(dst) + n);
    const char* s = aligned(static_cast<const char*>(src) + n);
    for (const char* end = d - n; d > end; d -= 64, s -= 64) {
        const __m128i a = load(s - 16), b = load(s - 32), c = load(s - 48), e = load(s - 64);
        store(d - 16, a), store(d - 32, b), store(d - 48, c), store(d - 64, e);
    }
    return dst;
}

void* fill(void* dst, int c, std::size_t n)
{
    const __m128i v = _mm_set1_epi8(static_cast<char>(c));
    const char* d = aligned(dst);
    for (const char* end = d + n; d < end; d += 64)
        store(d, v), store(d + 16, v), store(d + 32, v), store(d + 48, v);
    return dst;
}

__m128i least_of_line(const char* p)
{
    return _mm_min_epu8(_mm_min_epu8(load(p), load(p + 16)), _mm_min_epu8(load(p + 32), load(p + 48)));
}

std::size_t length(const char* s)
{
    const char* p = reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(s) & ~std::uintptr_t{127});
    for (;; p += 128) {
        const __m128i least = _mm_min_epu8(least_of_line(p), least_of_line(p + 64));
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(least, _mm_setzero_si128())) != 0)
            return static_cast<std::size_t>(p - s);
    }
}

} // namespace bound16

const implementation& bound()
{
    static const implementation sixteen{bound16::forward, bound16::backward, bound16::fill, bound16::length};
    return sixteen;
}

constexpr std::size_t sizes[] = {8, 64, 256, 4 << 10, 64 << 10, 1 << 20, 16 << 20};

std::vector<std::size_t> offsets()
{
    std::vector<std::size_t> all;
    for (std::size_t o = 0; o < 64; ++o)
        all.push_back(o);
    for (std::size_t o : {4032, 4080, 4095})
        all.push_back(o);
    return all;
}

enum class operation { memcpy, memmove, memset, strlen };
constexpr const char* operation_names[] = {"memcpy", "memmove", "memset", "strlen"};

// A page-aligned buffer with room for `size` bytes at any offset.
struct page_buffer {
    explicit page_buffer(std::size_t size) : bytes(static_cast<unsigned char*>(std::aligned_alloc(4096, size + 8192)))
    {
        std::fill(bytes, bytes + size + 8192, 'a');
    }
    ~page_buffer() { std::free(bytes); }
    page_buffer(const page_buffer&) = delete;
    page_buffer& operator=(const page_buffer&) = delete;
    unsigned char* bytes;
};

// Best nanoseconds per call at each offset, by benchmark name.
std::map<std::string, std::vector<double>> best_times;

// Times `reps` runs of op() in nanoseconds per run.
template <class Op>
double time_per_run(std::size_t reps, Op op)
{
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < reps; ++i)
        op();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / static_cast<double>(reps);
}

// Nanoseconds per call of `op` at offset o (see the file comment).
double measure(operation op, const implementation& impl, unsigned char* src, unsigned char* dst, std::size_t o,
               std::size_t size, std::size_t reps)
{
    switch (op) {
    case operation::memcpy:
        return time_per_run(reps, [&] { benchmark::DoNotOptimize(impl.memcpy(dst + o, src, size)); });
    case operation::memmove:
        return time_per_run(reps, [&] { benchmark::DoNotOptimize(impl.memmove(src + o, src, size)); });
    case operation::memset:
        return time_per_run(reps, [&] { benchmark::DoNotOptimize(impl.memset(dst + o, 0x5A, size)); });
    case operation::strlen:
        break;
    }
    const char* text = reinterpret_cast<const char*>(src + o);
    src[o + size - 1] = 0;
    const double ns = time_per_run(reps, [&] { benchmark::DoNotOptimize(impl.strlen(text)); });
    src[o + size - 1] = 'a';
    return ns;
}

void run(benchmark::State& state, const std::string& name, operation op, const implementation& impl, std::size_t size)
{
    page_buffer src(size), dst(size);
    const std::vector<std::size_t> all = offsets();
    std::vector<double> best(all.size(), 1e300);
    const std::size_t reps = std::max<std::size_t>(1, (32 << 10) / size);
    for (auto _ : state)
        for (std::size_t i = 0; i < all.size(); ++i)
            best[i] = std::min(best[i], measure(op, impl, src.bytes, dst.bytes, all[i], size, reps));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * all.size() * reps * size));
    // Repetitions of one benchmark keep the best of them all per offset.
    auto [kept, first] = best_times.try_emplace(name, best);
    if (!first)
        for (std::size_t i = 0; i < best.size(); ++i)
            kept->second[i] = std::min(kept->second[i], best[i]);
}

void register_all()
{
    for (operation op : {operation::memcpy, operation::memmove, operation::memset, operation::strlen})
        for (std::size_t size : sizes)
            for (auto [who, impl] : {std::pair{"uvt", &library()}, {"glibc", &c_library()}, {"bound16", &bound()}}) {
                if (impl == &bound() && size < 64)
                    continue; // its whole 64-byte rounds would not compare
                const std::string name =
                    std::string(operation_names[static_cast<int>(op)]) + "/" + who + "/" + std::to_string(size);
                benchmark::RegisterBenchmark(name.c_str(), run, name, op, *impl, size)->UseRealTime();
            }
}

// Core clock in GHz, from a chain of dependent additions (one per cycle).
double core_ghz()
{
    constexpr long rounds = 200'000'000;
    double best = 0;
    for (int attempt = 0; attempt < 5; ++attempt) {
        long x = 0;
        const auto start = std::chrono::steady_clock::now();
        for (long i = 0; i < rounds; ++i)
            asm volatile("add $1, %0" : "+r"(x));
        const std::chrono::duration<double, std::nano> ns = std::chrono::steady_clock::now() - start;
        best = std::max(best, rounds / ns.count());
    }
    return best;
}

struct summary {
    double median_gbps;
    double worst_gbps;
    std::size_t worst_offset;
};

summary summarise(const std::vector<double>& ns, std::size_t size)
{
    const std::vector<std::size_t> all = offsets();
    std::vector<double> gbps;
    for (double t : ns)
        gbps.push_back(static_cast<double>(size) / t);
    const auto worst = std::min_element(gbps.begin(), gbps.end());
    std::vector<double> sorted = gbps;
    std::sort(sorted.begin(), sorted.end());
    return {sorted[sorted.size() / 2], *worst, all[worst - gbps.begin()]};
}

void print_offset_table()
{
    const double ghz = core_ghz();
    std::printf("\nthroughput over offsets (GB/s, best of all iterations per offset; core clock %.2f GHz)\n", ghz);
    std::printf("%-8s %9s | %8s %8s %6s | %8s %5s %8s %5s %6s | %9s | %9s\n", "op", "size", "uvt med", "libc med",
                "ratio", "uvt wst", "@off", "libc wst", "@off", "ratio", "uvt B/cyc", "16B bound");
    for (const char* op : operation_names)
        for (std::size_t size : sizes) {
            const std::string rest = "/" + std::to_string(size);
            const auto mine = best_times.find(std::string(op) + "/uvt" + rest);
            const auto theirs = best_times.find(std::string(op) + "/glibc" + rest);
            if (mine == best_times.end() || theirs == best_times.end())
                continue;
            const summary u = summarise(mine->second, size);
            const summary g = summarise(theirs->second, size);
            std::printf("%-8s %9zu | %8.2f %8.2f %6.2f | %8.2f %5zu %8.2f %5zu %6.2f | %9.2f | ", op, size,
                        u.median_gbps, g.median_gbps, u.median_gbps / g.median_gbps, u.worst_gbps, u.worst_offset,
                        g.worst_gbps, g.worst_offset, u.worst_gbps / g.worst_gbps, u.median_gbps / ghz);
            // The bound's median against the C library's: the most a
            // 16-byte route could reach in the "ratio" column.
            const auto limit = best_times.find(std::string(op) + "/bound16" + rest);
            if (limit == best_times.end())
                std::printf("%9s\n", "-");
            else
                std::printf("%9.2f\n", summarise(limit->second, size).median_gbps / g.median_gbps);
        }
}

} // namespace

int main(int argc, char** argv)
{
    register_all();
    const int rc = uvt_bench::run_with_ratios(argc, argv);
    print_offset_table();
    return rc;
}
