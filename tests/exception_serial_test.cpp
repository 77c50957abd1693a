// Exceptions written to bytes and rebuilt: every class, chains, stack texts, the type registry, and the
// reader's answer to bad, truncated and oversized data and to failing allocations.
#include "support/exception_samples.h"
#include "support/string_ostream.h"
#include "support/test_host.h"
#include "support/type_header.h"

#include <uvt/sstream>
#include <uvt/strstream>

#include <gtest/gtest.h>

#include <string>
#include <typeinfo>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

uvt_test::counting_allocator& host_allocator() { return uvt_test::test_host::instance().exceptions; }

// Every test must give back every block of the exception allocator.
class ExceptionSerial : public testing::Test {
protected:
    void SetUp() override { live_ = host_allocator().live_blocks(); }
    void TearDown() override { EXPECT_EQ(host_allocator().live_blocks(), live_) << "leaked payload"; }
    unsigned long live_ = 0;
};

std::string serialized(const uvt::exception& e, bool no_stack)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    e.serialize(os, no_stack);
    return {os.c_str(), os.size()};
}

uvt::auto_ptr<uvt::exception> rebuilt(const std::string& bytes, uvt::allocator& a = uvt::allocator::global_allocator())
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
    const auto b = uvt_test::words(ws);
    return std::string(b.begin(), b.end()) + tail;
}

// One message in the serialised form (file "f.cpp", line 10, status 0).
std::string message(std::uint32_t error_no, const std::string& text)
{
    return bytes_of({0xADDDEED2, error_no, 0, 10, 5}, "f.cpp") + bytes_of({std::uint32_t(text.size())}, text);
}

// The runtime_error that reading `bytes` throws: "file name:line" and its short layout.
std::string deserialization_failure(const std::string& bytes, uvt::allocator& a = uvt::allocator::global_allocator())
{
    try {
        rebuilt(bytes, a);
    } catch (const uvt::runtime_error& e) {
        uvt_test::string_ostream os;
        const std::string file = e.file().get();
        e.print_short(os, true, false);
        return file.substr(file.rfind('/') + 1) + ':' + std::to_string(e.line()) + '\n' + os.str();
    }
    return "no runtime_error";
}

// A length word that promises far more than the stream holds.
const std::string promises_too_much =
    bytes_of({0xFACE0000, 0xFACADE01, 0xADDDEED2, 1, 0, 1, 0, 0xFFFFFFF0}, std::string(300000, 'x'));

std::string chain_bytes()
{
    const uvt::runtime_error chain = uvt_test::exception_chain(3);
    chain.mark_processed();
    return serialized(chain, false);
}

TEST_F(ExceptionSerial, EveryClassRoundTripsThroughItsCreatorRegisteredOnce)
{
    for (const uvt_test::exception_sample& s : uvt_test::exception_samples()) {
        SCOPED_TRACE(s.name);
        const uvt::exception_creator creator = uvt::exception_by_type(s.type_number);
        EXPECT_EQ(creator != nullptr, s.type_number != 0); // plain exceptions: the default creator
        if (creator)
            uvt::register_exception_type(s.type_number, creator); // the same creator again: accepted
        const std::string bytes = serialized(*s.object, false);
        EXPECT_EQ(bytes.substr(0, 4), bytes_of({0xFACE0000u + s.type_number}));
        const auto copy = rebuilt(bytes);
        EXPECT_TRUE(s.same_class(*copy)) << typeid(*copy).name();
        // Header (regex code, failure type), numbers, status, lines, files, texts.
        EXPECT_EQ(serialized(*copy, true), serialized(*s.object, true));
        if (const auto* memory = dynamic_cast<const uvt::bad_alloc*>(copy.get()))
            EXPECT_EQ(memory->get_allocation_failure_type(), s.type_number == 1 ? uvt::USER_LIMIT : uvt::UNKNOWN);
        EXPECT_EQ(printed(*copy, true), printed(*s.object, true));
    }
    EXPECT_DEATH(uvt::register_exception_type(9, &uvt::logic_error::creator),
                 "error_registry.cpp:42 Exception type is already registered 9");
}

