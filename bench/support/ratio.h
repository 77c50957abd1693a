// Runs the benchmarks of a program and prints, after the usual table, the
// ratio of each library benchmark against its anchor measured in the same
// run. Pairs are found by name: "<case>/uvt" against "<case>/<anchor>" (for
// example "alloc_free/uvt" and "alloc_free/malloc"); a ratio above 1 means
// the library is faster.
//
// A benchmark program ends with UVT_BENCHMARK_MAIN() instead of linking
// benchmark_main.
#pragma once

namespace uvt_bench {
int run_with_ratios(int argc, char** argv);
}

#define UVT_BENCHMARK_MAIN() \
    int main(int argc, char** argv) { return uvt_bench::run_with_ratios(argc, argv); }
