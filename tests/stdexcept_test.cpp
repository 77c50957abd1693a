// The exception classes and throw helpers (ios_base::failure included): their
// bases, each one thrown and caught as its own class with its error number,
// type number, expanded message and type header; their behaviour when the
// exception allocator fails.
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
#include <type_traits>
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
    s.erase(0, s.find(": ") + 2); // "exception <number>: "
    while (!s.empty() && s.back() == '\n')
        s.pop_back();
    return s;
}

// The public bases handlers catch the classes as (every class is caught as
// uvt::exception in the tests below).
template <class Base, class... E>
constexpr bool all_derive = (std::is_convertible_v<E*, Base*> && ...);
static_assert(all_derive<uvt::logic_error, uvt::domain_error, uvt::invalid_argument, uvt::length_error,
                         uvt::out_of_range, uvt::wrong_enum_type>);
static_assert(
    all_derive<uvt::runtime_error, uvt::overflow_error, uvt::range_error, uvt::underflow_error, uvt::null_pointer,
               uvt::invalid_unicode_symbol, uvt::regex_error, uvt::time_conversion_error, uvt::invalid_guid_symbol>);
static_assert(all_derive<uvt::overflow_error, uvt::time_overflow_error>);
static_assert(all_derive<std::bad_cast, uvt::bad_cast> && all_derive<std::bad_typeid, uvt::bad_typeid> &&
              all_derive<std::bad_exception, uvt::bad_exception>);

// One way of throwing, and what the catcher must find; the message names
// the row.
struct ThrowCase {
    std::function<void()> thrower;
    const std::type_info* type;
    unsigned short type_number;
    int error_no;
    std::string message;
};

// `make` builds an E, thrown through a uvt::exception reference so that
// only the virtual do_throw can give it back its real class.
template <class E, class Make>
ThrowCase made(Make make, unsigned short type_number, int error_no, std::string message)
{
    EXPECT_EQ(E::type_number, type_number) << message << ": the published type number";
    return {[make] { uvt::tThrow(static_cast<const uvt::exception&>(make())); }, &typeid(E), type_number, error_no,
            std::move(message)};
}

// An E built from (F, 10, args...).
template <class E, class... Args>
ThrowCase object(unsigned short type_number, int error_no, std::string message, Args... args)
{
    return made<E>([=] { return E(F, 10, args...); }, type_number, error_no, std::move(message));
}

// A throw helper that must throw an E.
template <class E>
ThrowCase helper(std::function<void()> thrower, int error_no, std::string message)
{
    return {std::move(thrower), &typeid(E), E::type_number, error_no, std::move(message)};
}

const char* const no_text = nullptr;

std::vector<ThrowCase> class_cases()
{
    using namespace uvt;
    return {
        object<bad_cast>(2, 1000009, "Bad cast "),
        object<bad_cast>(2, 1000009, "Bad cast std::bad_cast", std::bad_cast()),
        object<bad_typeid>(3, 1000018, "Null pointer in typeid "),
        object<bad_exception>(4, 1000022, "Unexpected exception std::bad_exception", std::bad_exception()),
        object<logic_error>(5, 1000014, "custom text", "custom text"),
        object<logic_error>(5, 1000014, "Logic error", no_text),
        object<domain_error>(6, 4711, "numbered", 4711, "numbered"),
        object<invalid_argument>(7, 1000010, "Invalid argument"),
        object<length_error>(8, 1000035, "Buffer overflow", uvt__ERR_UVT_BUF_OVERFLOW()),
        object<out_of_range>(9, 1000003, "Index 7 out of range [0, 5)", 7, 0, 5),
        object<runtime_error>(10, 1000013, "Runtime error", no_text),
        object<overflow_error>(11, 1000024, "Integer overflow"),
        object<range_error>(12, 1000012, "Range error"),
        object<underflow_error>(13, 1000017, "Underflow error", no_text),
        object<null_pointer>(14, 1000021, "Null pointer dereference"),
        object<invalid_iterator_error>(16, 1000006, "Incompatible or invalid iterator"),
        object<rvalue_error>(17, 1000011, "RValue change: abc", "abc"),
        object<incomparable_iterators>(18, 1000020, "Iterators point to different map containers", "map"),
        object<invalid_unicode_symbol>(19, 1000032, "Invalid unicode character"),
        object<regex_error>(20, 1000037,
                            "Regular expression error no.ERR_UVT_REGEXP+5:regex_error(error_paren): "
                            "The expression contained mismatched ( and ).",
                            error_paren, no_text),
        object<wrong_enum_type>(21, 1000019, "Unexpected enum type 3: left subtree check", 3, "left subtree check"),
        object<time_overflow_error>(22, 1000025, "Time overflow \"add\": 99", "add", 99),
        object<time_conversion_error>(23, 1000026, "Time conversion \"str2date\": 47", "str2date", 47),
        object<time_conversion_error>(23, 1000026, "Time conversion 1:2:3 4.5.2024", 1, 2, 3, 4, 5, 2024),
        object<bad_weak_ptr>(24, 1000023, "Bad weak_ptr"),
        made<invalid_guid_symbol>([] { return invalid_guid_symbol(10, 'x'); }, 25, 1000032,
                                  "Unexpected GUID symbol: x"),
        made<invalid_guid_symbol>([] { return invalid_guid_symbol(10, 0x17); }, 25, 1000032,
                                  "Unexpected GUID symbol: 0x17"),
        object<bad_function_call>(26, 1000028, "Bad function call"),
        object<ios_base::failure>(15, 1000087, "IO stream failed"),
    };
}