TEST_F(ExceptionSerial, ChainsKeepEveryMessageAndPrintTheReceivedStackText)
{
    const uvt::runtime_error chain = uvt_test::exception_chain(4);
    const auto copy = rebuilt(serialized(chain, false));
    EXPECT_EQ(serialized(*copy, true), serialized(chain, true));
    std::string expected = printed(chain, false);
    for (std::size_t at = 0; (at = expected.find("frames>\n", at)) != std::string::npos; at += 9)
        expected.insert(at + 8, "\n"); // the received text is written with a line end of its own
    EXPECT_EQ(printed(*copy, false), expected);
    EXPECT_EQ(copy->stack_trace(nullptr), 0);
}

TEST_F(ExceptionSerial, TheTypeNumberChoosesTheClassAndMissingPayloadsAreNoted)
{
    const std::string payload = message(1000003, "Index 7 out of range [0, 5)") + bytes_of({0, 0xADDEDCAB});
    for (const auto& [tag, type] :
         {std::pair<std::uint32_t, const std::type_info*>{0xFACE0009, &typeid(uvt::out_of_range)},
          {0xFACE001B, &typeid(uvt::exception)}}) {
        const auto e = rebuilt(bytes_of({tag, 0xFACADE01}) + payload);
        EXPECT_EQ(typeid(*e), *type);
        EXPECT_EQ(printed(*e, true), "exception  1: no.1000003  (f.cpp:10)\n    Index 7 out of range [0, 5)\n");
    }
    uvt_test::counting_allocator refusing;
    refusing.fail_at(1, true);
    const uvt::exception lost(refusing, "lost.cpp", 5, uvt__ERR_UVT_LOGIC(), nullptr);
    EXPECT_EQ(printed(*rebuilt(serialized(lost, false)), true),
              "exception  1: no.1000014  (lost.cpp:5)\n    Bad allocation in exception object (imported)\n");
    EXPECT_EQ(rebuilt(serialized(uvt::exception(), false))->data(), nullptr);
}

TEST_F(ExceptionSerial, BadDataIsReportedWithItsLineAndWords)
{
    const std::string header = bytes_of({0xFACE0000, 0xFACADE01}), one = message(1, "m");
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
        {__LINE__, promises_too_much, 1640, "Stream ended early: 300000 of 4294967280 bytes"},
    };
    const std::string reports = "\nexception 1000013: Runtime error\nexception 1000013: Exception deserialization. ";
    for (const auto& r : rows)
        EXPECT_EQ(deserialization_failure(r.bytes), "exception.cpp:" + std::to_string(r.line) + reports + r.text + "\n")
            << "row of line " << r.source_line;
    EXPECT_EQ(deserialization_failure(bytes_of({0xFACE0001, 0xFACADE35})),
              "new:112\nexception 1000027: Memory corruption: \"4207599157\", expected: \"4207599156\"\n");
}

TEST_F(ExceptionSerial, TruncationAtEveryByteEndsTheStreamWithoutLeaks)
{
    const std::string bytes = chain_bytes();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        uvt_test::counting_allocator objects;
        EXPECT_EQ(deserialization_failure(bytes.substr(0, size), objects).substr(0, 19), "exception.cpp:1640\n");
        EXPECT_EQ(objects.live_blocks() + host_allocator().live_blocks(), live_) << "leak at size " << size;
    }
}

// A promised length costs no more memory than the bytes that arrive: no request reaches 1 MiB.
TEST_F(ExceptionSerial, FailingAllocationsAndPromisedLengthsLeakNothing)
{
    EXPECT_EQ(uvt_test::sweep_allocation_failures([&](uvt::allocator& a) { rebuilt(chain_bytes(), a); }), 1u);
    for (const std::string& bytes : {chain_bytes(), promises_too_much}) {
        for (unsigned long n = 1;; ++n) {
            const unsigned long failures = host_allocator().failures();
            host_allocator().fail_at(n);
            try {
                rebuilt(bytes);
            } catch (const uvt::exception& e) { // bad_alloc, or runtime_error for the promise
                e.mark_processed();
            }
            host_allocator().fail_at(0);
            EXPECT_EQ(host_allocator().live_blocks(), live_) << "leak when allocation " << n << " failed";
            if (host_allocator().failures() == failures)
                break;
            EXPECT_LT(host_allocator().last_size(), 1ul << 20) << "request " << n;
        }
    }
}

} // namespace
