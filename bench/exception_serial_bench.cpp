// Exception serialisation: writing a chain of three exceptions (one message
// each, with arguments and stack texts) to bytes, rebuilding it from them,
// and the round trip of both, in ns per operation. There is no established
// facility for the same job; the anchor of the round trip is printing the
// chain in its long layout, which expands the same messages.

#include <uvt/exception>
#include <uvt/sstream>
#include <uvt/stdexcept>
#include <uvt/strstream>

#include "support/ratio.h"

#include <benchmark/benchmark.h>

namespace {

uvt::allocator& a = uvt::allocator::global_allocator();

uvt::runtime_error three_message_chain()
{
    uvt::runtime_error head(__FILE__, __LINE__, "request $ID$ failed");
    head << uvt::message_argument<long>("ID", 4711);
    uvt::length_error length(__FILE__, __LINE__, "buffer of $N$ bytes too small");
    length << uvt::message_argument<int>("N", 64);
    head << length << uvt::out_of_range(__FILE__, __LINE__, 7, 0, 5);
    return head;
}

void BM_serialize(benchmark::State& state)
{
    const uvt::runtime_error chain = three_message_chain();
    for (auto _ : state) {
        uvt::ostrstream os(a);
        chain.serialize(os, false);
        benchmark::DoNotOptimize(os.c_str());
    }
    chain.mark_processed();
}

void BM_deserialize(benchmark::State& state)
{
    const uvt::runtime_error chain = three_message_chain();
    uvt::ostrstream bytes(a);
    chain.serialize(bytes, false);
    chain.mark_processed();
    for (auto _ : state) {
        uvt::istringstream is(bytes.c_str(), bytes.size(), a);
        const uvt::auto_ptr<uvt::exception> e = uvt::exception::deserialize(is, a);
        e->mark_processed();
    }
}

void BM_round_trip(benchmark::State& state)
{
    const uvt::runtime_error chain = three_message_chain();
    for (auto _ : state) {
        uvt::ostrstream os(a);
        chain.serialize(os, false);
        uvt::istringstream is(os.c_str(), os.size(), a);
        const uvt::auto_ptr<uvt::exception> e = uvt::exception::deserialize(is, a);
        e->mark_processed();
    }
    chain.mark_processed();
}

void BM_print_long_layout(benchmark::State& state)
{
    const uvt::runtime_error chain = three_message_chain();
    for (auto _ : state) {
        uvt::ostrstream os(a);
        chain.print(os);
        benchmark::DoNotOptimize(os.c_str());
    }
}

BENCHMARK(BM_serialize)->Name("serialize/uvt");
BENCHMARK(BM_deserialize)->Name("deserialize/uvt");
BENCHMARK(BM_round_trip)->Name("round_trip/uvt");
BENCHMARK(BM_print_long_layout)->Name("round_trip/print");

} // namespace

UVT_BENCHMARK_MAIN()
