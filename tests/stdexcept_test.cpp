// The exception classes and throw helpers (ios_base::failure included): each
// one thrown, caught as its bases, with its error number, type number,
// expanded message and type header; their behaviour when the exception
// allocator fails.
#include "support/test_host.h"
#include "support/type_header.h"

#include <uvt/exception>
#include <uvt/ios>
#include <uvt/stdexcept>
#include <uvt/strstream>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

using namespace uvt::regex_constants;

using uvt_test::type_header;
using uvt_test::words;

constexpr const char* F = "f.cpp";

// The message of `e` with its placeholders expanded (short layout, no stack).
std::string expanded(const uvt::exception& e)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    e.print_short(os, true, true);
    std::string s = os.c_str();
    s.erase(0, s.find(": ") + 2);  // "exception <number>: "
    while (!s.empty() && s.back() == '\n')
        s.pop_back();
    return s;
}

template <class Base>
bool caught_as(const std::function<void()>& thrower)
{
    try {
        thrower();
    } catch (const Base&) {
        return true;
    } catch (...) {
    }
    return false;
}

// One way of throwing, and what the catcher must find.
struct ThrowCase {
    int line;
    std::function<void()> thrower;
    const std::type_info* type;
    unsigned short type_number;  // the class's published constant
    std::function<bool(const std::function<void()>&)> caught_as_bases;
    int error_no;
    std::string message;
};

// A thrower that must throw an E, caught as every one of Bases.
template <class E, class... Bases>
ThrowCase helper(int line, std::function<void()> thrower, int error_no, std::string message)
{
    return {line,          std::move(thrower),
            &typeid(E),    E::type_number,
            [](const std::function<void()>& t) { return (caught_as<Bases>(t) && ...); },
            error_no,      std::move(message)};
}

// `make` builds an E whose published type number must be `type_number`; the
// thrower throws it through a uvt::exception reference, so only the virtual
// do_throw can give it back its real class.
template <class E, class... Bases, class Make>
ThrowCase object(int line, Make make, unsigned short type_number, int error_no, std::string message)
{
    EXPECT_EQ(E::type_number, type_number) << "line " << line;
    return helper<E, Bases...>(line, [make] { uvt::tThrow(static_cast<const uvt::exception&>(make())); }, error_no,
                               std::move(message));
}

const char* const no_text = nullptr;

