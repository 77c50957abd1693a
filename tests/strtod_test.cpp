// Decimal text to floating point: the scanner's edge cases (each text parsed
// as char and as wchar_t right before an inaccessible page), the power-of-ten
// tables and the scaling checked against exact big-integer arithmetic, the
// rounding steps, agreement with glibc's correctly rounded strtod, and the
// throwing wrappers.

#include <uvt/impl/strtod>
#include <uvt/stdexcept>
#include <uvt/string>

#include "support/caught.h"
#include "support/guarded_memory.h"
#include "support/test_allocator.h"
#include "support/ulp_distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using uvt_test::guarded;
using uvt_test::widened;

// --- a tiny unsigned big integer, just enough for exact comparisons ---

using big = std::vector<std::uint32_t>; // little-endian limbs, no leading zero limbs

big trimmed(big v)
{
    while (!v.empty() && v.back() == 0)
        v.pop_back();
    return v;
}

big mul(big v, std::uint64_t factor)
{
    unsigned __int128 carry = 0;
    for (std::uint32_t& limb : v) {
        carry += static_cast<unsigned __int128>(limb) * factor;
        limb = std::uint32_t(carry);
        carry >>= 32;
    }
    for (; carry; carry >>= 32)
        v.push_back(std::uint32_t(carry));
    return trimmed(v);
}

big shl(big v, int bits)
{
    v.insert(v.begin(), std::size_t(bits / 32), 0u);
    return mul(v, std::uint64_t(1) << (bits % 32));
}

big add(big a, const big& b)
{
    a.resize(std::max(a.size(), b.size()) + 1, 0u);
    std::uint64_t carry = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        carry += std::uint64_t(a[i]) + (i < b.size() ? b[i] : 0);
        a[i] = std::uint32_t(carry);
        carry >>= 32;
    }
    return trimmed(a);
}

