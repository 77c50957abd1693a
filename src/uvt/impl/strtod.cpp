// Decimal text to binary floating point: the scanner, the scaling by powers
// of ten, the rounding into the target format, and the throwing wrappers.

#include <uvt/impl/strtod>

#include "number_check.h"

#include <uvt/string>

#include <cerrno>
#include <cmath>
#include <type_traits>

namespace uvt {

namespace {

// Digits kept exactly; 10^17 - 1 fits in 64 bits with room to spare.
constexpr int max_kept_digits = 17;
// Exponent digits beyond this magnitude no longer change the result.
constexpr long exponent_saturation = 100000;

template <class C>
unsigned decimal_digit(C c) noexcept
{
    return static_cast<unsigned>(static_cast<std::make_unsigned_t<C>>(c)) - unsigned('0');
}

// What the scanner found: value = digits * 10^exponent with `count` kept
// digits (0: no significant digit); `stop` is the first character that is
// not part of the number.
template <class C>
struct scanned_decimal {
    std::uint64_t digits = 0;
    int count = 0;
    long exponent = 0;
    const C* stop;
};

// Takes the digits at `p` into `number`: while fewer than 17 are kept, each
// is appended and moves the exponent by `kept_shift`; later ones are
// dropped and move it by kept_shift + 1. Returns the first non-digit.
template <class C>
[[gnu::always_inline]] inline const C* take_digits(const C* p, scanned_decimal<C>& number, int kept_shift) noexcept
{
    std::uint64_t digits = number.digits;
    int count = number.count;
    const C* const first = p;
    // Four digits at a time shorten the chain of dependent multiplications
    // (digit runs are long in practice). Each character is only read after
    // the one before it proved to be a digit, never past the terminating zero.
    for (unsigned a, b, c, d;
         count <= max_kept_digits - 4 && (a = decimal_digit(p[0])) < 10 && (b = decimal_digit(p[1])) < 10 &&
         (c = decimal_digit(p[2])) < 10 && (d = decimal_digit(p[3])) < 10;
         p += 4, count += 4)
        digits = digits * 10000 + (a * 1000 + b * 100 + c * 10 + d);
    for (unsigned digit; count < max_kept_digits && (digit = decimal_digit(*p)) < 10; ++p, ++count)
        digits = digits * 10 + digit;
    const C* const dropped = p;
    while (decimal_digit(*p) < 10)
        ++p;
    number.digits = digits;
    number.count = count;
    number.exponent += kept_shift * (dropped - first) + (kept_shift + 1) * (p - dropped);
    return p;
}

// Digits with at most one point. Leading zeros are skipped (after the point
// they lower the exponent); the first 17 significant digits are kept, later
// ones before the point raise the exponent and later ones after it are
// dropped.
template <class C>
[[gnu::always_inline]] inline scanned_decimal<C> scan_mantissa(const C* p) noexcept
{
    scanned_decimal<C> number;
    while (*p == C('0'))
        ++p;
    p = take_digits(p, number, 0);
    if (*p == C('.')) {
        ++p;
        if (number.count == 0) {
            const C* const zeros = p;
            while (*p == C('0'))
                ++p;
            number.exponent -= p - zeros;
        }
        p = take_digits(p, number, -1);
    }
    number.stop = p;
    return number;
}

// An exponent part at number.stop: "e" or "E", an optional sign (a blank
// counts as "+"), then digits. Without digits nothing is taken.
template <class C>
[[gnu::always_inline]] inline void scan_exponent(scanned_decimal<C>& number) noexcept
{
    const C* p = number.stop;
    if (*p != C('e') && *p != C('E'))
        return;
    ++p;
    const bool negative = *p == C('-');
    if (negative || *p == C('+') || *p == C(' '))
        ++p;
    if (decimal_digit(*p) >= 10)
        return;
    long exponent = 0;
    for (unsigned digit; (digit = decimal_digit(*p)) < 10; ++p)
        if (exponent < exponent_saturation)
            exponent = exponent * 10 + digit;
    number.exponent += negative ? -exponent : exponent;
    number.stop = p;
}

// `mantissa` (not zero) shifted until its top bit is set.
inline impl::normalized_float normalize(std::uint64_t mantissa) noexcept
{
    const int shift = __builtin_clzll(mantissa);
    return {mantissa << shift, 64 - shift};
}

// m / 2^dropped rounded to nearest, ties to even.
inline std::uint64_t round_off(std::uint64_t m, int dropped) noexcept
{
    if (dropped == 0)
        return m;
    if (dropped > 64)
        return 0;
    const std::uint64_t kept = dropped == 64 ? 0 : m >> dropped;
    const std::uint64_t rest = dropped == 64 ? m : m & ((std::uint64_t(1) << dropped) - 1);
    const std::uint64_t half = std::uint64_t(1) << (dropped - 1);
    return kept + ((rest > half) | ((rest == half) & (kept & 1)));
}

// x in the target format: rounded to Layout::precision bits (fewer for a
// subnormal), ERANGE and infinity when the exponent does not fit.
template <class F, class Layout, int ExponentWidthPlusOne, int Bias>
[[gnu::always_inline]] inline F round_to_format(bool negative, impl::normalized_float x) noexcept
{
    constexpr unsigned max_exponent = (1u << (ExponentWidthPlusOne - 1)) - 1;
    constexpr int precision = Layout::precision;
    constexpr std::uint64_t leading_one = std::uint64_t(1) << (precision - 1);
    int exponent = x.exponent - 1 + Bias; // the value is 1.f * 2^(x.exponent - 1)
    std::uint64_t significand;
    if (exponent > 0) {
        significand = round_off(x.mantissa, 64 - precision);
        if constexpr (precision < 64) {
            if (significand >> precision) { // rounding carried out of the top
                significand >>= 1;
                ++exponent;
            }
        }
    } else { // subnormal: the significand at the scale of exponent 1
        significand = round_off(x.mantissa, 64 - precision + 1 - exponent);
        exponent = significand >= leading_one; // 1: rounded up to the smallest normal number
    }
    if (exponent >= int(max_exponent)) {
        errno = ERANGE;
        return Layout::compose(negative, max_exponent, leading_one);
    }
    return Layout::compose(negative, unsigned(exponent), significand);
}

} // namespace

template <class F, class Layout, int ExponentWidthPlusOne, int Bias, class C>
F uvtStringToDoubleT(const C* text, const C** end) noexcept
{
    errno = 0;
    const bool negative = *text == C('-');
    const C* p = text + (negative || *text == C('+'));
    scanned_decimal<C> number = scan_mantissa(p);
    if (number.count == 0) {
        if (end)
            *end = text;
        return F(0);
    }
    scan_exponent(number);
    if (end)
        *end = number.stop + 1;
    const long position = number.count + number.exponent;
    if (position <= Layout::zero_at_or_below)
        return negative ? -F(0) : F(0);
    if (position > Layout::infinite_above) {
        errno = ERANGE;
        return negative ? -F(INFINITY) : F(INFINITY);
    }
    if (number.exponent == 0) {
        // No scaling: rounding the digits (below 2^57) to the format to
        // nearest, ties to even, is what the processor's conversion does.
        const auto whole = static_cast<F>(static_cast<std::int64_t>(number.digits));
        return negative ? -whole : whole;
    }
    const impl::normalized_float scaled = impl::uvtTenScale(normalize(number.digits), int(number.exponent));
    return round_to_format<F, Layout, ExponentWidthPlusOne, Bias>(negative, scaled);
}

template UVT_API double uvtStringToDoubleT<double, ieee754_double, 12, 1023, char>(const char*, const char**) noexcept;
template UVT_API double uvtStringToDoubleT<double, ieee754_double, 12, 1023, wchar_t>(const wchar_t*,
                                                                                      const wchar_t**) noexcept;
template UVT_API long double
uvtStringToDoubleT<long double, ieee854_long_double, 16, 16383, char>(const char*, const char**) noexcept;
template UVT_API long double
uvtStringToDoubleT<long double, ieee854_long_double, 16, 16383, wchar_t>(const wchar_t*, const wchar_t**) noexcept;

namespace {

template <class C>
double parse_double(const C* text, const C** end) noexcept
{
    return uvtStringToDoubleT<double, ieee754_double, 12, 1023, C>(text, end);
}

template <class C>
long double parse_long_double(const C* text, const C** end) noexcept
{
    return uvtStringToDoubleT<long double, ieee854_long_double, 16, 16383, C>(text, end);
}

template <class C>
float parse_float(const C* text, const C** end) noexcept
{
    const double wide = parse_double(text, end);
    const auto narrow = static_cast<float>(wide);
    if (std::isinf(narrow) && !std::isinf(wide))
        errno = ERANGE;
    return narrow;
}

} // namespace

double strtod(const char* text, const char** end) noexcept { return parse_double(text, end); }
long double strtold(const char* text, const char** end) noexcept { return parse_long_double(text, end); }
float strtof(const char* text, const char** end) noexcept { return parse_float(text, end); }

double stod(const char* text, std::size_t* pos) { return impl::parse_checked(parse_double<char>, text, pos); }
double stod(const wchar_t* text, std::size_t* pos) { return impl::parse_checked(parse_double<wchar_t>, text, pos); }
long double stold(const char* text, std::size_t* pos)
{
    return impl::parse_checked(parse_long_double<char>, text, pos);
}
long double stold(const wchar_t* text, std::size_t* pos)
{
    return impl::parse_checked(parse_long_double<wchar_t>, text, pos);
}
float stof(const char* text, std::size_t* pos) { return impl::parse_checked(parse_float<char>, text, pos); }
float stof(const wchar_t* text, std::size_t* pos) { return impl::parse_checked(parse_float<wchar_t>, text, pos); }

// clang-format off
double stod(const basic_string<char>& text, std::size_t* pos) { return stod(text.c_str(), pos); }
double stod(const basic_string<wchar_t>& text, std::size_t* pos) { return stod(text.c_str(), pos); }
long double stold(const basic_string<char>& text, std::size_t* pos) { return stold(text.c_str(), pos); }
long double stold(const basic_string<wchar_t>& text, std::size_t* pos) { return stold(text.c_str(), pos); }
float stof(const basic_string<char>& text, std::size_t* pos) { return stof(text.c_str(), pos); }
float stof(const basic_string<wchar_t>& text, std::size_t* pos) { return stof(text.c_str(), pos); }
// clang-format on

} // namespace uvt