std::vector<ThrowCase> class_cases()
{
    using namespace uvt;
    return {
        object<bad_cast, exception, std::bad_cast>(__LINE__, [] { return bad_cast(F, 10); }, 2, 1000009, "Bad cast "),
        object<bad_cast, exception, std::bad_cast>(__LINE__, [] { return bad_cast(F, 10, std::bad_cast()); }, 2,
                                                   1000009, "Bad cast std::bad_cast"),
        object<bad_typeid, exception, std::bad_typeid>(__LINE__, [] { return bad_typeid(F, 10); }, 3, 1000018,
                                                       "Null pointer in typeid "),
        object<bad_exception, exception, std::bad_exception>(
            __LINE__, [] { return bad_exception(F, 10, std::bad_exception()); }, 4, 1000022,
            "Unexpected exception std::bad_exception"),
        object<logic_error, exception>(__LINE__, [] { return logic_error(F, 10, "custom text"); }, 5, 1000014,
                                       "custom text"),
        object<logic_error, exception>(__LINE__, [] { return logic_error(F, 10, no_text); }, 5, 1000014,
                                       "Logic error"),
        object<domain_error, logic_error, exception>(__LINE__, [] { return domain_error(F, 10, 4711, "numbered"); },
                                                     6, 4711, "numbered"),
        object<invalid_argument, logic_error>(__LINE__, [] { return invalid_argument(F, 10); }, 7, 1000010,
                                              "Invalid argument"),
        object<length_error, logic_error>(__LINE__, [] { return length_error(F, 10, uvt__ERR_UVT_BUF_OVERFLOW()); },
                                          8, 1000035, "Buffer overflow"),
        object<out_of_range, logic_error, exception>(__LINE__, [] { return out_of_range(F, 10, 7, 0, 5); }, 9,
                                                     1000003, "Index 7 out of range [0, 5)"),
        object<runtime_error, exception>(__LINE__, [] { return runtime_error(F, 10, no_text); }, 10, 1000013,
                                         "Runtime error"),
        object<overflow_error, runtime_error>(__LINE__, [] { return overflow_error(F, 10); }, 11, 1000024,
                                              "Integer overflow"),
        object<range_error, runtime_error>(__LINE__, [] { return range_error(F, 10); }, 12, 1000012, "Range error"),
        object<underflow_error, runtime_error>(__LINE__, [] { return underflow_error(F, 10, no_text); }, 13, 1000017,
                                               "Underflow error"),
        object<null_pointer, runtime_error>(__LINE__, [] { return null_pointer(F, 10); }, 14, 1000021,
                                            "Null pointer dereference"),
        object<invalid_iterator_error, exception>(__LINE__, [] { return invalid_iterator_error(F, 10); }, 16, 1000006,
                                                  "Incompatible or invalid iterator"),
        object<rvalue_error, exception>(__LINE__, [] { return rvalue_error(F, 10, "abc"); }, 17, 1000011,
                                        "RValue change: abc"),
        object<incomparable_iterators, exception>(__LINE__, [] { return incomparable_iterators(F, 10, "map"); }, 18,
                                                  1000020, "Iterators point to different map containers"),
        object<invalid_unicode_symbol, runtime_error>(__LINE__, [] { return invalid_unicode_symbol(F, 10); }, 19,
                                                      1000032, "Invalid unicode character"),
        object<regex_error, runtime_error>(__LINE__, [] { return regex_error(F, 10, error_paren, nullptr); }, 20,
                                           1000037,
                                           "Regular expression error no.ERR_UVT_REGEXP+5:regex_error(error_paren): "
                                           "The expression contained mismatched ( and )."),
        object<wrong_enum_type, logic_error>(__LINE__, [] { return wrong_enum_type(F, 10, 3, "left subtree check"); },
                                             21, 1000019, "Unexpected enum type 3: left subtree check"),
        object<time_overflow_error, overflow_error, runtime_error>(
            __LINE__, [] { return time_overflow_error(F, 10, "add", 99); }, 22, 1000025, "Time overflow \"add\": 99"),
        object<time_conversion_error, runtime_error>(__LINE__,
                                                     [] { return time_conversion_error(F, 10, "str2date", 47); }, 23,
                                                     1000026, "Time conversion \"str2date\": 47"),
        object<time_conversion_error, runtime_error>(
            __LINE__, [] { return time_conversion_error(F, 10, 1, 2, 3, 4, 5, 2024); }, 23, 1000026,
            "Time conversion 1:2:3 4.5.2024"),
        object<bad_weak_ptr, exception>(__LINE__, [] { return bad_weak_ptr(F, 10); }, 24, 1000023, "Bad weak_ptr"),
        object<invalid_guid_symbol, runtime_error>(__LINE__, [] { return invalid_guid_symbol(10, 'x'); }, 25, 1000032,
                                                   "Unexpected GUID symbol: x"),
        object<invalid_guid_symbol, runtime_error>(__LINE__, [] { return invalid_guid_symbol(10, 0x17); }, 25,
                                                   1000032, "Unexpected GUID symbol: 0x17"),
        object<bad_function_call, exception>(__LINE__, [] { return bad_function_call(F, 10); }, 26, 1000028,
                                             "Bad function call"),
        object<ios_base::failure, exception>(__LINE__, [] { return ios_base::failure(F, 10); }, 15, 1000087,
                                             "IO stream failed"),
    };
}

