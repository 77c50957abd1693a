// The library's string against std::string: copying a 1000-character
// string, building a five-piece concatenation, appending characters one by
// one up to 10000, and finding a word near the end of a 1 MB text. The
// library's strings use the process-wide allocator (malloc without a host).

#include "support/ratio.h"

#include <uvt/string>

#include <benchmark/benchmark.h>

#include <string>

namespace {

uvt::allocator& library_allocator() { return uvt::allocator::global_allocator(); }

// --- copy of a 1000-character string ---

void copy_uvt(benchmark::State& state)
{
    const uvt::string source(std::string(1000, 'c').c_str(), library_allocator());
    for (auto _ : state) {
        uvt::string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
}

void copy_std(benchmark::State& state)
{
    const std::string source(1000, 'c');
    for (auto _ : state) {
        std::string copy(source);
        benchmark::DoNotOptimize(copy.data());
    }
}

BENCHMARK(copy_uvt)->Name("copy_1000/uvt");
BENCHMARK(copy_std)->Name("copy_1000/std");

// --- five pieces joined ---

const char* const pieces[] = {"customer-record:", "0123456789abcdef", "; region=", "north-east-2", "; ok"};

void concatenate_uvt(benchmark::State& state)
{
    uvt::allocator& a = library_allocator();
    const uvt::string first(pieces[0], a), second(pieces[1], a), fourth(pieces[3], a);
    for (auto _ : state) {
        const uvt::string joined(first + second + pieces[2] + fourth + pieces[4], a);
        benchmark::DoNotOptimize(joined.data());
    }
}

void concatenate_std(benchmark::State& state)
{
    const std::string first(pieces[0]), second(pieces[1]), fourth(pieces[3]);
    for (auto _ : state) {
        const std::string joined = first + second + pieces[2] + fourth + pieces[4];
        benchmark::DoNotOptimize(joined.data());
    }
}

BENCHMARK(concatenate_uvt)->Name("concatenate_5/uvt");
BENCHMARK(concatenate_std)->Name("concatenate_5/std");

// --- 10000 characters appended one by one ---

void push_back_uvt(benchmark::State& state)
{
    for (auto _ : state) {
        uvt::string s(library_allocator());
        for (int i = 0; i < 10000; ++i)
            s.push_back(static_cast<char>('a' + i % 26));
        benchmark::DoNotOptimize(s.data());
    }
}

void push_back_std(benchmark::State& state)
{
    for (auto _ : state) {
        std::string s;
        for (int i = 0; i < 10000; ++i)
            s.push_back(static_cast<char>('a' + i % 26));
        benchmark::DoNotOptimize(s.data());
    }
}

BENCHMARK(push_back_uvt)->Name("push_back_10000/uvt");
BENCHMARK(push_back_std)->Name("push_back_10000/std");

// --- find in 1 MB ---

// Text made of short words, with the needle's first letters common in it.
std::string megabyte_text()
{
    std::string text;
    const char* const words[] = {"needle", "need ", "nee ", "haystack ", "needless ", "n "};
    for (unsigned i = 0; text.size() < (1u << 20); i = i * 1103515245u + 12345u)
        text += words[(i >> 16) % 6];
    text += "needle-in-the-haystack";
    return text;
}

const char* const needle = "needle-in-the";

void find_uvt(benchmark::State& state)
{
    const uvt::string text(megabyte_text().c_str(), library_allocator());
    for (auto _ : state)
        benchmark::DoNotOptimize(text.find(needle));
}

void find_std(benchmark::State& state)
{
    const std::string text = megabyte_text();
    for (auto _ : state)
        benchmark::DoNotOptimize(text.find(needle));
}

BENCHMARK(find_uvt)->Name("find_1MB/uvt");
BENCHMARK(find_std)->Name("find_1MB/std");

} // namespace

UVT_BENCHMARK_MAIN()
