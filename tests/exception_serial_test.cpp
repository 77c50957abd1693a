// Exceptions written to bytes and rebuilt: every class through its creator,
// chains, received stack texts, the type registry, and the reader's answer
// to bad, truncated and oversized data and to failing allocations.
#include "support/exception_samples.h"
#include "support/string_ostream.h"
#include "support/test_host.h"
#include "support/type_header.h"

#include <uvt/exception>
#include <uvt/sstream>
#include <uvt/strstream>

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

using uvt_test::words;

uvt::allocator& global() { return uvt::allocator::global_allocator(); }

std::string serialized(const uvt::exception& e, bool no_stack)
{
    uvt::ostrstream os(global());
    e.serialize(os, no_stack);
    return {os.c_str(), os.size()};
}

uvt::auto_ptr<uvt::exception> rebuilt(const std::string& bytes, uvt::allocator& a = global())
{
    uvt::istringstream is(bytes.data(), bytes.size(), a);
    uvt::auto_ptr<uvt::exception> e = uvt::exception::deserialize(is, a);
    e->mark_processed();
    return e;
}

std::string printed(const uvt::exception& e, bool no_stack)
{
    uvt_test::string_ostream os;
    e.print_default(os, no_stack, false);
    return os.str();
}

std::string bytes_of(std::initializer_list<std::uint32_t> ws, const std::string& tail = "")
{
    const auto b = words(ws);
    return std::string(b.begin(), b.end()) + tail;
}

// A one-message payload in the serialised form (file "f.cpp", line 10).
std::string message(std::uint32_t error_no, const std::string& text)
{
    return bytes_of({0xADDDEED2, error_no, 0, 10, 5}, "f.cpp") + bytes_of({std::uint32_t(text.size())}, text);
}

struct failure {
    std::string file;
    int line = 0;
    std::string text;  // short layout
};

failure deserialization_failure(const std::string& bytes, uvt::allocator& a = global())
{
    try {
        rebuilt(bytes, a);
    } catch (const uvt::runtime_error& e) {
        uvt_test::string_ostream os;
        e.print_short(os, true, false);
        return {e.file().get(), e.line(), os.str()};
    }
    ADD_FAILURE() << "no runtime_error";
    return {};
}

