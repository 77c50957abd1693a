// Floating point to text: ecvt_r's digits, point and sign against glibc's
// correctly rounded printf, dtoa's placement of the point against printf's
// "%.*g", the special values and the buffer limits. Round trips through
// uvt::strtod are left to the fuzz target.

#include <uvt/impl/dtoa>

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <string>

namespace {

struct Digits {
    std::string digits;
    int decpt = 0, sign = 0, result = 0;
    bool operator==(const Digits&) const = default;
};

void PrintTo(const Digits& d, std::ostream* os)
{
    *os << '"' << d.digits << "\" point " << d.decpt << " sign " << d.sign << " result " << d.result;
}

// What ecvt_r gives; only the result when it fails.
Digits ours(double value, int ndigits, std::size_t len = 40)
{
    Digits d;
    char buffer[40];
    d.result = uvt::ecvt_r(value, ndigits, &d.decpt, &d.sign, buffer, len);
    if (d.result != 0)
        return {"", 0, 0, d.result};
    d.digits = buffer;
    return d;
}

// The correctly rounded digits from glibc's printf (its ecvt_r pre-scales
// tiny values in floating point and is off there).
Digits glibcs(double value, int ndigits)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%+.*e", ndigits - 1, value);
    Digits d;
    d.sign = buffer[0] == '-';
    d.digits = std::string(1, buffer[1]) + (ndigits > 1 ? std::string(buffer + 3, std::size_t(ndigits - 1)) : "");
    d.decpt = std::atoi(std::strchr(buffer, 'e') + 1) + 1;
    return d;
}

std::string text(double value, int ndigits, std::size_t len = uvt::dtoa_buffer_size)
{
    char buffer[uvt::dtoa_buffer_size];
    const char* result = uvt::dtoa(value, ndigits, buffer, len);
    return result ? result : "(null)";
}

// The digits as a number; a carry into a new digit counts as one step.
bool withinOneLastDigit(const Digits& a, const Digits& b)
{
    const long x = std::atol(a.digits.c_str()), y = std::atol(b.digits.c_str());
    if (a.decpt == b.decpt)
        return std::labs(x - y) <= 1;
    const Digits& low = a.decpt < b.decpt ? a : b;
    const Digits& high = a.decpt < b.decpt ? b : a;
    return high.decpt == low.decpt + 1 && low.digits.find_first_not_of('9') == std::string::npos &&
           high.digits.find_first_not_of('0', 1) == std::string::npos && high.digits[0] == '1';
}

double randomDouble(std::mt19937_64& rng)
{
    for (;;) {
        const std::uint64_t bits = rng();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isfinite(value))
            return value;
    }
}

