// Integer parsing: strtoint's blanks, signs, prefixes, bases, stops and its
// wrap-test overflow check, each text parsed as char and as wchar_t right
// before an inaccessible page; the throwing wrappers and their exceptions.
// Random texts in every base are compared with glibc by the fuzz target.

#include <uvt/impl/itoa>
#include <uvt/stdexcept>
#include <uvt/string>

#include "support/caught.h"
#include "support/guarded_memory.h"
#include "support/test_allocator.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

namespace {

using uvt_test::caught;
using uvt_test::guarded;
using uvt_test::widened;

// A text in a base, its value, the offset of the first character not used and errno.
template <class T>
struct Row {
    int line;
    std::string text;
    int base;
    T value;
    long stop;
    int error;
};

// Parses the row's text as C, ending right before an inaccessible page.
template <class T, class C>
void expectParsed(const Row<T>& row, const std::basic_string<C>& s)
{
    const guarded<C> text(s);
    const C* stop = nullptr;
    errno = -1;
    const T value = uvt::strtoint<T, C>(text.begin(), &stop, row.base);
    EXPECT_EQ(value, row.value) << "line " << row.line;
    EXPECT_EQ(stop - text.begin(), row.stop) << "line " << row.line;
    EXPECT_EQ(errno, row.error) << "line " << row.line;
}

template <class T>
void expectRows(const std::vector<Row<T>>& rows)
{
    for (const Row<T>& row : rows) {
        expectParsed(row, row.text);
        expectParsed(row, widened(row.text));
    }
}

TEST(StrToInt, EdgeCasesAndTheWrappers)
{
    expectRows<long>({
        {__LINE__, " \t-0x1A", 16, -26, 7, 0},
        {__LINE__, " \t-0x1A", 0, -26, 7, 0},
        {__LINE__, "\n\r+42x", 10, 42, 5, 0},
        {__LINE__, "\v5", 10, 0, 0, 0}, // vertical tab and form feed are no blanks
        {__LINE__, "\f5", 10, 0, 0, 0},
        {__LINE__, "- 5", 10, 0, 0, 0},
        {__LINE__, "0X1A", 0, 0, 1, 0}, // upper-case X is no prefix: octal "0"
        {__LINE__, "017", 0, 15, 3, 0},
        {__LINE__, "08", 0, 0, 1, 0},
        {__LINE__, "0x", 0, 0, 0, 0},
        {__LINE__, "0xg", 16, 0, 0, 0},
        {__LINE__, "0x10", 10, 0, 1, 0},
        {__LINE__, "1A", 16, 26, 2, 0},
        {__LINE__, "zZ", 36, 1295, 2, 0},
        {__LINE__, "1a", 10, 1, 1, 0},
        {__LINE__, "102", 2, 2, 2, 0},
        {__LINE__, "9223372036854775807", 10, LONG_MAX, 19, 0},
        {__LINE__, "9223372036854775808", 10, LONG_MAX, 18, ERANGE},
        {__LINE__, "-9223372036854775807", 10, -LONG_MAX, 20, 0},
        // The magnitude overflows before it is negated.
        {__LINE__, "-9223372036854775808", 10, LONG_MIN, 19, ERANGE},
        {__LINE__, "7fffffffffffffff0", 16, LONG_MAX, 16, ERANGE},
        // A step that wraps past 2^64 to a larger value escapes the wrap test.
        {__LINE__, "21000000000000000000", 10, 2553255926290448384L, 20, 0},
        {__LINE__, "", 10, 0, 0, 0},
        {__LINE__, "-", 10, 0, 0, 0},
        {__LINE__, " +", 0, 0, 0, 0},
        {__LINE__, "\xC3\xA9", 10, 0, 0, 0},
        {__LINE__, "5\xFF", 16, 5, 1, 0},
        {__LINE__, "7", 1, 0, 0, EINVAL},
        {__LINE__, "7", 37, 0, 0, EINVAL},
        {__LINE__, "7", -2, 0, 0, EINVAL},
    });
    expectRows<unsigned long>({
        {__LINE__, "18446744073709551615", 10, ULONG_MAX, 20, 0},
        {__LINE__, "18446744073709551616", 10, ULONG_MAX, 19, ERANGE},
        {__LINE__, "ffffffffffffffff", 16, ULONG_MAX, 16, 0},
        {__LINE__, "0x10000000000000000", 0, ULONG_MAX, 18, ERANGE},
        {__LINE__, "-1", 10, ULONG_MAX, 2, 0}, // negated in unsigned arithmetic
        {__LINE__, "-18446744073709551616", 10, 0, 20, ERANGE},
    });

    // The throwing wrappers: values, characters used and failures.
    std::size_t pos = 0;
    EXPECT_EQ(uvt::stoi(" -42xyz", &pos), -42);
    EXPECT_EQ(pos, 4u);
    EXPECT_EQ(uvt::stoi(L"-2147483648", &pos), INT_MIN);
    EXPECT_EQ(uvt::stoui("ffffffff", nullptr, 16), UINT_MAX);
    EXPECT_EQ(uvt::stoi64(L"-9223372036854775807"), -LONG_MAX);
    EXPECT_EQ(uvt::stoui64("0x8000000000000000", nullptr, 0), 1ULL << 63);
    EXPECT_EQ(uvt::stol("017", &pos, 0), 15);
    EXPECT_EQ(pos, 3u);
    EXPECT_EQ(uvt::stoll(L"123"), 123);
    EXPECT_EQ(uvt::stoul("-1"), ULONG_MAX);

    uvt_test::counting_allocator a;
    const uvt::basic_string<wchar_t> heap((L"-0x7b" + std::wstring(70, L'z')).c_str(), a);
    EXPECT_EQ(uvt::stoi(heap, &pos, 0), -123);
    EXPECT_EQ(pos, 5u);
    const uvt::basic_string<char> view{uvt::basic_string_retval<char>("4294967295")};
    EXPECT_EQ(uvt::stoui(view), 4294967295u);
    EXPECT_EQ(uvt::stoi64(view), 4294967295);
    EXPECT_EQ(uvt::stoui64(view), 4294967295u);
    EXPECT_EQ(uvt::stol(view), 4294967295);
    EXPECT_EQ(uvt::stoll(view), 4294967295);
    EXPECT_EQ(uvt::stoul(view), 4294967295u);
    caught<uvt::out_of_range>([&] { uvt::stoi(view); });
    caught<uvt::invalid_argument>([&] { uvt::stol(uvt::basic_string<char>(a)); });

    const auto range = caught<uvt::out_of_range>([] { uvt::stoi("99999999999"); });
    EXPECT_STREQ(range.get_msgarg_by_name("IDX"), "99999999999");
    EXPECT_STREQ(range.get_msgarg_by_name("BEG"), "-2147483648");
    EXPECT_STREQ(range.get_msgarg_by_name("END"), "2147483647");
    EXPECT_STREQ(caught<uvt::out_of_range>([] { uvt::stoui(L"-1"); }).get_msgarg_by_name("IDX"), "-1");
    caught<uvt::out_of_range>([] { uvt::stoui("4294967296"); });
    caught<uvt::invalid_argument>([] { uvt::stoi("abc"); });
    caught<uvt::invalid_argument>([] { uvt::stol(L""); });
    caught<uvt::invalid_argument>([] { uvt::stoul("12", nullptr, 99); });
    caught<uvt::overflow_error>([] { uvt::stoi64("9223372036854775808"); });
    caught<uvt::overflow_error>([] { uvt::stoui64(L"18446744073709551616"); });
    caught<uvt::null_pointer>([] { uvt::stoll(static_cast<const char*>(nullptr)); });
    pos = 77;
    caught<uvt::invalid_argument>([&] { uvt::stoi("-", &pos); });
    EXPECT_EQ(pos, 77u); // untouched on failure
}

} // namespace
