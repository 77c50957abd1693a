// Formatted output into memory: N integers and N doubles, each followed by
// a blank, written into a uvt::ostringstream, a std::ostringstream and a
// {fmt} memory_buffer (fmt::format_to), and with snprintf into a buffer
// large enough for the whole text. Integers are signed 64-bit values of 1 to
// 19 digits; doubles have mixed magnitudes (1e-10 to 1e16) in the default
// format ("%g", "{:g}"). The values cycle through a table of 4096, too many
// for a predictor to learn their lengths. A writer whose text differs from
// the library's fails its benchmark.
//
// N is the --items argument (default 100000, a quick run). The figures of
// the README are from ten million items:
//   build/plain/bench/ios_bench --items=10000000
// Without {fmt} (Debian libfmt-dev) only its rows are missing.

#include "support/ratio.h"

#include <uvt/sstream>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#if UVT_BENCH_HAVE_FMT
#include <fmt/format.h>
#endif

namespace {

constexpr std::size_t table_size = 4096;

const std::vector<long>& integers()
{
    static const std::vector<long> values = [] {
        std::mt19937_64 rng(3);
        std::vector<long> v(table_size);
        for (long& x : v) {
            const long magnitude = static_cast<long>(rng() >> 1) / static_cast<long>(std::pow(10.0, rng() % 19));
            x = rng() % 2 ? magnitude : -magnitude;
        }
        return v;
    }();
    return values;
}

const std::vector<double>& doubles()
{
    static const std::vector<double> values = [] {
        std::mt19937_64 rng(1);
        std::vector<double> v(table_size);
        for (double& x : v)
            x = std::uniform_real_distribution<double>(-1e6, 1e6)(rng) * std::pow(10.0, int(rng() % 20) - 10);
        return v;
    }();
    return values;
}

template <class T>
T value(const std::vector<T>& table, std::size_t i)
{
    return table[i % table_size];
}

// A writer keeps its stream or buffer from run to run: each run rewinds it
// and writes the items again. After the first run, which is not timed,
// the memory has grown to its size, and only formatting is measured.
struct uvt_writer {
    uvt::ostringstream os{uvt::allocator::global_allocator()};

    template <class T>
    void write(const std::vector<T>& table, std::size_t items)
    {
        os.seekp(0);
        for (std::size_t i = 0; i < items; ++i)
            os << value(table, i) << ' ';
        benchmark::DoNotOptimize(os.data());
    }
    std::string text() const { return std::string(os.data(), os.size()); }
};

struct std_writer {
    std::ostringstream os;

    template <class T>
    void write(const std::vector<T>& table, std::size_t items)
    {
        os.seekp(0);
        for (std::size_t i = 0; i < items; ++i)
            os << value(table, i) << ' ';
        benchmark::DoNotOptimize(os.tellp());
    }
    std::string text() const { return os.str(); }
};

struct snprintf_writer {
    static constexpr std::size_t longest = 32;
    std::vector<char> buffer;
    std::size_t used = 0;

    template <class T>
    void write(const std::vector<T>& table, std::size_t items)
    {
        buffer.resize(items * longest);
        char* p = buffer.data();
        for (std::size_t i = 0; i < items; ++i) {
            if constexpr (std::is_same_v<T, long>)
                p += std::snprintf(p, longest, "%ld ", value(table, i));
            else
                p += std::snprintf(p, longest, "%g ", value(table, i));
        }
        used = static_cast<std::size_t>(p - buffer.data());
        benchmark::DoNotOptimize(buffer.data());
    }
    std::string text() const { return std::string(buffer.data(), used); }
};

#if UVT_BENCH_HAVE_FMT
struct fmt_writer {
    fmt::memory_buffer buffer;

    template <class T>
    void write(const std::vector<T>& table, std::size_t items)
    {
        buffer.clear();
        for (std::size_t i = 0; i < items; ++i) {
            if constexpr (std::is_same_v<T, long>)
                fmt::format_to(std::back_inserter(buffer), "{} ", value(table, i));
            else
                fmt::format_to(std::back_inserter(buffer), "{:g} ", value(table, i));
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    std::string text() const { return fmt::to_string(buffer); }
};
#endif

// Registers "<kind>/<name>/<items>": one untimed run whose text must be
// `expected` (the library's, made by the first benchmark that runs), then
// the timed runs.
template <class Writer, class T>
void register_writer(const char* kind, const char* name, const std::vector<T>& table, long items,
                     const std::shared_ptr<std::string>& expected)
{
    auto body = [&table, expected](benchmark::State& state) {
        const auto n = static_cast<std::size_t>(state.range(0));
        if (expected->empty()) {
            uvt_writer reference;
            reference.write(table, n);
            *expected = reference.text();
        }
        Writer writer;
        writer.write(table, n);
        if (writer.text() != *expected)
            state.SkipWithError("a different text than the library's");
        for (auto _ : state)
            writer.write(table, n);
        state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
    };
    benchmark::RegisterBenchmark((std::string(kind) + "/" + name).c_str(), body)
        ->Arg(items)
        ->Unit(benchmark::kMillisecond);
}

template <class T>
void register_writers(const char* kind, const std::vector<T>& table, long items)
{
    const auto expected = std::make_shared<std::string>();
    register_writer<uvt_writer>(kind, "uvt", table, items, expected);
    register_writer<std_writer>(kind, "std_ostringstream", table, items, expected);
    register_writer<snprintf_writer>(kind, "snprintf", table, items, expected);
#if UVT_BENCH_HAVE_FMT
    register_writer<fmt_writer>(kind, "fmt", table, items, expected);
#endif
}

// Takes --items=N out of the arguments; 100000 without it.
long take_items_argument(int& argc, char** argv)
{
    long items = 100000;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--items=", 8) == 0)
            items = std::strtol(argv[i] + 8, nullptr, 10);
        else
            argv[kept++] = argv[i];
    }
    argc = kept;
    return items > 0 ? items : 100000;
}

} // namespace

int main(int argc, char** argv)
{
    const long items = take_items_argument(argc, argv);
    register_writers("integers", integers(), items);
    register_writers("doubles", doubles(), items);
    return uvt_bench::run_with_ratios(argc, argv);
}
