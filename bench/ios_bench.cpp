// Integer formatting: the library's buffer_stream<256> against
// std::ostringstream and snprintf for the same text. Each run formats one
// line of 16 integers (decimal, then hexadecimal with base and width) into a
// fresh stream or buffer. The last benchmark reports the time ratios
// (other / buffer_stream; above 1 means the library is faster).

#include <uvt/ext/buffer_stream>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace {

const long values[16] = {0,           7,  -13, 255,      4096,        -65536,        1234567, 99999999, -2147483648L,
                         4294967295L, 42, -1,  1L << 40, -(1L << 50), 987654321012L, 31};

double ns_per_op[3]; // buffer_stream, ostringstream, snprintf

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

void BM_ratio(benchmark::State& state)
{
    for (auto _ : state) {
    }
    state.counters["ostringstream/buffer_stream"] = ns_per_op[1] / ns_per_op[0];
    state.counters["snprintf/buffer_stream"] = ns_per_op[2] / ns_per_op[0];
}

BENCHMARK(BM_buffer_stream);
BENCHMARK(BM_ostringstream);
BENCHMARK(BM_snprintf);
BENCHMARK(BM_ratio)->Iterations(1);

} // namespace
