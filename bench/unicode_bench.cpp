// UTF-8 <-> UTF-16 throughput: uvt::UC against glibc's iconv on mixed-script
// text (ASCII, Latin-1, Greek, Cyrillic, CJK and emoji) of a few sizes. Each
// iteration converts the whole text into a buffer large enough for it;
// throughput is counted in UTF-8 bytes both ways. The ratios printed at the
// end are iconv time / library time (above 1: the library is faster).

#include <uvt/impl/unicode>

#include "support/ratio.h"

#include <benchmark/benchmark.h>

#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// About `bytes` bytes of UTF-8 text, cut at a character boundary.
std::string mixedText(std::size_t bytes)
{
    static const char* const pieces[] = {
        "The quick brown fox jumps over the lazy dog. ",
        "Gr\u00f6\u00dfe, caf\u00e9, na\u00efve, d\u00e9j\u00e0 vu. ",
        "\u039a\u03b1\u03bb\u03b7\u03bc\u03ad\u03c1\u03b1 \u03ba\u03cc\u03c3\u03bc\u03b5. ",
        "\u0421\u044a\u0435\u0448\u044c \u0436\u0435 \u0435\u0449\u0451 \u044d\u0442\u0438\u0445 \u0431\u0443\u043b\u043e\u043a. ",
        "\u65e5\u672c\u8a9e\u306e\u30c6\u30ad\u30b9\u30c8\u3068\u4e2d\u6587\u5b57\u7b26\u3002",
        "\U0001F642\U0001F680\U0001F389 ",
    };
    std::string text;
    for (std::size_t i = 0; text.size() < bytes; ++i)
        text += pieces[i % std::size(pieces)];
    return text;
}

struct Texts {
    std::vector<unsigned char> utf8;
    std::vector<unsigned short> utf16;
};

// The text in both forms (UTF-16 by iconv), checked once against the library.
const Texts& texts(std::size_t bytes)
{
    static std::vector<std::pair<std::size_t, Texts>> cache;
    for (const auto& [size, t] : cache)
        if (size == bytes)
            return t;
    const std::string text = mixedText(bytes);
    Texts t{{text.begin(), text.end()}, std::vector<unsigned short>(text.size())};
    iconv_t cd = iconv_open("UTF-16LE", "UTF-8");
    char* in = const_cast<char*>(text.data());
    char* out = reinterpret_cast<char*>(t.utf16.data());
    std::size_t inLeft = text.size(), outLeft = 2 * t.utf16.size();
    if (iconv(cd, &in, &inLeft, &out, &outLeft) == static_cast<std::size_t>(-1)) {
        std::perror("iconv");
        std::abort();
    }
    iconv_close(cd);
    t.utf16.resize(t.utf16.size() - outLeft / 2);

    std::vector<unsigned short> mine(t.utf16.size());
    const unsigned char* stop;
    unsigned short* written;
    if (uvt::UC::convertToUTF16(t.utf8.data(), t.utf8.data() + t.utf8.size(), stop, mine.data(),
                                mine.data() + mine.size(), written) != 0 ||
        mine != t.utf16) {
        std::fprintf(stderr, "library and iconv disagree on the benchmark text\n");
        std::abort();
    }
    cache.emplace_back(bytes, std::move(t));
    return cache.back().second;
}

void utf8ToUtf16Uvt(benchmark::State& state)
{
    const Texts& t = texts(static_cast<std::size_t>(state.range(0)));
    std::vector<unsigned short> out(t.utf8.size());
    for (auto _ : state) {
        const unsigned char* stop;
        unsigned short* written;
        benchmark::DoNotOptimize(uvt::UC::convertToUTF16(t.utf8.data(), t.utf8.data() + t.utf8.size(), stop, out.data(),
                                                         out.data() + out.size(), written));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * t.utf8.size()));
}

void utf16ToUtf8Uvt(benchmark::State& state)
{
    const Texts& t = texts(static_cast<std::size_t>(state.range(0)));
    std::vector<unsigned char> out(2 * t.utf8.size());
    for (auto _ : state) {
        const unsigned short* stop;
        unsigned char* written;
        benchmark::DoNotOptimize(uvt::UC::convertFromUTF16(t.utf16.data(), t.utf16.data() + t.utf16.size(), stop,
                                                           out.data(), out.data() + out.size(), written));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * t.utf8.size()));
}

// One iconv call over the whole buffer per iteration, the descriptor reset
// before each.
void iconvRun(benchmark::State& state, const char* to, const char* from, const void* input, std::size_t inputBytes,
              std::size_t outputBytes, std::size_t utf8Bytes)
{
    iconv_t cd = iconv_open(to, from);
    std::vector<char> out(outputBytes);
    for (auto _ : state) {
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        char* in = static_cast<char*>(const_cast<void*>(input));
        char* o = out.data();
        std::size_t inLeft = inputBytes, outLeft = out.size();
        benchmark::DoNotOptimize(iconv(cd, &in, &inLeft, &o, &outLeft));
        benchmark::ClobberMemory();
    }
    iconv_close(cd);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * utf8Bytes));
}

void utf8ToUtf16Iconv(benchmark::State& state)
{
    const Texts& t = texts(static_cast<std::size_t>(state.range(0)));
    iconvRun(state, "UTF-16LE", "UTF-8", t.utf8.data(), t.utf8.size(), 2 * t.utf8.size(), t.utf8.size());
}

void utf16ToUtf8Iconv(benchmark::State& state)
{
    const Texts& t = texts(static_cast<std::size_t>(state.range(0)));
    iconvRun(state, "UTF-8", "UTF-16LE", t.utf16.data(), 2 * t.utf16.size(), 2 * t.utf8.size(), t.utf8.size());
}

void sizes(benchmark::internal::Benchmark* b)
{
    for (long bytes : {1L << 10, 1L << 15, 1L << 20})
        b->Arg(bytes);
}

BENCHMARK(utf8ToUtf16Uvt)->Name("utf8_to_utf16/uvt")->Apply(sizes);
BENCHMARK(utf8ToUtf16Iconv)->Name("utf8_to_utf16/iconv")->Apply(sizes);
BENCHMARK(utf16ToUtf8Uvt)->Name("utf16_to_utf8/uvt")->Apply(sizes);
BENCHMARK(utf16ToUtf8Iconv)->Name("utf16_to_utf8/iconv")->Apply(sizes);

} // namespace

UVT_BENCHMARK_MAIN();