bool ends_with(const std::string& s, const std::string& end)
{
    return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

TEST(ExceptionSerial, EveryClassRoundTripsThroughItsRegisteredCreator)
{
    for (const uvt_test::exception_sample& s : uvt_test::exception_samples()) {
        SCOPED_TRACE(s.name);
        EXPECT_EQ(uvt::exception_by_type(s.type_number) != nullptr, s.type_number != 0);
        const std::string bytes = serialized(*s.object, false);
        EXPECT_EQ(bytes.substr(0, 4), bytes_of({0xFACE0000u + s.type_number}));
        const auto copy = rebuilt(bytes);
        EXPECT_TRUE(s.same_class(*copy)) << typeid(*copy).name();
        // Header (regex code, failure type), numbers, lines, files, texts.
        EXPECT_EQ(serialized(*copy, true), serialized(*s.object, true));
        EXPECT_EQ(printed(*copy, true), printed(*s.object, true));
        s.object->mark_processed();
    }
    const uvt::regex_error brace("f", 1, uvt::regex_constants::error_brace, "");
    brace.mark_processed();
    const auto regex = rebuilt(serialized(brace, true));
    EXPECT_EQ(dynamic_cast<uvt::regex_error&>(*regex).code(), uvt::regex_constants::error_brace);
    uvt::bad_numa_alloc numa;
    numa.set_allocation_failure_type(uvt::TIME_OUT);
    const auto numa_copy = rebuilt(serialized(numa, true));
    EXPECT_EQ(dynamic_cast<uvt::bad_alloc&>(*numa_copy).get_allocation_failure_type(), uvt::UNKNOWN);
}

TEST(ExceptionSerial, ChainsKeepEveryExceptionAndMessage)
{
    const uvt::runtime_error chain = uvt_test::exception_chain(4);
    const auto copy = rebuilt(serialized(chain, true));
    EXPECT_EQ(serialized(*copy, true), serialized(chain, true));
    EXPECT_EQ(printed(*copy, true), printed(chain, true));
    int count = 0;
    for (uvt::exception e = *copy; e.data(); e = e.get_next())
        ++count;
    EXPECT_EQ(count, 4);
}

TEST(ExceptionSerial, ReceivedExceptionsPrintTheirStackText)
{
    const uvt::runtime_error chain = uvt_test::exception_chain(2);
    std::string expected = printed(chain, false);
    for (std::size_t at = 0; (at = expected.find("frames>\n", at)) != std::string::npos; at += 9)
        expected.insert(at + 8, "\n");  // the received text is written with its own line end
    const auto copy = rebuilt(serialized(chain, false));
    EXPECT_EQ(printed(*copy, false), expected);
    EXPECT_EQ(copy->stack_trace(nullptr), 0);
}

TEST(ExceptionSerial, TypeNumberChoosesTheClass)
{
    const std::string payload = message(1000003, "Index 7 out of range [0, 5)") + bytes_of({0, 0xADDEDCAB});
    const struct {
        std::uint32_t tag;
        const std::type_info& type;
    } rows[] = {{0xFACE0009, typeid(uvt::out_of_range)}, {0xFACE001B, typeid(uvt::exception)}};
    for (const auto& r : rows) {
        const auto e = rebuilt(bytes_of({r.tag, 0xFACADE01}) + payload);
        EXPECT_EQ(typeid(*e), r.type);
        EXPECT_EQ(e->error_no(), 1000003);
        EXPECT_EQ(e->line(), 10);
        EXPECT_EQ(printed(*e, true), "exception  1: no.1000003  (f.cpp:10)\n    Index 7 out of range [0, 5)\n");
    }
}

TEST(ExceptionSerial, ExceptionsWithoutPayload)
{
    uvt_test::counting_allocator refusing;
    refusing.fail_at(1, true);
    const uvt::exception lost(refusing, "lost.cpp", 5, uvt__ERR_UVT_LOGIC(), nullptr);
    const auto imported = rebuilt(serialized(lost, false));
    EXPECT_EQ(printed(*imported, true),
              "exception  1: no.1000014  (lost.cpp:5)\n    Bad allocation in exception object (imported)\n");
    const auto empty = rebuilt(serialized(uvt::exception(), false));
    EXPECT_EQ(empty->data(), nullptr);
    EXPECT_EQ(empty->error_no(), 0);
}

TEST(ExceptionSerial, RegistryAcceptsTheSameCreatorAgainOnly)
{
    uvt::register_exception_type(9, &uvt::out_of_range::creator);
    EXPECT_EQ(uvt::exception_by_type(9), &uvt::out_of_range::creator);
    EXPECT_TRUE(uvt::out_of_range::registered);
    EXPECT_DEATH(uvt::register_exception_type(9, &uvt::logic_error::creator),
                 "error_registry.cpp:42 Exception type is already registered");
}

TEST(ExceptionSerial, BadDataIsReportedWithItsLineAndWords)
{
    const std::string header = bytes_of({0xFACE0000, 0xFACADE01});
    const std::string one = message(1, "m");
    const std::string pattern = "exception 1000013: Runtime error\nexception 1000013: Exception deserialization. ";
    const struct {
        int source_line;
        std::string bytes;
        int line;
        std::string text;
    } rows[] = {
        {__LINE__, bytes_of({0x12345678}), 1634, "Bad data pattern: 305419896, expected: 4207804416"},
        {__LINE__, bytes_of({0xFACE0000, 0xFACADE02}), 1615, "Bad data pattern: 4207599106, expected: 4207599105"},
        {__LINE__, bytes_of({0xFACE0009, 7}), 1615, "Bad data pattern: 7, expected: 4207599105"},
        {__LINE__, bytes_of({0xFACE0014, 3, 0}), 1615, "Bad data pattern: 0, expected: 4207599105"},
        {__LINE__, header + bytes_of({0x11111111}), 1600, "Bad data pattern: 286331153, expected: 2917002962"},
        {__LINE__, header + one + bytes_of({0, 0x22222222}), 1595, "Bad data pattern: 572662306, expected: 2917063851"},
        {__LINE__, header + one + bytes_of({0x80000000}), 1645, "Stack text too long: 2147483648, limit: 2147483647"},
        {__LINE__, header + one.substr(0, one.size() - 1), 1640, "Stream ended early: 0 of 1 bytes"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.source_line);
        const failure f = deserialization_failure(r.bytes);
        EXPECT_TRUE(ends_with(f.file, "exception.cpp")) << f.file;
        EXPECT_EQ(f.line, r.line);
        EXPECT_EQ(f.text, pattern + r.text + "\n");
    }
    const failure marker = deserialization_failure(bytes_of({0xFACE0001, 0xFACADE35}));
    EXPECT_EQ(marker.file, "uvt/base/impl/new");
    EXPECT_EQ(marker.line, 112);
    EXPECT_EQ(marker.text, "exception 1000027: Memory corruption: \"4207599157\", expected: \"4207599156\"\n");
}

TEST(ExceptionSerial, TruncationAtEveryByteEndsTheStreamCleanly)
{
    auto& host = uvt_test::test_host::instance().exceptions;
    const std::string bytes = serialized(uvt_test::exception_chain(3), false);
    const unsigned long live = host.live_blocks();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        SCOPED_TRACE(size);
        uvt_test::counting_allocator objects;
        EXPECT_EQ(deserialization_failure(bytes.substr(0, size), objects).line, 1640);
        EXPECT_EQ(objects.live_blocks(), 0u);
        EXPECT_EQ(host.live_blocks(), live);
    }
}

TEST(ExceptionSerial, PromisedLengthsCostOnlyTheBytesThatArrive)
{
    auto& host = uvt_test::test_host::instance().exceptions;
    const std::string text(300000, 'x');
    const std::string bytes = bytes_of({0xFACE0000, 0xFACADE01, 0xADDDEED2, 1, 0, 1, 0, 0xFFFFFFF0}, text);
    host.reset_peak();
    EXPECT_NE(deserialization_failure(bytes).text.find("Stream ended early: 300000 of 4294967280 bytes"),
              std::string::npos);
    EXPECT_LT(host.peak_bytes() - host.live_bytes(), 4 * text.size());
}

TEST(ExceptionSerial, FailingAllocationsThrowBadAllocAndLeakNothing)
{
    const std::string bytes = serialized(uvt_test::exception_chain(3), false);
    EXPECT_GT(uvt_test::sweep_allocation_failures([&](uvt::allocator& a) { rebuilt(bytes, a); },
                                                  [](bool threw) { EXPECT_TRUE(threw); }),
              0u);
    auto& host = uvt_test::test_host::instance().exceptions;
    const unsigned long live = host.live_blocks();
    for (unsigned long n = 1;; ++n) {
        const unsigned long failures = host.failures();
        host.fail_at(n);
        try {
            rebuilt(bytes);
        } catch (const uvt::bad_alloc& e) {
            e.mark_processed();
        }
        host.fail_at(0);
        EXPECT_EQ(host.live_blocks(), live) << "leak when allocation " << n << " failed";
        if (host.failures() == failures)
            break;
    }
}

} // namespace