bool less(const big& a, const big& b)
{
    if (a.size() != b.size())
        return a.size() < b.size();
    return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

big power_of_ten(int p)
{
    big v{1};
    for (int i = 0; i < p; ++i)
        v = mul(v, 10);
    return v;
}

// Whether num / den lies within halfUlps / 2 units of 2^k of mantissa * 2^k.
bool within(const big& num, const big& den, std::uint64_t mantissa, int k, std::uint32_t halfUlps)
{
    big exact = mul(num, 2), approx = mul(mul(den, mantissa), 2), bound = mul(den, halfUlps);
    if (k < 0) {
        exact = shl(exact, -k);
    } else {
        approx = shl(approx, k);
        bound = shl(bound, k);
    }
    return !less(add(approx, bound), exact) && !less(add(exact, bound), approx);
}

// --- the tables and the scaling ---

int tablePower(int index) { return index < 27 ? index + 1 : index < 37 ? 28 * (index - 25) - 1 : -28 * (index - 36); }

// Multiplications the scaling takes for a decimal exponent.
std::uint32_t scaleSteps(int e)
{
    if (e >= 0)
        return std::uint32_t(e > 27 ? (e - 27 + 306) / 307 + 1 : e > 0);
    return std::uint32_t((-e + 363) / 364 + 1);
}

TEST(TenScale, TableRoundingAndScalingAgreeWithExactArithmetic)
{
    using uvt::impl::UVT_TenPower;
    using uvt::impl::UVT_TwoExp;
    for (int i = 0; i < uvt::impl::ten_power_count; ++i) {
        const int p = tablePower(i);
        SCOPED_TRACE(testing::Message() << "10^" << p << " at " << i);
        EXPECT_GE(UVT_TenPower[i], std::uint64_t(1) << 63);
        const big num = power_of_ten(p < 0 ? 0 : p);
        const big den = power_of_ten(p < 0 ? -p : 0);
        EXPECT_TRUE(within(num, den, UVT_TenPower[i], UVT_TwoExp[i] - 64, 1));
    }
    EXPECT_EQ(tablePower(36), 307);

    // uvtNormAndRound rounds half to even and carries.
    constexpr std::uint64_t top = std::uint64_t(1) << 63;
    // The exponent is relative to the input exponent 0.
    const struct {
        int line;
        uvt::impl::uint128_parts product;
        std::uint64_t mantissa;
        int exponent;
    } rows[] = {
        {__LINE__, {top, top}, top, 0},                        // tie, even: stays
        {__LINE__, {top | 1, top}, top | 2, 0},                // tie, odd: up
        {__LINE__, {top | 1, top - 1}, top | 1, 0},            // below the tie
        {__LINE__, {top, top + 1}, top | 1, 0},                // above the tie
        {__LINE__, {top >> 1, top | (top >> 1)}, top | 2, -1}, // shifted in: 1.1 then a tie on an odd bit
        {__LINE__, {top >> 1, 0}, top, -1},
        {__LINE__, {~std::uint64_t(0), top + 1}, top, 1}, // all ones carries out
    };
    for (const auto& row : rows) {
        const auto x = uvt::impl::uvtNormAndRound(row.product, 0);
        EXPECT_EQ(x.mantissa, row.mantissa) << "line " << row.line;
        EXPECT_EQ(x.exponent, row.exponent) << "line " << row.line;
    }

    // Exact for powers up to 10^27, within about one unit of the 64th bit per
    // multiplication otherwise, over the whole long double range.
    std::mt19937_64 rng(11);
    for (int i = 0; i < 400; ++i) {
        const std::uint64_t digits = 1 + rng() % 99999999999999999ULL;
        const int e = i < 300 ? int(rng() % 701) - 350 : int(rng() % 9901) - 4950;
        const int shift = __builtin_clzll(digits);
        const auto x = uvt::impl::uvtTenScale({digits << shift, 64 - shift}, e);
        const big num = mul(e >= 0 ? power_of_ten(e) : big{1}, digits);
        const big den = power_of_ten(e < 0 ? -e : 0);
        const std::uint32_t halfUlps = e >= 0 && e <= 27 ? 1 : 4 * scaleSteps(e);
        EXPECT_TRUE(within(num, den, x.mantissa, x.exponent - 64, halfUlps)) << digits << "e" << e;
    }
}

// --- the scanner ---

// A text, its value and stop offset, errno and the distance allowed from the value.
struct Row {
    int line;
    std::string text;
    double value;
    long stop;
    int error;
    int ulps;
};

template <class C>
void expectParsed(const Row& row, const std::basic_string<C>& s)
{
    const guarded<C> text(s);
    const C* stop = nullptr;
    errno = -1;
    const double value = uvt::uvtStringToDoubleT<double, uvt::ieee754_double, 12, 1023, C>(text.begin(), &stop);
    EXPECT_LE(uvt_test::ulpDistance(value, row.value), row.ulps) << "line " << row.line << ": " << value;
    EXPECT_EQ(std::signbit(value), std::signbit(row.value)) << "line " << row.line;
    EXPECT_EQ(stop - text.begin(), row.stop) << "line " << row.line;
    EXPECT_EQ(errno, row.error) << "line " << row.line;
}

// Relative distance of a long double from the expected value, in units of
// 2^-64 (about one unit in the last place).
double relativeUnits(long double value, long double expected)
{
    return double(std::fabs(value / expected - 1) * 0x1p64L);
}

// The product (2^64 + t) * 2^10 for the first odd t that makes it a whole
// number times 10^10: a tie between two long doubles, written with at most
// 17 significant digits.
std::string longDoubleTie(unsigned __int128& below)
{
    constexpr unsigned __int128 five10 = 9765625;
    unsigned __int128 t = 1;
    const unsigned __int128 two64 = static_cast<unsigned __int128>(1) << 64;
    while ((two64 + t) % five10)
        t += 2;
    below = (two64 + t - 1) << 10;
    return std::to_string(std::uint64_t((two64 + t) / five10)) + "e10";
}

// A random text of 1 to 17 significant digits with the point anywhere and
// an exponent that keeps the value well inside the double range.
std::string randomDecimal(std::mt19937_64& rng)
{
    const int digits = 1 + int(rng() % 17);
    std::string text(1, char('1' + rng() % 9));
    for (int k = 1; k < digits; ++k)
        text += char('0' + rng() % 10);
    text.insert(rng() % std::size_t(digits + 1), ".");
    return text + "e" + std::to_string(int(rng() % 591) - 290);
}

TEST(StrToD, EdgeCasesLongDoubleFloatAgreementWithGlibcAndTheWrappers)
{
    const Row rows[] = {
        {__LINE__, "12", 12, 3, 0, 0}, // one past the first unused character
        {__LINE__, "12x", 12, 3, 0, 0},
        {__LINE__, "-12", -12, 4, 0, 0},
        {__LINE__, "-2.5e-3", -0.0025, 8, 0, 1},
        {__LINE__, "+.5", 0.5, 4, 0, 1},
        {__LINE__, "1E 5", 100000, 5, 0, 0}, // the blank serves as the exponent sign
        {__LINE__, "1e+5", 100000, 5, 0, 0},
        {__LINE__, "1e", 1, 2, 0, 0}, // an exponent without digits is not taken
        {__LINE__, "1e-x", 1, 2, 0, 0},
        {__LINE__, "1e 5 ", 100000, 5, 0, 0},
        {__LINE__, "1.5.5", 1.5, 4, 0, 0},
        {__LINE__, "007", 7, 4, 0, 0},
        {__LINE__, "0.000", 0, 0, 0, 0}, // no significant digit: +0 at the beginning
        {__LINE__, "-0", 0, 0, 0, 0},
        {__LINE__, "0e5", 0, 0, 0, 0},
        {__LINE__, "", 0, 0, 0, 0},
        {__LINE__, "-", 0, 0, 0, 0},
        {__LINE__, "+", 0, 0, 0, 0},
        {__LINE__, ".", 0, 0, 0, 0},
        {__LINE__, " 1", 0, 0, 0, 0}, // no blanks in front
        {__LINE__, "inf", 0, 0, 0, 0},
        {__LINE__, "\xC2\xB9", 0, 0, 0, 0},
        {__LINE__, "1\xB9", 1, 2, 0, 0},
        {__LINE__, "1e\xB9", 1, 2, 0, 0},
        {__LINE__, "9007199254740993", 9007199254740992.0, 17, 0, 0}, // tie: to even
        {__LINE__, "9007199254740995", 9007199254740996.0, 17, 0, 0},
        {__LINE__, "9007199254740993.5", 9007199254740994.0, 19, 0, 0},
        {__LINE__, "123456789012345678901", 123456789012345670000.0, 22, 0, 0}, // 17 digits kept
        {__LINE__, "1.00000000000000000009", 1.0, 23, 0, 0},
        {__LINE__, "0.1", 0.1, 4, 0, 0},
        {__LINE__, "1e400", HUGE_VAL, 6, ERANGE, 0},
        {__LINE__, "-1e400", -HUGE_VAL, 7, ERANGE, 0},
        {__LINE__, "1e99999999999999999999", HUGE_VAL, 23, ERANGE, 0},
        {__LINE__, "1.7976931348623157e308", DBL_MAX, 23, 0, 0},
        {__LINE__, "1.7976931348623159e308", HUGE_VAL, 23, ERANGE, 0}, // rounds past the largest
        {__LINE__, "1e-400", 0, 7, 0, 0},                              // too small: zero without error
        {__LINE__, "-1e-400", -0.0, 8, 0, 0},
        {__LINE__, "5e-308", 0, 7, 0, 0}, // at or below 10^-307
        {__LINE__, "1e-307", 1e-307, 7, 0, 1},
        {__LINE__, "0.00000000000000000000000000000000000000000000000001", 1e-50, 53, 0, 1},
    };
    for (const Row& row : rows) {
        expectParsed(row, row.text);
        expectParsed(row, widened(row.text));
    }
    expectParsed({__LINE__, "", 7, 2, 0, 0},
                 std::wstring{L'7', wchar_t(0x10031)}); // wide codes above bytes are no digits

    // Long double and float.
    const char* stop;
    EXPECT_EQ(uvt::strtold("12345678901234567", &stop), 12345678901234567.0L);
    EXPECT_EQ(stop, "12345678901234567" + 18);
    unsigned __int128 even;
    const std::string tie = longDoubleTie(even);
    EXPECT_EQ(uvt::strtold(tie.c_str(), &stop), (long double)even) << tie; // tie: to even
    EXPECT_LE(relativeUnits(uvt::strtold("0.1", &stop), 0.1L), 4);
    EXPECT_LE(relativeUnits(uvt::strtold("1.18973149535723176502e4932", &stop), LDBL_MAX), 1200); // 17 digits kept
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(uvt::strtold("1.2e4932", &stop), HUGE_VALL);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(uvt::strtold("4e-4951", &stop), LDBL_TRUE_MIN); // subnormal
    EXPECT_EQ(uvt::strtold("-1e-4952", &stop), 0.0L);
    EXPECT_TRUE(std::signbit(uvt::strtold("-1e-4952", &stop)));
    EXPECT_EQ(errno, 0);

    EXPECT_EQ(uvt::strtof("3.4028235e38", &stop), FLT_MAX);
    EXPECT_EQ(uvt::strtof("3.5e38", &stop), HUGE_VALF);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(uvt::strtof("1e-50", &stop), 0.0f); // too small for float: zero without error
    EXPECT_EQ(errno, 0);

    // glibc rounds correctly; this parser is at most one unit in the last place
    // away and nearly always identical.
    std::mt19937_64 rng(5);
    constexpr int count = 100000;
    int identical = 0;
    for (int i = 0; i < count; ++i) {
        const std::string text = randomDecimal(rng);
        const double expected = std::strtod(text.c_str(), nullptr);
        const double value = uvt::strtod(text.c_str(), nullptr);
        ASSERT_LE(uvt_test::ulpDistance(value, expected), 1) << text;
        identical += value == expected;
    }
    std::printf("identical to glibc: %.4f%%\n", 100.0 * identical / count);
    EXPECT_GE(identical, count - count / 500);

    // The throwing wrappers.
    std::size_t pos = 0;
    EXPECT_EQ(uvt::stod("12", &pos), 12.0);
    EXPECT_EQ(pos, 3u);
    EXPECT_EQ(uvt::stod(L"2.5x", &pos), 2.5);
    EXPECT_EQ(pos, 4u);
    EXPECT_LE(relativeUnits(uvt::stold("-1e-2", &pos), -0.01L), 4);
    EXPECT_EQ(pos, 6u);
    EXPECT_EQ(uvt::stold(L"3"), 3.0L);
    EXPECT_EQ(uvt::stof("0.5"), 0.5f);
    EXPECT_EQ(uvt::stof(L"1e38"), 1e38f);

    uvt_test::counting_allocator a;
    const uvt::basic_string<char> heap(("-1.5e2" + std::string(70, ' ')).c_str(), a);
    EXPECT_EQ(uvt::stod(heap, &pos), -150.0);
    EXPECT_EQ(pos, 7u);
    EXPECT_EQ(uvt::stold(uvt::basic_string<wchar_t>(uvt::basic_string_retval<wchar_t>(L"0.25"))), 0.25L);
    EXPECT_EQ(uvt::stof(uvt::basic_string<char>(uvt::basic_string_retval<char>("8"))), 8.0f);

    using uvt_test::caught;
    pos = 99;
    caught<uvt::invalid_argument>([&] { uvt::stod("0", &pos); });
    EXPECT_EQ(pos, 99u);
    caught<uvt::invalid_argument>([] { uvt::stod(L"abc"); });
    caught<uvt::invalid_argument>([] { uvt::stold("-"); });
    caught<uvt::invalid_argument>([] { uvt::stof(L""); });
    caught<uvt::invalid_argument>([] { uvt::stod(uvt::basic_string<wchar_t>(uvt::allocator::global_allocator())); });
    caught<uvt::overflow_error>([] { uvt::stod("1e400"); });
    caught<uvt::overflow_error>([] { uvt::stold(L"1e5000"); });
    caught<uvt::overflow_error>([] { uvt::stof("1e39"); });
    caught<uvt::null_pointer>([] { uvt::stod(static_cast<const char*>(nullptr)); });
    caught<uvt::null_pointer>([] { uvt::stof(static_cast<const wchar_t*>(nullptr)); });
}

} // namespace
