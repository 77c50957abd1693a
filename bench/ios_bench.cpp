// Number formatting against std::ostringstream and snprintf for the same
// text. Integers: each run formats one line of 16 integers (decimal, then
// hexadecimal with base and width) into a fresh buffer_stream<256>, stream
// or buffer. Doubles: each run appends 1000 doubles of mixed magnitudes in
// the default format ("%g") and a blank to one growing string stream (or
// buffer). The last benchmark reports the time ratios (other / library;
// above 1 means the library is faster).

#include <uvt/ext/buffer_stream>
#include <uvt/sstream>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <random>
#include <sstream>
#include <vector>

namespace {

const long values[16] = {0, 7, -13, 255, 4096, -65536, 1234567, 99999999, -2147483648L, 4294967295L,
                         42, -1, 1L << 40, -(1L << 50), 987654321012L, 31};

// buffer_stream, ostringstream, snprintf; then the same for doubles.
double ns_per_op[6];

const std::vector<double>& doubles()
{
    static const std::vector<double> values = [] {
        std::mt19937_64 rng(1);
        std::vector<double> v(1000);
        for (double& x : v)
            x = std::uniform_real_distribution<double>(-1e6, 1e6)(rng) * std::pow(10.0, int(rng() % 20) - 10);
        return v;
    }();
    return values;
}

template <class Body>
void timed(benchmark::State& state, int slot, Body body)
{
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        body();
    const std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    ns_per_op[slot] = elapsed.count() / static_cast<double>(state.iterations());
}

void BM_buffer_stream(benchmark::State& state)
{
    timed(state, 0, [] {
        uvt::buffer_stream<256> os;
        for (long v : values)
            os << v << ' ';
        os << uvt::hex << uvt::showbase;
        for (long v : values)
            os << uvt::setw(12) << v;
        benchmark::DoNotOptimize(os.c_str());
    });
}

void BM_ostringstream(benchmark::State& state)
{
    timed(state, 1, [] {
        std::ostringstream os;
        for (long v : values)
            os << v << ' ';
        os << std::hex << std::showbase;
        for (long v : values)
            os << std::setw(12) << v;
        benchmark::DoNotOptimize(os.str());
    });
}

void BM_snprintf(benchmark::State& state)
{
    timed(state, 2, [] {
        char buffer[512];
        int n = 0;
        for (long v : values)
            n += std::snprintf(buffer + n, sizeof buffer - n, "%ld ", v);
        for (long v : values)
            n += std::snprintf(buffer + n, sizeof buffer - n, "%#12lx", v);
        benchmark::DoNotOptimize(buffer);
    });
}

void BM_double_uvt_ostringstream(benchmark::State& state)
{
    uvt::ostringstream os(uvt::allocator::global_allocator());
    timed(state, 3, [&] {
        for (double v : doubles())
            os << v << ' ';
        benchmark::DoNotOptimize(os.data());
    });
}

void BM_double_std_ostringstream(benchmark::State& state)
{
    std::ostringstream os;
    timed(state, 4, [&] {
        for (double v : doubles())
            os << v << ' ';
        benchmark::DoNotOptimize(os.tellp());
    });
}

void BM_double_snprintf(benchmark::State& state)
{
    std::vector<char> text;
    timed(state, 5, [&] {
        char buffer[32];
        for (double v : doubles()) {
            const int n = std::snprintf(buffer, sizeof buffer, "%g ", v);
            text.insert(text.end(), buffer, buffer + n);
        }
        benchmark::DoNotOptimize(text.data());
    });
}

void BM_ratio(benchmark::State& state)
{
    for (auto _ : state) {
    }
    state.counters["ostringstream/buffer_stream"] = ns_per_op[1] / ns_per_op[0];
    state.counters["snprintf/buffer_stream"] = ns_per_op[2] / ns_per_op[0];
    state.counters["double: std::ostringstream/uvt"] = ns_per_op[4] / ns_per_op[3];
    state.counters["double: snprintf/uvt"] = ns_per_op[5] / ns_per_op[3];
}

BENCHMARK(BM_buffer_stream);
BENCHMARK(BM_ostringstream);
BENCHMARK(BM_snprintf);
BENCHMARK(BM_double_uvt_ostringstream);
BENCHMARK(BM_double_std_ostringstream);
BENCHMARK(BM_double_snprintf);
BENCHMARK(BM_ratio)->Iterations(1);

} // namespace
