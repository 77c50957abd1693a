// Allocation through the process-wide allocator against malloc/free, and
// building, throwing and catching uvt::out_of_range with three arguments
// against std::out_of_range built from a std::string message.

#include "support/ratio.h"

#include <uvt/exception>
#include <uvt/stdexcept>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

constexpr unsigned long sizes[] = {16, 64, 256, 1024};

void alloc_free_uvt(benchmark::State& state)
{
    uvt::allocator& a = uvt::allocator::global_allocator();
    const unsigned long size = state.range(0);
    for (auto _ : state) {
        void* p = a.allocate(size);
        benchmark::DoNotOptimize(p);
        a.deallocate(p);
    }
}

void alloc_free_malloc(benchmark::State& state)
{
    const unsigned long size = state.range(0);
    for (auto _ : state) {
        void* p = std::malloc(size);
        benchmark::DoNotOptimize(p);
        std::free(p);
    }
}

BENCHMARK(alloc_free_uvt)->Name("alloc_free/uvt")->Arg(sizes[0])->Arg(sizes[1])->Arg(sizes[2])->Arg(sizes[3]);
BENCHMARK(alloc_free_malloc)->Name("alloc_free/malloc")->Arg(sizes[0])->Arg(sizes[1])->Arg(sizes[2])->Arg(sizes[3]);

void throw_catch_uvt(benchmark::State& state)
{
    long index = 7;
    for (auto _ : state) {
        try {
            uvt::throwOutOfRange(__FILE__, __LINE__, index, 0, 5);
        } catch (const uvt::out_of_range& e) {
            e.mark_processed();
            benchmark::DoNotOptimize(e.error_no());
        }
    }
}

void throw_catch_std(benchmark::State& state)
{
    long index = 7;
    for (auto _ : state) {
        try {
            throw std::out_of_range("Index " + std::to_string(index) + " out of range [" + std::to_string(0) + ", " +
                                    std::to_string(5) + ")");
        } catch (const std::out_of_range& e) {
            benchmark::DoNotOptimize(e.what());
        }
    }
}

BENCHMARK(throw_catch_uvt)->Name("throw_catch_out_of_range/uvt");
BENCHMARK(throw_catch_std)->Name("throw_catch_out_of_range/std");

} // namespace

UVT_BENCHMARK_MAIN()
