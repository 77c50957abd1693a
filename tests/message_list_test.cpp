// Placeholder expansion, the two expansion sinks, message_list, the block
// sizes of messages and parameters, and exception behaviour without a host
// object (this program defines no get_uvt_import).

#include "support/caught.h"
#include "support/string_ostream.h"
#include "support/test_allocator.h"

#include <uvt/exception>
#include <uvt/impl/message_list>
#include <uvt/new>
#include <uvt/stdexcept>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct param {
    const char* name;
    const char* value;
    bool replace = false;
};

// A template with its parameters, expanded through msg_write_stream and
// through msg_byte_stream.
struct expansion_case {
    int line;
    const char* text;
    std::vector<param> params;
    std::string streamed, bytes;
};

std::string expand_to_stream(const uvt::exception_node& n)
{
    uvt_test::string_ostream os;
    uvt::msg_write_stream out(os);
    n.expand(out);
    return os.str();
}

std::string expand_to_bytes(const uvt::exception_node& n, std::size_t size = 512)
{
    std::vector<char> buffer(size + 1, '#');
    const std::size_t written = n.expand(buffer.data(), size);
    EXPECT_EQ(buffer[written], '\0');
    EXPECT_EQ(buffer[size], '#') << "written past the buffer";
    return std::string(buffer.data(), written);
}

void build(uvt::message_list& list, const char* text, const std::vector<param>& params)
{
    list.new_message(text);
    for (const param& p : params)
        list.new_param(p.name, p.value, p.replace);
}

const std::vector<expansion_case> expansion_cases = {
    {__LINE__,
     "Index $IDX$ out of range [$BEG$, $END$)",
     {{"IDX", "7"}, {"BEG", "0"}, {"END", "5"}},
     "Index 7 out of range [0, 5)",
     "Index 7 out of range [0, 5)"},
    {__LINE__,
     "Index $IDX$ out of range [$BEG$, $END$)",
     {{"END", "5"}, {"BEG", "0"}, {"IDX", "7"}},
     "Index 7 out of range [0, 5)",
     "Index 7 out of range [0, 5)"},
    {__LINE__, "Failed", {{"X", "1"}}, "Failed; $X$=1", "Failed; $X$=1"},
    {__LINE__, "Failed", {{"X", "1"}, {"Y", "2"}}, "Failed; $X$=1; $Y$=2", "Failed; $X$=1; $Y$=2"},
    {__LINE__, "Value $V$", {{"V", "1"}, {"V", "2", true}}, "Value 2", "Value 2"},
    {__LINE__, "Value $V$", {{"V", "2", true}, {"V", "1"}}, "Value 2; $V$=1", "Value 2; $V$=1"},
    {__LINE__, "$X$ $X$", {{"X", "a"}, {"X", "b", true}, {"X", "c", true}}, "b c", "b c"},
    {__LINE__, "$X$ and $X$", {{"X", "1"}}, "1 and $X$", "1 and $X$"},
    {__LINE__, "$X$ and $X$", {{"X", "1"}, {"X", "2"}}, "1 and 2", "1 and 2"},
    {__LINE__, "$X$", {{"x", "1"}}, "$X$; $x$=1", "$X$; $x$=1"},
    {__LINE__, "cost 5$", {}, "cost 5", "cost 5"},
    {__LINE__, "a $B", {}, "a ", "a "},
    {__LINE__, "a $$ b $X$", {{"X", "1"}}, "a ; $X$=1", "a ; $X$=1"},
    {__LINE__, "$UNKNOWN$ stays", {}, "$UNKNOWN$ stays", "$UNKNOWN$ stays"},
    {__LINE__, "$A$B$C", {{"B", "1"}}, "$A$B; $B$=1", "$A$B; $B$=1"}, // the closing "$" opens nothing
    {__LINE__, "price \\$5", {}, "price $5", "price $5"},
    {__LINE__, "\\$X\\$", {{"X", "1"}}, "$X$; $X$=1", "$X$; $X$=1"},
    {__LINE__, "back\\\\slash \\n", {}, "back\\slash n", "back\\slash n"},
    {__LINE__, "end\\", {}, "end", "end"},
    {__LINE__, "", {{"X", ""}}, "; $X$=", "; $X$="},
    {__LINE__, "Failed", {{"", "reason"}}, "Failed. reason", "Failed. reason"},
    {__LINE__, "Failed", {{"", "done."}}, "Failed done.", "Failed. done."},
    {__LINE__, "Failed", {{"X", "v  \r\n"}}, "Failed; $X$=v", "Failed; $X$=v  \r\n"},
    {__LINE__, "Failed", {{"E", "l1\nl2\n"}}, "Failed\n$E$=\nl1\nl2\n", "Failed; $E$=l1\nl2\n"},
    {__LINE__,
     "Failed",
     {{"E", "l1\nl2"}, {"F", "x"}, {"G", "y"}},
     "Failed\n$E$=\nl1\nl2\n$F$=x; $G$=y",
     "Failed; $E$=l1\nl2; $F$=x; $G$=y"},
    {__LINE__, "Failed", {{"", "a\nb"}}, "Failed\na\nb\n", "Failed. a\nb"},
};