// The special values only as far as a buffer of `len` characters holds them.
TEST(EcvtRAndDtoa, RowsAndAgreementWithGlibc)
{
    constexpr int failed = -1;
    const struct {
        int line;
        double value;
        int ndigits;
        std::size_t len;
        Digits expected;
    } rows[] = {
        {__LINE__, 1.5, 3, 40, {"150", 1, 0}},
        {__LINE__, 0.001234, 2, 40, {"12", -2, 0}},
        {__LINE__, -123456.0, 4, 40, {"1235", 6, 1}},
        {__LINE__, 0.125, 2, 40, {"12", 0, 0}}, // exact tie: to even
        {__LINE__, 0.375, 2, 40, {"38", 0, 0}},
        {__LINE__, 9.99, 2, 40, {"10", 2, 0}}, // rounding carries into a new digit
        {__LINE__, 0.0, 3, 40, {"000", 1, 0}},
        {__LINE__, -0.0, 1, 40, {"0", 1, 1}},
        {__LINE__, 1e23, 30, 40, {"99999999999999992", 23, 0}}, // at most 17 digits
        {__LINE__, DBL_MAX, 17, 40, {"17976931348623157", 309, 0}},
        {__LINE__, DBL_TRUE_MIN, 17, 40, {"49406564584124654", -323, 0}},
        {__LINE__, HUGE_VAL, 5, 9, {"Infinity", 0, 0}},
        {__LINE__, -HUGE_VAL, 5, 40, {"Infinity", 0, 1}},
        {__LINE__, std::numeric_limits<double>::quiet_NaN(), 5, 40, {"QNaN", 0, 0}},
        {__LINE__, std::numeric_limits<double>::signaling_NaN(), 5, 40, {"SNaN", 0, 0}},
        {__LINE__, HUGE_VAL, 5, 8, {"Inf", 0, 0}},
        {__LINE__, HUGE_VAL, 5, 3, {"", 0, 0, failed}},
        {__LINE__, 1.5, 5, 6, {"15000", 1, 0}},
        {__LINE__, 1.5, 5, 5, {"", 0, 0, failed}},
        {__LINE__, 1.5, 0, 40, {"", 0, 0, failed}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ours(row.value, row.ndigits, row.len), row.expected) << "line " << row.line;
    int decpt, sign;
    EXPECT_EQ(uvt::ecvt_r(1.5, 3, &decpt, &sign, nullptr, 10), failed);

    // dtoa places the point.
    constexpr std::size_t full = uvt::dtoa_buffer_size;
    const struct {
        int line;
        double value;
        int ndigits;
        std::size_t len;
        const char* text;
    } texts[] = {
        {__LINE__, 123.25, 12, full, "123.25"},
        {__LINE__, 0.0001, 12, full, "0.0001"},
        {__LINE__, 0.00001, 12, full, "1e-05"},
        {__LINE__, 100000000000.0, 12, full, "100000000000"},
        {__LINE__, 1e12, 12, full, "1e+12"},
        {__LINE__, 1e100, 12, full, "1e+100"},
        {__LINE__, 2e-300, 3, full, "2e-300"},
        {__LINE__, -2.5, 3, full, "-2.5"},
        {__LINE__, 2.0 / 3, 3, full, "0.667"},
        {__LINE__, 999999.5, 6, full, "1e+06"},
        {__LINE__, 0.0, 12, full, "0"},
        {__LINE__, -0.0, 12, full, "-0"},
        {__LINE__, -DBL_MAX, 40, full, "-1.7976931348623157e+308"},
        {__LINE__, -DBL_MIN, 17, full, "-2.2250738585072014e-308"},
        {__LINE__, -HUGE_VAL, 12, full, "-Infinity"},
        {__LINE__, -std::numeric_limits<double>::quiet_NaN(), 12, full, "QNaN"},
        {__LINE__, -HUGE_VAL, 12, 9, "-Inf"},
        {__LINE__, 123.25, 12, 7, "123.25"},
        {__LINE__, 123.25, 12, 6, "(null)"},
        {__LINE__, 1.0, 0, full, "(null)"},
    };
    for (const auto& row : texts)
        EXPECT_EQ(text(row.value, row.ndigits, row.len), row.text) << "line " << row.line;

    // ecvt_r is at most one unit in the last digit from glibc's correctly rounded
    // digits and nearly always identical; dtoa writes printf's "%.*g" whenever
    // its digits agree with glibc's.
    std::mt19937_64 rng(3);
    constexpr int count = 50000;
    int identical_digits = 0, identical_texts = 0;
    for (int i = 0; i < count; ++i) {
        double value = randomDouble(rng);
        int exponent;
        if (i % 2) // also plenty of values with small exponents
            value = std::ldexp(std::frexp(value, &exponent), int(rng() % 80) - 40);
        const int ndigits = 1 + int(rng() % 17);
        const Digits d = ours(value, ndigits), reference = glibcs(value, ndigits);
        ASSERT_TRUE(withinOneLastDigit(d, reference)) << value << " " << d.digits << " " << reference.digits;
        ASSERT_EQ(d.sign, reference.sign);
        const bool same_digits = d.digits == reference.digits && d.decpt == reference.decpt;
        identical_digits += same_digits;
        char expected[64];
        std::snprintf(expected, sizeof expected, "%.*g", ndigits, value);
        const std::string shown = text(value, ndigits);
        identical_texts += shown == expected;
        ASSERT_TRUE(shown == expected || !same_digits) << shown << " " << expected;
    }
    std::printf("identical to glibc: %.4f%%\n", 100.0 * identical_digits / count);
    EXPECT_GE(identical_digits, count - count / 500);
    EXPECT_GE(identical_texts, count - count / 500);
}

} // namespace
