// Formatted output into memory: N integers and N doubles, each followed by
// a blank, written into a fresh uvt::ostringstream, std::ostringstream and
// {fmt} memory_buffer (fmt::format_to) and, with snprintf, into a buffer
// allocated for the whole text. Integers are signed 64-bit values of 1 to
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

// Each writer formats `items` values and, when `text` is given, copies the
// result there (outside the timed loop).
template <class T>
using writer = void (*)(const std::vector<T>&, std::size_t items, std::string* text);

template <class T>
void write_uvt(const std::vector<T>& table, std::size_t items, std::string* text)
{
    uvt::ostringstream os(uvt::allocator::global_allocator());
    for (std::size_t i = 0; i < items; ++i)
        os << value(table, i) << ' ';
    benchmark::DoNotOptimize(os.data());
    if (text)
        text->assign(os.data(), os.size());
}

template <class T>
void write_std(const std::vector<T>& table, std::size_t items, std::string* text)
{
    std::ostringstream os;
    for (std::size_t i = 0; i < items; ++i)
        os << value(table, i) << ' ';
    benchmark::DoNotOptimize(os.tellp());
    if (text)
        *text = os.str();
}

template <class T>
void write_snprintf(const std::vector<T>& table, std::size_t items, std::string* text)
{
    constexpr std::size_t longest = 32;
    const std::unique_ptr<char[]> buffer(new char[items * longest]);
    char* p = buffer.get();
    for (std::size_t i = 0; i < items; ++i) {
        if constexpr (std::is_same_v<T, long>)
            p += std::snprintf(p, longest, "%ld ", value(table, i));
        else
            p += std::snprintf(p, longest, "%g ", value(table, i));
    }
    benchmark::DoNotOptimize(buffer.get());
    if (text)
        text->assign(buffer.get(), p);
}

#if UVT_BENCH_HAVE_FMT
template <class T>
void write_fmt(const std::vector<T>& table, std::size_t items, std::string* text)
{
    fmt::memory_buffer buffer;
    for (std::size_t i = 0; i < items; ++i) {
        if constexpr (std::is_same_v<T, long>)
            fmt::format_to(std::back_inserter(buffer), "{} ", value(table, i));
        else
            fmt::format_to(std::back_inserter(buffer), "{:g} ", value(table, i));
    }
    benchmark::DoNotOptimize(buffer.data());
    if (text)
        *text = fmt::to_string(buffer);
}
#endif

// Checks the writer's text against the library's once, then times it.
template <class T>
void run(benchmark::State& state, const std::vector<T>& table, writer<T> write, const std::string& expected)
{
    const auto items = static_cast<std::size_t>(state.range(0));
    std::string text;
    write(table, items, &text);
    if (text != expected)
        state.SkipWithError("a different text than the library's");
    for (auto _ : state)
        write(table, items, nullptr);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * items));
}

// Registers "<kind>/<writer>/<items>" for every writer.
template <class T>
void register_writers(const char* kind, const std::vector<T>& table, long items)
{
    const std::pair<const char*, writer<T>> writers[] = {
        {"uvt", write_uvt<T>},
        {"std_ostringstream", write_std<T>},
        {"snprintf", write_snprintf<T>},
#if UVT_BENCH_HAVE_FMT
        {"fmt", write_fmt<T>},
#endif
    };
    auto expected = std::make_shared<std::string>();  // the library's text, made on first use
    for (const auto& [name, write] : writers) {
        auto body = [&table, write = write, expected](benchmark::State& state) {
            if (expected->empty())
                write_uvt(table, static_cast<std::size_t>(state.range(0)), expected.get());
            run(state, table, write, *expected);
        };
        benchmark::RegisterBenchmark((std::string(kind) + "/" + name).c_str(), body)
            ->Arg(items)
            ->Unit(benchmark::kMillisecond);
    }
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
