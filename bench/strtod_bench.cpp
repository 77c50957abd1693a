// Decimal text to double: uvtStringToDoubleT against glibc's strtod,
// double-conversion's StringToDoubleConverter and fast_float's from_chars
// (each where installed; without one only its pairs are missing).
//
// Three sets of numbers, each parsed whole in every iteration:
//   canada  the coordinates of shared/corpus/numbers/canada.txt,
//   mesh    the values of shared/corpus/numbers/mesh.txt (one per line, read
//           at run time from beside the source tree, never copied),
//   random  a million texts of 1 to 17 random significant digits, the point
//           at a random place, exponent between -300 and 300.
// Counters: time per number, and the share of results bit-identical to glibc's.

#include "support/ratio.h"

#include <uvt/impl/strtod>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#ifdef UVT_BENCH_HAVE_DOUBLE_CONVERSION
#include <double-conversion/double-conversion.h>
#endif
#ifdef UVT_BENCH_HAVE_FAST_FLOAT
#include <fast_float/fast_float.h>
#endif

namespace {

// Zero-terminated texts stored back to back.
struct number_set {
    std::vector<char> chars;
    std::vector<std::size_t> starts;

    void add(const std::string& text)
    {
        starts.push_back(chars.size());
        chars.insert(chars.end(), text.begin(), text.end());
        chars.push_back('\0');
    }
    std::size_t size() const { return starts.size(); }
    const char* text(std::size_t i) const { return chars.data() + starts[i]; }
    std::size_t length(std::size_t i) const
    {
        return (i + 1 < starts.size() ? starts[i + 1] : chars.size()) - starts[i] - 1;
    }
};

number_set read_corpus(const char* name)
{
    number_set set;
    std::ifstream in(std::string(UVT_BENCH_SOURCE_DIR) + "/../shared/corpus/numbers/" + name);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            set.add(line);
    return set;
}

number_set random_texts()
{
    number_set set;
    std::mt19937_64 rng(2024);
    for (int i = 0; i < 1000000; ++i) {
        const int digits = 1 + int(rng() % 17);
        std::string text(1, char('1' + rng() % 9));
        for (int k = 1; k < digits; ++k)
            text += char('0' + rng() % 10);
        text.insert(rng() % (digits + 1), ".");
        set.add(text + "e" + std::to_string(int(rng() % 601) - 300));
    }
    return set;
}

const number_set& numbers(const std::string& name)
{
    static const number_set canada = read_corpus("canada.txt");
    static const number_set mesh = read_corpus("mesh.txt");
    static const number_set random = random_texts();
    return name == "canada" ? canada : name == "mesh" ? mesh : random;
}

double parse_uvt(const number_set& set, std::size_t i)
{
    return uvt::uvtStringToDoubleT<double, uvt::ieee754_double, 12, 1023, char>(set.text(i), nullptr);
}

double parse_glibc(const number_set& set, std::size_t i) { return std::strtod(set.text(i), nullptr); }

#ifdef UVT_BENCH_HAVE_DOUBLE_CONVERSION
double parse_double_conversion(const number_set& set, std::size_t i)
{
    static const double_conversion::StringToDoubleConverter
        converter(double_conversion::StringToDoubleConverter::NO_FLAGS, 0.0, 0.0, "inf", "nan");
    int processed;
    return converter.StringToDouble(set.text(i), int(set.length(i)), &processed);
}
#endif

#ifdef UVT_BENCH_HAVE_FAST_FLOAT
double parse_fast_float(const number_set& set, std::size_t i)
{
    double value = 0;
    fast_float::from_chars(set.text(i), set.text(i) + set.length(i), value);
    return value;
}
#endif

using parser = double (*)(const number_set&, std::size_t);

double identical_share(const number_set& set, parser parse)
{
    std::size_t identical = 0;
    for (std::size_t i = 0; i < set.size(); ++i) {
        const double ours = parse(set, i);
        const double reference = parse_glibc(set, i);
        identical += std::memcmp(&ours, &reference, sizeof ours) == 0;
    }
    return double(identical) / double(set.size());
}

void run(benchmark::State& state, const std::string& set_name, parser parse)
{
    const number_set& set = numbers(set_name);
    if (set.size() == 0) {
        state.SkipWithError("corpus not found beside the source tree");
        return;
    }
    for (auto _ : state)
        for (std::size_t i = 0; i < set.size(); ++i)
            benchmark::DoNotOptimize(parse(set, i));
    // Inverted rate of numbers per second, printed as "42.5ns".
    state.counters["time_per_number"] =
        benchmark::Counter(double(set.size()),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["identical"] = identical_share(set, parse);
}

void register_set(const std::string& set)
{
    benchmark::RegisterBenchmark((set + "/uvt").c_str(), run, set, parse_uvt)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((set + "/glibc").c_str(), run, set, parse_glibc)->Unit(benchmark::kMillisecond);
#ifdef UVT_BENCH_HAVE_DOUBLE_CONVERSION
    benchmark::RegisterBenchmark((set + "/double_conversion").c_str(), run, set, parse_double_conversion)
        ->Unit(benchmark::kMillisecond);
#endif
#ifdef UVT_BENCH_HAVE_FAST_FLOAT
    benchmark::RegisterBenchmark((set + "/fast_float").c_str(), run, set, parse_fast_float)
        ->Unit(benchmark::kMillisecond);
#endif
}

const int registered = [] {
    for (const char* set : {"canada", "mesh", "random"})
        register_set(set);
    return 0;
}();

} // namespace

UVT_BENCHMARK_MAIN()