std::vector<ThrowCase> helper_cases()
{
    using namespace uvt;
    return {
        helper<null_pointer>([] { throwNullPointer(F, 10); }, 1000021, "Null pointer dereference"),
        helper<overflow_error>([] { throwOverflow(F, 10); }, 1000024, "Integer overflow"),
        helper<invalid_argument>([] { throwInvalidArgument(F, 10); }, 1000010, "Invalid argument"),
        helper<runtime_error>([] { throwInvalidSorting(F, 10); }, 1000008, "Invalid sorting"),
        helper<runtime_error>([] { throwBadData(F, 10, 42); }, 1000033, "Data error, unexpected value: 42"),
        helper<out_of_range>([] { throwOutOfRange(F, 10, 7, 0, 5); }, 1000003, "Index 7 out of range [0, 5)"),
        helper<out_of_range>([] { impl::throwOutOfRange(F, 10, "key does not exist"); }, 1000003, "key does not exist"),
        helper<out_of_range>([] { impl::throwOutOfRange(F, 10, -1, 0, 3); }, 1000003, "Index -1 out of range [0, 3)"),
        helper<regex_error>([] { regex_error::doThrow(F, 10, error_syntax, "a(b"); }, 1000037,
                            "Regular expression error no.ERR_UVT_REGEXP+14:regex_error(error_syntax). a(b"),
        helper<regex_error>([] { regex_error::doThrowUserInterrupt(F, 10); }, 1000037,
                            "Regular expression error no.ERR_UVT_REGEXP+15:regex_error. Matching interrupted by "
                            "the user"),
        helper<bad_weak_ptr>([] { throw_uvt_bad_weak_ptr(F, 10); }, 1000023, "Bad weak_ptr"),
        helper<bad_function_call>([] { throw_uvt_bad_function_call(F, 10); }, 1000028, "Bad function call"),
        helper<ios_base::failure>([] { ios_base::throwIOSFailure(F, 10, "custom text"); }, 1000087, "custom text"),
    };
}

// Thrown as its own class with number, line, expanded message and type
// header: the type word, for regex_error its code, the end word.
TEST(ExceptionClasses, ClassesAndThrowHelpersThrowTheirClassWithNumberAndMessage)
{
    auto cases = class_cases();
    for (ThrowCase& c : helper_cases())
        cases.push_back(std::move(c));
    for (const ThrowCase& c : cases) {
        SCOPED_TRACE(c.message);
        try {
            c.thrower();
            ADD_FAILURE() << "nothing thrown";
        } catch (const uvt::exception& e) {
            EXPECT_EQ(typeid(e), *c.type) << "thrown as " << typeid(e).name();
            EXPECT_EQ(e.error_no(), c.error_no);
            EXPECT_EQ(e.line(), 10);
            EXPECT_EQ(expanded(e), c.message);
            const std::uint32_t type_word = 0xFACE0000u + c.type_number, end_word = 0xFACADE01u;
            const auto* regex = dynamic_cast<const uvt::regex_error*>(&e);
            EXPECT_EQ(type_header(e), regex ? words({type_word, std::uint32_t(regex->code()), end_word})
                                            : words({type_word, end_word}));
        }
        EXPECT_EQ(uvt::exception::get_first_registered(), nullptr) << "unwinding must unregister the thrown object";
    }
}

TEST(ExceptionClasses, WithoutMemoryTheyStillCarryTheirNumber)
{
    for (const ThrowCase& c : class_cases()) {
        SCOPED_TRACE(c.message);
        uvt_test::sweep_allocation_failures(uvt_test::test_host::instance().exceptions, [&] {
            try {
                c.thrower();
            } catch (const uvt::exception& e) {
                EXPECT_EQ(typeid(e), *c.type);
                EXPECT_EQ(e.error_no(), c.error_no);
                EXPECT_EQ(e.line(), 10);
                e.mark_processed();
            }
        });
    }
}

TEST(ExceptionClasses, StandardMirrorsCopiesAndRegexErrorTexts)
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
    for (const uvt::exception* e :
         {static_cast<const uvt::exception*>(&original), static_cast<const uvt::exception*>(&failure)}) {
        try {
            e->do_throw();
        } catch (const uvt::exception& thrown) {
            EXPECT_TRUE(thrown == *e) << typeid(*e).name() << ": do_throw throws a copy sharing the payload";
        }
        e->mark_processed();
    }

    // Spot checks of the library's text table and the codes beyond it.
    struct Row {
        int code;
        const char* text;
    } rows[] = {
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