uvt::exception plain(const char* text = "text") { return uvt::exception("demo/unit.cpp", 42, 7, text, nullptr); }

// Hands out blocks 8 bytes past a 16-byte boundary.
class misaligning_allocator : public uvt_test::counting_allocator {
public:
    void* allocateNoThrowImpl(unsigned long size, const void* caller) override
    {
        auto* p = static_cast<char*>(counting_allocator::allocateNoThrowImpl(size + 8, caller));
        return p ? p + 8 : nullptr;
    }
    void deallocateImpl(void* p, const void* caller) override
    {
        counting_allocator::deallocateImpl(p ? static_cast<char*>(p) - 8 : nullptr, caller);
    }
};

// Expansion reorders the parameter list; the order it leaves must expand to
// the same text again, through either sink.
TEST(MessageList, ExpansionParametersBlockSizesFailuresAndExceptionsWithoutHost)
{
    for (const expansion_case& c : expansion_cases) {
        SCOPED_TRACE(testing::Message() << "row at line " << c.line);
        uvt::message_list list(uvt::allocator::global_allocator());
        build(list, c.text, c.params);
        EXPECT_EQ(expand_to_stream(*list.first()), c.streamed);
        EXPECT_EQ(expand_to_bytes(*list.first()), c.bytes);
        EXPECT_EQ(expand_to_stream(*list.first()), c.streamed) << "second expansion";
        EXPECT_EQ(expand_to_bytes(*list.first()), c.bytes) << "second expansion";
    }

    // The byte stream stops at the piece that does not fit.
    uvt::message_list list(uvt::allocator::global_allocator());
    build(list, "Index $IDX$ out of range", {{"IDX", "7"}, {"X", "1"}});
    const struct {
        std::size_t size;
        const char* expected;
    } rows[] = {
        {1, ""},
        {7, "Index "},                // "7" would be the 7th character: no room for the terminator
        {8, "Index 7"},               // " out of range" does not fit; neither does the remainder
        {25, "Index 7 out of range"}, // the remainder "; $X$=1" is all or nothing
        {28, "Index 7 out of range; $X$=1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        EXPECT_EQ(expand_to_bytes(*list.first(), row.size), row.expected);
    }
    char untouched = '#';
    EXPECT_EQ(list.first()->expand(&untouched, 0), 0u);
    EXPECT_EQ(untouched, '#');

    // A node without message writes its plain text as it is.
    alignas(8) unsigned char block[sizeof(uvt::exception_node) + 8]; // with room for an empty text
    uvt::exception_node* n = uvt::exception_node::construct(block, nullptr, 0, 0, nullptr);
    n->has_message = false;
    n->plain_text = "plain $X$ \\$";
    EXPECT_EQ(expand_to_stream(*n), "plain $X$ \\$");
    EXPECT_EQ(expand_to_bytes(*n), "plain $X$ \\$");

    // Allocation failures throw bad_alloc and leak nothing.
    uvt_test::counting_allocator a;
    {
        uvt::message_list list(a);
        EXPECT_STREQ(uvt_test::caught<uvt::null_pointer>([&] { list.new_param("X", "1", false); }).what(),
                     "Message is does not exist. Cannot create parameter");
        build(list, "first $A$", {{"A", "1"}});
        build(list, "second $A$", {{"A", "2"}});
        ASSERT_NE(list.first()->next, nullptr);
        EXPECT_EQ(expand_to_stream(*list.first()), "first 1");
        EXPECT_EQ(expand_to_stream(*list.first()->next), "second 2");
        EXPECT_EQ(a.live_blocks(), 4u);
    }
    EXPECT_EQ(a.live_blocks(), 0u);

    const unsigned long points = uvt_test::sweep_allocation_failures(
        [](uvt::allocator& a) {
            uvt::message_list list(a);
            build(list, "one $A$", {{"A", "1"}, {"B", "2"}});
            build(list, nullptr, {{"C", "3"}});
        },
        [](bool threw) { EXPECT_TRUE(threw); });
    EXPECT_EQ(points, 5u);

    // A message node is its header and its text space; a payload holds 71
    // bytes more (its header and the worst alignment gap, less the node header)
    // and lies aligned inside its block; a parameter keeps at least 8 bytes of
    // value.
    const std::pair<const char*, unsigned long> messages[] = {{nullptr, 64}, {"1234567", 64}, {"12345678", 72}};
    for (auto [text, node_bytes] : messages) {
        SCOPED_TRACE(text ? text : "null");
        uvt_test::counting_allocator a;
        {
            uvt::message_list list(a);
            list.new_message(text);
            EXPECT_EQ(a.live_bytes(), node_bytes);
        }
        const uvt::impl::ErrorCodeImpl ec(1, text, &uvt::generic_category(), "SIZE");
        uvt::exception e(a, "f.cpp", 1, ec, uvt::exception::CALLER_SUPPRESS_STACK_TRACE);
        EXPECT_EQ(a.live_bytes(), node_bytes + 71);
        e.mark_processed();
    }
    const std::pair<const char*, unsigned long> params[] = {{nullptr, 40}, {"", 40}, {"1234567", 40}, {"12345678", 41}};
    for (auto [value, bytes] : params) {
        uvt_test::counting_allocator a;
        uvt::message_list list(a);
        list.new_message("m");
        const unsigned long before = a.live_bytes();
        list.new_param("N", value, false);
        EXPECT_EQ(a.live_bytes() - before, bytes) << (value ? value : "null");
    }
    misaligning_allocator misaligning;
    {
        uvt::exception e(misaligning, "f.cpp", 1, uvt::error_code(1, uvt::generic_category()), nullptr);
        ASSERT_NE(e.data(), nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(e.data()) % 16, 0u);
        e.mark_processed();
    }
    EXPECT_EQ(misaligning.live_blocks(), 0u);

    // Without a host object, stack capture yields status 8 and registration only
    // marks the object.
    uvt::exception e = plain();
    uvt_test::string_ostream os;
    e.print(os);
    EXPECT_EQ(os.str(), "exception  1: no.7  (demo/unit.cpp:42)\n    text\n"
                        "NO exception throw location recorded. Stack generation system error.\n");
    EXPECT_EQ(e.begin()->status, uvt::exception_node::stack_empty);
    void** frames = reinterpret_cast<void**>(&os);
    EXPECT_EQ(e.stack_trace(&frames), 0);
    EXPECT_EQ(frames, nullptr);

    // Registration only marks the object.
    EXPECT_EQ(uvt::exception::get_first_registered(), nullptr);
    EXPECT_TRUE(e.register_on_thread_());
    EXPECT_FALSE(e.register_on_thread_());
    EXPECT_EQ(uvt::exception::get_first_registered(), nullptr);
    EXPECT_EQ(e.get_next_registered(), nullptr);
    e.unregister_on_thread();
    EXPECT_TRUE(e.register_on_thread_()) << "the word is back at 'not registered'";
    e.unregister_on_thread();
    e.mark_processed();
}

} // namespace