std::vector<ThrowCase> helper_cases()
{
    using namespace uvt;
    return {
        helper<null_pointer, runtime_error>(__LINE__, [] { throwNullPointer(F, 10); }, 1000021,
                                            "Null pointer dereference"),
        helper<overflow_error, runtime_error>(__LINE__, [] { throwOverflow(F, 10); }, 1000024, "Integer overflow"),
        helper<invalid_argument, logic_error>(__LINE__, [] { throwInvalidArgument(F, 10); }, 1000010,
                                              "Invalid argument"),
        helper<runtime_error, exception>(__LINE__, [] { throwInvalidSorting(F, 10); }, 1000008, "Invalid sorting"),
        helper<runtime_error, exception>(__LINE__, [] { throwBadData(F, 10, 42); }, 1000033,
                                         "Data error, unexpected value: 42"),
        helper<out_of_range, logic_error>(__LINE__, [] { throwOutOfRange(F, 10, 7, 0, 5); }, 1000003,
                                          "Index 7 out of range [0, 5)"),
        helper<out_of_range, logic_error>(__LINE__, [] { impl::throwOutOfRange(F, 10, "key does not exist"); },
                                          1000003, "key does not exist"),
        helper<out_of_range, logic_error>(__LINE__, [] { impl::throwOutOfRange(F, 10, -1, 0, 3); }, 1000003,
                                          "Index -1 out of range [0, 3)"),
        helper<regex_error, runtime_error>(__LINE__, [] { regex_error::doThrow(F, 10, error_syntax, "a(b"); }, 1000037,
                                           "Regular expression error no.ERR_UVT_REGEXP+14:regex_error(error_syntax). a(b"),
        helper<regex_error, runtime_error>(__LINE__, [] { regex_error::doThrowUserInterrupt(F, 10); }, 1000037,
                                           "Regular expression error no.ERR_UVT_REGEXP+15:regex_error. Matching "
                                           "interrupted by the user"),
        helper<bad_weak_ptr, exception>(__LINE__, [] { throw_uvt_bad_weak_ptr(F, 10); }, 1000023, "Bad weak_ptr"),
        helper<bad_function_call, exception>(__LINE__, [] { throw_uvt_bad_function_call(F, 10); }, 1000028,
                                             "Bad function call"),
        helper<ios_base::failure, exception>(__LINE__, [] { ios_base::throwIOSFailure(F, 10, "custom text"); },
                                             1000087, "custom text"),
    };
}

void expect_thrown_as_described(const ThrowCase& c)
{
    SCOPED_TRACE(testing::Message() << "row at line " << c.line);
    EXPECT_TRUE(c.caught_as_bases(c.thrower)) << "not caught as every base";
    try {
        c.thrower();
        ADD_FAILURE() << "nothing thrown";
    } catch (const uvt::exception& e) {
        EXPECT_EQ(typeid(e), *c.type) << "thrown as " << typeid(e).name();
        EXPECT_EQ(e.error_no(), c.error_no);
        EXPECT_EQ(e.line(), 10);
        EXPECT_EQ(expanded(e), c.message);
        // The header: the type word, for regex_error its code, the end word.
        auto header = words({0xFACE0000u + c.type_number});
        if (const auto* regex = dynamic_cast<const uvt::regex_error*>(&e))
            header = words({0xFACE0000u + c.type_number, static_cast<std::uint32_t>(regex->code())});
        const auto end_word = words({0xFACADE01u});
        header.insert(header.end(), end_word.begin(), end_word.end());
        EXPECT_EQ(type_header(e), header);
    }
    EXPECT_EQ(uvt::exception::get_first_registered(), nullptr) << "unwinding must unregister the thrown object";
}

TEST(ExceptionClasses, ThrownAsTheirOwnClassWithNumberAndMessage)
{
    for (const ThrowCase& c : class_cases())
        expect_thrown_as_described(c);
}

