#include "ratio.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace uvt_bench {

namespace {

// Keeps the time per iteration of every run while printing as usual.
class collecting_reporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median")
                times[run.run_name.str()] = run.GetAdjustedRealTime();
    }
    std::map<std::string, double> times;
};

// "<case>/uvt<rest>" -> ("<case>", "<rest>"); false for other names.
bool split_library_name(const std::string& name, std::string& case_name, std::string& rest)
{
    const auto at = name.find("/uvt");
    if (at == std::string::npos)
        return false;
    case_name = name.substr(0, at);
    rest = name.substr(at + 4);
    return true;
}

void print_ratios(const std::map<std::string, double>& times)
{
    std::printf("\nratios (anchor time / library time; above 1: the library is faster)\n");
    for (const auto& [name, uvt_time] : times) {
        std::string case_name, rest;
        if (!split_library_name(name, case_name, rest))
            continue;
        for (const auto& [other, anchor_time] : times) {
            const std::string prefix = case_name + "/";
            if (other == name || other.compare(0, prefix.size(), prefix) != 0)
                continue;
            if (other.size() < rest.size() || other.compare(other.size() - rest.size(), rest.size(), rest) != 0)
                continue;
            const std::string anchor = other.substr(prefix.size(), other.size() - prefix.size() - rest.size());
            if (anchor.find('/') != std::string::npos || anchor == "uvt")
                continue;
            std::printf("  %-40s vs %-14s %6.2f\n", (case_name + rest).c_str(), anchor.c_str(), anchor_time / uvt_time);
        }
    }
}

} // namespace

int run_with_ratios(int argc, char** argv)
{
    // Unless told otherwise, repeat every benchmark with the repetitions of
    // all benchmarks interleaved and compare medians: the machine's load then
    // hits library and anchor alike.
    std::vector<char*> args(argv, argv + argc);
    bool repetitions_given = false;
    for (char* arg : args)
        repetitions_given |= std::string(arg).rfind("--benchmark_repetitions", 0) == 0;
    static char repetitions[] = "--benchmark_repetitions=7";
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    static char aggregates[] = "--benchmark_report_aggregates_only=true";
    if (!repetitions_given)
        args.insert(args.begin() + 1, {repetitions, interleave, aggregates});
    argc = int(args.size());
    argv = args.data();
    benchmark::Initialize(&argc, argv);
    collecting_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    print_ratios(reporter.times);
    benchmark::Shutdown();
    return 0;
}

} // namespace uvt_bench
