// uvt::exception with a test host: layouts, status notes, the fixed text,
// arguments, appended chains, the host callbacks, registration on the
// thread, critical scopes, concurrency of shared payloads and the
// allocation-failure sweep.

#include "support/string_ostream.h"
#include "support/test_allocator.h"
#include "support/test_host.h"
#include "support/type_header.h"

#include <uvt/exception>
#include <uvt/exception_scope>
#include <uvt/ext/buffer_stream>
#include <uvt/impl/message_list>
#include <uvt/stdexcept>
#include <uvt/string>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <climits>
#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

using uvt::exception;
using uvt::message_argument;
using uvt::message_replace;

uvt_test::test_callbacks& host() { return uvt_test::test_host::instance().callbacks; }

const std::string trace = "exception throw location:\n  <3 test frames>\n";

// Every test starts with the default host behaviour and must return every
// block of the exception allocator.
class ExceptionTest : public testing::Test {
protected:
    void SetUp() override
    {
        host().frames_to_capture = 3;
        blocks_before_ = uvt_test::test_host::instance().exceptions.live_blocks();
    }
    void TearDown() override
    {
        EXPECT_EQ(uvt_test::test_host::instance().exceptions.live_blocks(), blocks_before_) << "leaked payload";
        EXPECT_EQ(exception::get_first_registered(), nullptr) << "exception left registered";
    }

private:
    unsigned long blocks_before_ = 0;
};

exception make(int error_no, const char* text, const char* file = "demo/unit.cpp", int line = 42)
{
    return exception(file, line, error_no, text, nullptr);
}

exception out_of_range_like(uvt::allocator& a)
{
    exception e(a, "demo/unit.cpp", 42, uvt__ERR_UVT_OUTOFRANGE(), nullptr);
    e << message_argument<long>("IDX", 7) << message_argument<long>("BEG", 0) << message_argument<long>("END", 5);
    return e;
}

using plain_printer = void (exception::*)(uvt::basic_ostream<char>&) const;
using layout_printer = void (exception::*)(uvt::basic_ostream<char>&, bool, bool) const;
constexpr layout_printer long_form = &exception::print_default, short_form = &exception::print_short;

// What a print member writes: print itself, print_stack, or a layout with
// its stack options.
std::string printed(const exception& e, plain_printer print = &exception::print)
{
    uvt_test::string_ostream os;
    (e.*print)(os);
    return os.str();
}

std::string printed(const exception& e, layout_printer print, bool no_stack = true, bool first_stack_only = false)
{
    uvt_test::string_ostream os;
    (e.*print)(os, no_stack, first_stack_only);
    return os.str();
}

// --- layouts ---

// print writes the long layout or the custom printer's text, and leaves the
// stream's format as it found it; numbers in hex are shown unsigned.
TEST_F(ExceptionTest, LayoutsOfAChainWithStackOptionsTheCustomPrinterAndTheStreamFormat)
{
    exception e = out_of_range_like(exception::default_allocator());
    EXPECT_EQ(printed(e), "exception  1: no.1000003  (demo/unit.cpp:42)\n    Index 7 out of range [0, 5)\n" + trace);
    EXPECT_TRUE(e.is_processed());

    exception custom = make(-1, "text");
    custom.set_printer([](const exception& x, uvt::basic_ostream<char>& os) { os << "custom " << x.error_no(); });
    EXPECT_EQ(printed(custom), "custom -1");
    EXPECT_TRUE(custom.is_processed());
    uvt_test::string_ostream os;
    os << uvt::hex << uvt::left << uvt::setfill('*') << uvt::setprecision(3);
    os.width(9);
    const auto flags = os.flags();
    custom.print_default(os, true, false);
    EXPECT_EQ(os.str(), "exception**1: no.ffffffff  (demo/unit.cpp:2a)\n    text\n");
    EXPECT_EQ(os.flags(), flags);
    EXPECT_EQ(os.fill(), '*');
    EXPECT_EQ(os.width(), 9);
    EXPECT_EQ(os.precision(), 3);

    // The long and short layouts of a chain with the stack options.
    exception a = make(1, "first");
    a << uvt::error_message("b.cpp", 2, 2, "second $S$") << message_argument<int>("S", 5);
    exception b = make(3, "third", nullptr, 0);
    a << b;
    const std::string long_nodes[] = {"exception  1: no.1  (demo/unit.cpp:42)\n    first\n"
                                      "exception  1: no.2  (b.cpp:2)\n    second 5\n",
                                      "exception  2: no.3\n    third\n"};
    const std::string short_nodes[] = {"exception 1: first\nexception 2: second 5\n", "exception 3: third\n"};
    const struct {
        bool no_stack, first_stack_only;
        std::string long_text, short_text;
    } rows[] = {
        {false, false, long_nodes[0] + trace + long_nodes[1] + trace, short_nodes[0] + trace + short_nodes[1] + trace},
        {false, true, long_nodes[0] + trace + long_nodes[1], short_nodes[0] + trace + short_nodes[1]},
        {true, false, long_nodes[0] + long_nodes[1], short_nodes[0] + short_nodes[1]},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.no_stack << row.first_stack_only);
        EXPECT_EQ(printed(a, long_form, row.no_stack, row.first_stack_only), row.long_text);
        EXPECT_EQ(printed(a, short_form, row.no_stack, row.first_stack_only), row.short_text);
    }
}