TEST(ThrowHelpers, ThrowTheirClassWithNumberAndMessage)
{
    for (const ThrowCase& c : helper_cases())
        expect_thrown_as_described(c);
}

TEST(ExceptionClasses, WithoutMemoryTheyStillCarryTheirNumber)
{
    auto& exceptions = uvt_test::test_host::instance().exceptions;
    for (const ThrowCase& c : class_cases()) {
        SCOPED_TRACE(testing::Message() << "row at line " << c.line);
        const unsigned long live_before = exceptions.live_blocks();
        for (unsigned long n = 1; n < 100; ++n) {
            const unsigned long failures_before = exceptions.failures();
            exceptions.fail_at(n);
            try {
                c.thrower();
            } catch (const uvt::exception& e) {
                EXPECT_EQ(typeid(e), *c.type);
                EXPECT_EQ(e.error_no(), c.error_no);
                EXPECT_EQ(e.line(), 10);
                e.mark_processed();
            }
            exceptions.fail_at(0);
            EXPECT_EQ(exceptions.live_blocks(), live_before) << "leak when allocation " << n << " failed";
            if (exceptions.failures() == failures_before)
                break;
        }
    }
}

TEST(ExceptionClasses, StandardMirrorsAnswerWhatThroughBothBasesAndCopiesShareThePayload)
{
    const uvt::bad_cast e(F, 10);
    const std::bad_cast& as_std = e;
    const uvt::exception& as_uvt = e;
    EXPECT_STREQ(as_std.what(), "Bad cast $REASON$");
    EXPECT_STREQ(as_std.what(), as_uvt.what());
    EXPECT_STREQ(e.get_msgarg_by_name("REASON"), "");

    // The (base, std) form is a copy of the base: same payload, same number.
    const uvt::exception base(F, 11, uvt__ERR_UVT_RUNTIME());
    const uvt::bad_typeid copy(base, std::bad_typeid());
    EXPECT_TRUE(copy == base);
    EXPECT_EQ(copy.error_no(), 1000013);
    EXPECT_EQ(copy.line(), 11);
    base.mark_processed();

    // Copies share the payload, and do_throw throws a copy of the class.
    uvt::out_of_range original(F, 10, 3, 0, 2);
    uvt::out_of_range assigned;
    assigned = original;
    EXPECT_TRUE(uvt::out_of_range(original) == original);
    EXPECT_TRUE(assigned == original);
    EXPECT_STREQ(assigned.get_msgarg_by_name("IDX"), "3");
    EXPECT_STREQ(assigned.get_msgarg_by_name("END"), "2");
    const uvt::ios_base::failure failure(F, 11);
    for (const uvt::exception* e : {static_cast<const uvt::exception*>(&original),
                                    static_cast<const uvt::exception*>(&failure)}) {
        try {
            e->do_throw();
        } catch (const uvt::exception& thrown) {
            EXPECT_TRUE(thrown == *e) << typeid(*e).name() << ": do_throw throws a copy sharing the payload";
        }
        e->mark_processed();
    }
}

TEST(RegexError, ErrMsgFollowsTheCode)
{
    // Spot checks of the library's text table and the codes beyond it.
    struct Row { int code; const char* text; } rows[] = {
        {0, "regex_error(error_collate): The expression contained an invalid collating element name."},
        {13, "regex_error(error_parse)"},
        {15, "regex_error"},
        {99, "regex_error"},
        {-1, "regex_error"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.code);
        EXPECT_STREQ(uvt::regex_error::error_message(r.code), r.text);
        const uvt::regex_error e(F, 10, static_cast<error_type>(r.code), nullptr);
        EXPECT_STREQ(e.get_msgarg_by_name("ERR_MSG"), r.text);
        EXPECT_EQ(e.get_msgarg_by_name("ERR_NO"), std::to_string(r.code));
        EXPECT_EQ(e.code(), r.code);
        e.mark_processed();
    }
}

} // namespace
