// File streams on 100 MB of text lines (20 to 139 characters):
//   - writing them, one write call each, through uvt::ofstream, through
//     std::ofstream and through write(2) from a 64 KiB buffer filled by
//     hand, the floor any buffered stream pays;
//   - reading them back line by line with uvt::getline from a uvt::ifstream
//     into a uvt::string, with std::getline from a std::ifstream into a
//     std::string, and with read(2) of 64 KiB blocks split by memchr (each
//     line copied out, as getline does).
// The files live under /tmp (in the page cache) and are removed at exit.

#include "support/ratio.h"

#include <uvt/fstream>
#include <uvt/string>

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t total_bytes = 100u << 20;

struct text_file {
    text_file() : path("/tmp/uvt_fstream_bench_" + std::to_string(::getpid()) + ".txt"), input_path(path + ".in")
    {
        std::string line;
        std::ofstream input(input_path, std::ios::binary);
        for (std::size_t size = 0; size < total_bytes; size += line.size()) {
            line.assign(20 + lines.size() * 7 % 120, static_cast<char>('a' + lines.size() % 26));
            line.back() = '\n';
            lines.push_back(line);
            input << line;
        }
    }
    ~text_file()
    {
        ::unlink(path.c_str());
        ::unlink(input_path.c_str());
    }

    std::string path;       // written by the write benchmarks
    std::string input_path; // read by the getline benchmarks
    std::vector<std::string> lines;
};

const text_file& text()
{
    static const text_file file;
    return file;
}

template <class Body>
void run(benchmark::State& state, Body body)
{
    const text_file& t = text();
    for (auto _ : state)
        body(t);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * total_bytes));
}

void write_uvt(benchmark::State& state)
{
    run(state, [](const text_file& t) {
        uvt::ofstream os(t.path.c_str(), uvt::ios_base::out, uvt::ios_base::badbit, uvt::allocator::global_allocator());
        for (const std::string& line : t.lines)
            os.write(line.data(), static_cast<uvt::streamsize>(line.size()));
    });
}

void write_std(benchmark::State& state)
{
    run(state, [](const text_file& t) {
        std::ofstream os(t.path, std::ios::out | std::ios::binary);
        for (const std::string& line : t.lines)
            os.write(line.data(), static_cast<std::streamsize>(line.size()));
    });
}

void write_syscall(benchmark::State& state)
{
    run(state, [](const text_file& t) {
        const int fd = ::open(t.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        static char buffer[64 * 1024];
        std::size_t used = 0;
        auto flush = [&] {
            benchmark::DoNotOptimize(::write(fd, buffer, used));
            used = 0;
        };
        for (const std::string& line : t.lines) {
            if (used + line.size() > sizeof buffer)
                flush();
            std::memcpy(buffer + used, line.data(), line.size());
            used += line.size();
        }
        flush();
        ::close(fd);
    });
}

// Each reader checks that it saw every line.
void check_lines(benchmark::State& state, const text_file& t, std::size_t count)
{
    if (count != t.lines.size())
        state.SkipWithError("wrong line count");
}

void getline_uvt(benchmark::State& state)
{
    run(state, [&](const text_file& t) {
        uvt::ifstream is(t.input_path.c_str(), uvt::ios_base::in, uvt::ios_base::badbit,
                         uvt::allocator::global_allocator());
        uvt::string line(uvt::allocator::global_allocator());
        std::size_t count = 0;
        while (uvt::getline(is, line))
            ++count;
        check_lines(state, t, count);
    });
}

void getline_std(benchmark::State& state)
{
    run(state, [&](const text_file& t) {
        std::ifstream is(t.input_path, std::ios::in | std::ios::binary);
        std::string line;
        std::size_t count = 0;
        while (std::getline(is, line))
            ++count;
        check_lines(state, t, count);
    });
}

void getline_syscall(benchmark::State& state)
{
    run(state, [&](const text_file& t) {
        const int fd = ::open(t.input_path.c_str(), O_RDONLY);
        static char block[64 * 1024];
        char line[4096];
        std::size_t count = 0, kept = 0;
        for (ssize_t got; (got = ::read(fd, block, sizeof block)) > 0;) {
            const char* next = block;
            const char* end = block + got;
            while (const char* newline = static_cast<const char*>(std::memchr(next, '\n', end - next))) {
                std::memcpy(line + kept, next, newline - next);
                benchmark::DoNotOptimize(line);
                kept = 0;
                ++count;
                next = newline + 1;
            }
            std::memcpy(line + kept, next, end - next);
            kept += end - next;
        }
        ::close(fd);
        check_lines(state, t, count);
    });
}

BENCHMARK(write_uvt)->Name("write_100MB/uvt")->Unit(benchmark::kMillisecond);
BENCHMARK(write_std)->Name("write_100MB/std_ofstream")->Unit(benchmark::kMillisecond);
BENCHMARK(write_syscall)->Name("write_100MB/write2")->Unit(benchmark::kMillisecond);
BENCHMARK(getline_uvt)->Name("getline_100MB/uvt")->Unit(benchmark::kMillisecond);
BENCHMARK(getline_std)->Name("getline_100MB/std_getline")->Unit(benchmark::kMillisecond);
BENCHMARK(getline_syscall)->Name("getline_100MB/read2_memchr")->Unit(benchmark::kMillisecond);

} // namespace

UVT_BENCHMARK_MAIN();