// --- throw locations and status notes ---

// The throw-location block of an exception whose stack was suppressed, not
// given by the host, captured or received as text; and the block and status
// note of exceptions that lost information to a failed allocation (the
// payload is allocation 1, the stack area 2, then the messages and
// arguments in order).
TEST_F(ExceptionTest, ThrowLocationsStatusNotesAndTheFixedTextWithoutPayload)
{
    uvt_test::counting_allocator a;
    exception suppressed("f.cpp", 1, 1, "t", exception::CALLER_SUPPRESS_STACK_TRACE);
    exception captured("f.cpp", 1, 1, "t", nullptr);
    // What a rebuilt exception holds: stack text instead of return addresses.
    exception received(a, "f.cpp", 1, uvt__ERR_UVT_LOGIC(), exception::CALLER_SUPPRESS_STACK_TRACE);
    auto* d = const_cast<uvt::exception_data*>(received.data());
    static const char text[] = "  frame 1\n  frame 2";
    d->stack = std::memcpy(a.allocate(sizeof text), text, sizeof text);
    d->frame_count = sizeof text - 1;
    d->flags &= ~uvt::exception_data::local_stack;
    a.fail_at(2);
    exception lost_stack(a, "f.cpp", 1, uvt__ERR_UVT_LOGIC(), nullptr);
    lost_stack << message_argument<int>("X", 1);
    a.fail_at(4); // "two"
    exception lost_message(a, "f.cpp", 1, uvt__ERR_UVT_LOGIC(), nullptr);
    lost_message << uvt::error_message("g.cpp", 2, 9, "one");
    lost_message << uvt::error_message("g.cpp", 3, 9, "two") << message_argument<int>("X", 1);
    host().frames_to_capture = 0;
    exception empty("f.cpp", 1, 1, "t", nullptr);
    a.fail_at(3); // the stack status 8 (no frames) becomes 1
    exception lost_param(a, "f.cpp", 1, uvt__ERR_UVT_OUTOFRANGE(), nullptr);
    lost_param << message_argument<int>("IDX", 1) << message_argument<int>("BEG", 2)
               << uvt::error_message("g.cpp", 2, 9, "dropped");
    const std::string none = "NO exception throw location recorded. ";
    const struct {
        const char* label;
        const exception& e;
        std::string block;
        int frames;
        const char* notes;
    } rows[] = {
        {"suppressed", suppressed, none + "Stack generation suppressed.\n", 0, nullptr},
        {"no frames", empty, none + "Stack generation system error.\n", 0, nullptr},
        {"captured", captured, trace, 3, nullptr},
        {"received", received, std::string(text) + "\n", 0, nullptr},
        {"stack lost", lost_stack, none + "Allocation of stack data failed.\n", 0,
         "exception  1: no.1000014  (f.cpp:1)\n    Logic error; "
         "\"Bad allocation in exception callback trace\" (code:2)\n"},
        {"parameter lost", lost_param, none + "Bad alloc.code: 1\n", 0,
         "exception  1: no.1000003  (f.cpp:1)\n    Index $IDX$ out of range [$BEG$, $END$); "
         "\"Bad allocation in exception parameter\" (code:1)\n"},
        {"message lost", lost_message, trace, 3,
         "exception  1: no.1000014  (f.cpp:1)\n    Logic error\n"
         "exception  1: no.9  (g.cpp:2)\n    one; \"Bad allocation in exception message\" (code:3)\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(printed(row.e, &exception::print_stack), row.block);
        void** frames = nullptr;
        EXPECT_EQ(row.e.stack_trace(&frames), row.frames);
        EXPECT_EQ(frames != nullptr, row.frames != 0);
        if (row.notes)
            EXPECT_EQ(printed(row.e, long_form), row.notes);
        row.e.mark_processed();
    }

    // Without a payload an exception still knows its number, file and line,
    // and shows them in a fixed text.
    uvt_test::counting_allocator failing;
    failing.fail_at(1);
    const std::string path = "/very/long/" + std::string(70, 'd') + "/tail.cpp";
    exception payloadless(failing, path.c_str(), 1234567, uvt__ERR_UVT_OUTOFRANGE(), nullptr);
    payloadless << message_argument<int>("IDX", 1) << uvt::error_message("x.cpp", 1, 1, "lost");
    EXPECT_EQ(payloadless.data(), nullptr);
    EXPECT_EQ(payloadless.error_no(), 1000003);
    EXPECT_EQ(payloadless.line(), 1234567);
    EXPECT_STREQ(payloadless.file().get(), path.c_str());

    std::string expected = "exception: no.             (                                                "
                           "                :      ). No further info because of bad allocation in "
                           "exception object.";
    ASSERT_EQ(expected.size(), 164u);
    expected.replace(15, 11, "    1000003");
    expected.replace(28, 64, path.substr(path.size() - 64));
    expected.replace(93, 6, "234567");
    EXPECT_EQ(payloadless.what(), expected);
    EXPECT_EQ(printed(payloadless), expected + "\n");

    failing.fail_at(1);
    exception small(failing, "short.cpp", 7, uvt__ERR_UVT_LOGIC(), nullptr);
    expected.replace(15, 11, "    1000014");
    expected.replace(28, 64, std::string(55, ' ') + "short.cpp");
    expected.replace(93, 6, "     7");
    EXPECT_EQ(small.what(), expected);
    EXPECT_EQ(printed(small, &exception::print_stack),
              "NO exception throw location recorded. Allocation of exp.data failed.\n");
    EXPECT_FALSE(small.is_processed());
    EXPECT_FALSE(small == small) << "exceptions without payload are never equal";
}

// --- arguments ---

const void* const some_pointer = reinterpret_cast<const void*>(0x7f00beefUL);
const std::string long_argument(400, 'A');

// How each kind of argument is written into "v=$V$"; texts that define
// nothing leave the placeholder.
TEST_F(ExceptionTest, ArgumentTextsAndLookupAcrossTheChain)
{
    const struct {
        int line;
        void (*add)(exception&);
        std::string expected;
    } rows[] = {
        {__LINE__, [](exception& e) { e << message_argument<bool>("V", true); }, "true"},
        {__LINE__, [](exception& e) { e << message_argument<bool>("V", false, true); }, "0"},
        {__LINE__, [](exception& e) { e << message_argument<char>("V", -1); }, "-1"},
        {__LINE__, [](exception& e) { e << message_argument<char>("V", -1, true); }, "0xff"},
        {__LINE__, [](exception& e) { e << message_argument<unsigned char>("V", 200); }, "200"},
        {__LINE__, [](exception& e) { e << message_argument<int>("V", INT_MIN); }, "-2147483648"},
        {__LINE__, [](exception& e) { e << message_argument<int>("V", -2, true); }, "0xfffffffe"},
        {__LINE__, [](exception& e) { e << message_argument<unsigned>("V", 0, true); }, "0x0"},
        {__LINE__, [](exception& e) { e << message_argument<long>("V", LONG_MIN); }, "-9223372036854775808"},
        {__LINE__, [](exception& e) { e << message_argument<unsigned long>("V", ULONG_MAX, true); },
         "0xffffffffffffffff"},
        {__LINE__, [](exception& e) { e << message_argument<double>("V", 0.1); }, "0.1"},
        {__LINE__, [](exception& e) { e << message_argument<float>("V", 0.5f); }, "0.5"},
        {__LINE__, [](exception& e) { e << message_argument<double>("V", -1.0 / 3); }, "-0.333333333333"},
        {__LINE__, [](exception& e) { e << message_argument<double>("V", 1) << message_replace<double>("V", 1e300); },
         "1e+300"},
        {__LINE__, [](exception& e) { e << uvt::msgarg_ptr("V", some_pointer); }, "0x7f00beef"},
        {__LINE__, [](exception& e) { e << uvt::msgarg_text("V", "plain"); }, "plain"},
        {__LINE__, [](exception& e) { e << uvt::msgarg_text("V", "AB\x01\xff", true); }, "41 42 01 FF"},
        {__LINE__, [](exception& e) { e << uvt::msgarg_text("V", "", true); }, ""},
        {__LINE__, [](exception& e) { e << uvt::msgarg_text("V", long_argument.c_str(), true); },
         std::regex_replace(std::string(341, 'A'), std::regex("A"), "41 ").substr(0, 341 * 3 - 1)}, // 341 bytes
        {__LINE__, [](exception& e) { e << uvt::msgarg_text("V", nullptr); }, "$V$"},
        {__LINE__, [](exception& e) { e.define_argument(nullptr, "x", false); }, "$V$"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row at line " << row.line);
        exception e = make(1, "v=$V$");
        row.add(e);
        EXPECT_EQ(printed(e, long_form), "exception  1: no.1  (demo/unit.cpp:42)\n    v=" + row.expected + "\n");
    }

    // An exception argument is its long layout and marks it processed.
    exception inner = make(5, "inner"), outer = make(6, "outer");
    outer << message_argument<exception>("CAUSE", inner);
    EXPECT_TRUE(inner.is_processed());
    EXPECT_FALSE(outer.is_processed());
    EXPECT_EQ(printed(outer), "exception  1: no.6  (demo/unit.cpp:42)\n    outer\n$CAUSE$=\n"
                              "exception  1: no.5  (demo/unit.cpp:42)\n    inner\n" +
                                  trace + trace);

    // Arguments are looked up in the first message of each chained exception.
    exception a = make(1, "a");
    a << message_argument<int>("X", 1) << uvt::error_message("f.cpp", 1, 1, "second");
    a << message_argument<int>("HIDDEN", 9); // not in a first message
    exception b = make(2, "b");
    b << message_argument<int>("Y", 2) << message_argument<int>("X", 3);
    a << b;
    EXPECT_STREQ(a.get_msgarg_by_name("X"), "1");
    EXPECT_STREQ(a.get_msgarg_by_name("Y"), "2");
    for (const char* absent : {"HIDDEN", "x", "", static_cast<const char*>(nullptr)})
        EXPECT_STREQ(a.get_msgarg_by_name(absent), "") << (absent ? absent : "null");
    a.mark_processed();
}

// --- readers ---

TEST_F(ExceptionTest, ReadersWhatWithAnAllocatorAndAppendedChains)
{
    exception a = make(1, "first $A$");
    a << uvt::error_message("/other/f.cpp", 8, 2, "second");
    EXPECT_STREQ(a.what(), "first $A$");
    EXPECT_EQ(uvt_test::type_header(a), uvt_test::words({0xFACE0000, 0xFACADE01}));
    EXPECT_FALSE(a.is_processed());
    std::vector<int> numbers;
    for (const uvt::exception_node* n = a.begin(); n != a.end(); n = n->next)
        numbers.push_back(n->error_no);
    EXPECT_EQ(numbers, (std::vector<int>{1, 2}));
    EXPECT_TRUE(a.is_processed());

    exception other = make(1, "first $A$");
    EXPECT_TRUE(other != a) << "equal exceptions share a payload";
    other.mark_processed();

    exception b = make(3, "b");
    a << b;
    EXPECT_FALSE(a.is_processed()) << "appending clears the processed flag";
    exception next = a.get_next();
    EXPECT_TRUE(a.is_processed());
    EXPECT_TRUE(next == b);
    EXPECT_EQ(next.get_next().data(), nullptr);

    // what(allocator) renders the short layout; a text cut short is never returned.
    const uvt::out_of_range range(__FILE__, __LINE__, 7, 0, 5);
    const std::string expected = printed(range, short_form);
    ASSERT_NE(expected.find("Index 7 out of range [0, 5)"), std::string::npos);
    uvt_test::counting_allocator alloc;
    {
        const uvt::basic_string<char> shown = range.what(alloc, true);
        EXPECT_EQ(std::string(shown.data(), shown.size()), expected);
        EXPECT_EQ(&shown.get_allocator(), &alloc);
        EXPECT_EQ(alloc.live_blocks(), shown.capacity() > 39 ? 1u : 0u) << "the stream's block is gone";
    }
    const unsigned long points =
        uvt_test::sweep_allocation_failures([&](uvt::allocator& failing) { (void)range.what(failing, false); },
                                            [](bool threw) {
                                                EXPECT_TRUE(threw) << "a text cut short is never returned";
                                            });
    EXPECT_GE(points, 2u);

    // Appending refuses a second chain, a cycle and the exception itself; the
    // payloads of a chain are freed whichever end goes first.
    exception first = make(1, "a"), second = make(2, "b"), third = make(3, "c");
    first << second;
    third << second; // second is already appended to first
    second << first; // would close a cycle
    first << first;
    exception copy = first;
    first << copy;
    EXPECT_EQ(first.get_next().get_next().data(), nullptr);
    EXPECT_EQ(printed(third, short_form) + printed(second, short_form) + printed(first, short_form),
              "exception 3: c\nexception 2: b\nexception 1: a\nexception 2: b\n");

    for (bool head_first : {true, false}) {
        SCOPED_TRACE(head_first);
        uvt_test::counting_allocator alloc;
        {
            auto first = std::make_unique<exception>(alloc, "a.cpp", 1, uvt__ERR_UVT_LOGIC(), nullptr);
            auto second = std::make_unique<exception>(alloc, "b.cpp", 2, uvt__ERR_UVT_RANGE(), nullptr);
            exception third(alloc, "c.cpp", 3, uvt__ERR_UVT_DOMAIN(), nullptr);
            *second << third;  // second -> third
            *first << *second; // first -> second -> third
            first->mark_processed();
            second->mark_processed();
            third.mark_processed();
            if (head_first) {
                first.reset();
                EXPECT_EQ(printed(*second, short_form),
                          "exception 1000012: Range error\nexception 1000015: Domain error\n");
            } else {
                second.reset();
                EXPECT_EQ(first->get_next().get_next().error_no(), 1000015);
            }
        }
        EXPECT_EQ(alloc.live_blocks(), 0u);
    }
}

// --- registration and host callbacks ---

// Unwinds through a cleanup that, inside a critical scope, leaves an
// exception registered or not.
void unwind_through_cleanup(bool leak)
{
    struct cleanup {
        bool leak;
        ~cleanup()
        {
            exception inner = make(31, "escaping");
            inner.mark_processed();
            uvt::impl::exception_scope_helper<true> scope;
            if (leak)
                inner.register_on_thread();
        }
    };
    try {
        cleanup c{leak};
        throw 1;
    } catch (int) {
    }
}

TEST_F(ExceptionTest, RegistrationOrderAndHostCallbacks)
{
    exception a = make(1, "a"), b = make(2, "b"), c = make(3, "c");
    a.register_on_thread();
    b.register_on_thread();
    c.register_on_thread();
    EXPECT_FALSE(b.register_on_thread_());
    EXPECT_EQ(exception::get_first_registered(), &c);
    EXPECT_EQ(c.get_next_registered(), &b);
    EXPECT_EQ(b.get_next_registered(), &a);
    EXPECT_EQ(a.get_next_registered(), nullptr);

    b.unregister_on_thread(); // from the middle
    EXPECT_EQ(c.get_next_registered(), &a);
    c.unregister_on_thread(); // the head
    EXPECT_EQ(exception::get_first_registered(), &a);
    a << c; // appending unregisters
    EXPECT_EQ(exception::get_first_registered(), &a);
    a.unregister_on_thread();
    EXPECT_EQ(exception::get_first_registered(), nullptr);
    a.mark_processed();
    b.mark_processed();
    {
        exception d = make(4, "d");
        d.register_on_thread();
        d.mark_processed();
    } // the destructor unregisters

    // What the host hears of, by scenario: forgotten, caught and unhandled
    // exceptions, and the error number last reported (-1: none).
    const struct {
        const char* label;
        int forgotten, caught, unhandled, last_error_no;
        void (*scenario)();
    } rows[] = {
        {"the last unprocessed copy is forgotten", 1, 0, 0, 11,
         [] {
             exception e = make(11, "lost"), copy = e, assigned = make(12, "other");
             assigned.mark_processed();
             assigned = e;
         }},
        {"printing processes", 0, 0, 0, -1, [] { printed(make(13, "printed")); }},
        {"a change after printing unprocesses", 1, 0, 0, 14,
         [] {
             exception e = make(14, "printed, then changed");
             printed(e);
             e << message_argument<int>("X", 1);
         }},
        {"dump reports caught and processes", 0, 1, 0, 15,
         [] {
             exception e = make(15, "caught");
             e.dump();
             EXPECT_TRUE(e.is_processed());
         }},
        {"left registered by a critical scope while unwinding", 0, 0, 1, 31, [] { unwind_through_cleanup(true); }},
        {"unregistered in a critical scope while unwinding", 0, 0, 0, -1, [] { unwind_through_cleanup(false); }},
        {"uncaught check, nothing in flight", 0, 0, 0, -1, [] { uvt::uncaught_exception_check(false); }},
        {"uncaught check, a foreign exception in flight", 0, 0, 1, 1000001,
         [] { uvt::uncaught_exception_check(true); }},
        {"uncaught check, a registered exception", 0, 0, 1, 41,
         [] {
             exception e = make(41, "registered");
             e.register_on_thread();
             uvt::uncaught_exception_check(true);
             EXPECT_FALSE(uvt::uncaught_exception());
             e.mark_processed();
         }},
        {"unregistering an exception the host lost", 0, 0, 1, 21,
         [] {
             exception e = make(21, "lost by the host");
             e.register_on_thread();
             host().unregister_exception(e); // the host forgets its list
             e.unregister_on_thread();
             EXPECT_TRUE(e.register_on_thread_()) << "the word is reset";
             e.unregister_on_thread();
             e.mark_processed();
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const int forgotten = host().forgotten, caught = host().caught, unhandled = host().unhandled;
        host().last_error_no = -1;
        row.scenario();
        EXPECT_EQ(host().forgotten - forgotten, row.forgotten);
        EXPECT_EQ(host().caught - caught, row.caught);
        EXPECT_EQ(host().unhandled - unhandled, row.unhandled);
        EXPECT_EQ(host().last_error_no, row.last_error_no);
    }
}

using ExceptionDeathTest = ExceptionTest;

TEST_F(ExceptionDeathTest, RegisteringTheHeadAgainOrReturningFromAThrowAborts)
{
    EXPECT_DEATH(
        {
            exception e = make(1, "x");
            host().register_exception(e); // head without the object knowing
            e.register_on_thread_();
        },
        "Infinite recursion on exc");
    EXPECT_DEATH(uvt::impl::throw_check_base::throw_returned(), "Throwing an exception returned, aborting");
}

// --- concurrency ---

TEST_F(ExceptionTest, ConcurrentCopiesDropsAndAppends)
{
    const int before = host().forgotten;
    constexpr int threads = 8, rounds = 20;
    for (int round = 0; round < rounds; ++round) {
        std::vector<exception> copies;
        {
            exception e = make(51, "shared"), tail = make(52, "tail");
            tail.mark_processed();
            e << tail;
            copies.assign(threads, e);
        }
        std::atomic<bool> go{false};
        std::vector<std::thread> workers;
        for (const exception& copy : copies) {
            workers.emplace_back([&go, c = copy]() {
                while (!go)
                    std::this_thread::yield();
                exception local = c;
            });
        }
        go = true;
        copies.clear(); // races with the workers' copies
        for (auto& w : workers)
            w.join();
    }
    EXPECT_EQ(host().forgotten - before, rounds) << "one report per unprocessed exception";

    // Concurrent appends link every payload once.
    constexpr int appenders = 6;
    exception head = make(60, "head"), contested = make(61, "contested");
    contested.mark_processed();
    std::vector<exception> heads(appenders, head), contested_copies(appenders, contested);
    std::vector<exception> own;
    for (int i = 0; i < appenders; ++i)
        own.push_back(make(70 + i, "own"));
    std::atomic<int> won{0}, bad_reads{0};
    std::barrier appended(appenders);
    std::vector<std::thread> workers;
    for (int i = 0; i < appenders; ++i) {
        workers.emplace_back([&, i] {
            heads[i] << own[i]; // all on one shared tail
            // Readers and the processed flag may overlap with the appends.
            if (heads[i].error_no() != 60 || std::string(heads[i].what()).empty())
                ++bad_reads;
            heads[i].mark_processed();
            exception other_head = make(80 + i, "other head");
            other_head << contested_copies[i]; // only one chain may take it
            appended.arrive_and_wait();
            if (other_head.get_next().data())
                ++won;
        });
    }
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(won, 1);
    EXPECT_EQ(bad_reads, 0);
    std::vector<int> chained;
    for (exception e = head.get_next(); e.data(); e = e.get_next())
        chained.push_back(e.error_no());
    std::sort(chained.begin(), chained.end());
    EXPECT_EQ(chained, (std::vector<int>{70, 71, 72, 73, 74, 75}));
    for (auto& e : own)
        e.mark_processed();
}

// --- allocation failures ---

bool has_loss_note(const std::string& text)
{
    static const std::regex note("[Bb]ad allocation in exception|NO exception throw location recorded\\.");
    return std::regex_search(text, note);
}

TEST_F(ExceptionTest, AllocationFailureSweepOverBuildingAppendingAndPrinting)
{
    std::string output;
    const unsigned long points = uvt_test::sweep_allocation_failures(
        [&output](uvt::allocator& a) {
            exception e = out_of_range_like(a);
            e << uvt::error_message("g.cpp", 2, 9, "second $S$") << uvt::msgarg_text("S", "text");
            exception cause(a, "c.cpp", 3, uvt__ERR_UVT_LOGIC(), nullptr);
            e << message_argument<exception>("CAUSE", cause);
            exception appended(a, "d.cpp", 4, uvt__ERR_UVT_RANGE(), nullptr);
            e << appended;
            uvt::buffer_stream<4096> os;
            e.print(os);
            appended.print(os); // shows what was lost when it could not be appended
            output = os.c_str();
            EXPECT_TRUE(e.is_processed() || !e.data());
        },
        [&output](bool threw) {
            EXPECT_FALSE(threw);
            EXPECT_TRUE(has_loss_note(output)) << "a failed allocation must leave a note:\n" << output;
        });
    EXPECT_GE(points, 12u);
    EXPECT_FALSE(has_loss_note(output)) << output;
    EXPECT_NE(output.find("Index 7 out of range [0, 5)"), std::string::npos) << output;
    EXPECT_NE(output.find("second text"), std::string::npos) << output;
}

} // namespace
