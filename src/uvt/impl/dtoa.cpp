// Binary floating point to decimal text: the digits (ecvt_r) and their
// placement around the decimal point (dtoa).

#include "powers_of_ten.h"

#include <uvt/impl/dtoa>
#include <uvt/impl/strtod>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace uvt {

namespace {

using impl::power_of_ten;

// |value| (finite, not zero) as a normalized_float.
impl::normalized_float magnitude(double value) noexcept
{
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const int field = static_cast<int>(bits >> 52 & 0x7FF);
    const std::uint64_t fraction = bits & ((std::uint64_t(1) << 52) - 1);
    const std::uint64_t significand = field ? fraction | std::uint64_t(1) << 52 : fraction;
    const int shift = __builtin_clzll(significand);
    // value = significand * 2^(max(field, 1) - 1075)
    return {significand << shift, (field ? field : 1) - 1075 + 64 - shift};
}

// A non-negative number split at the binary point.
struct fixed_point {
    std::uint64_t integer;
    std::uint64_t fraction; // in units of 2^-64
};

// x * 10^power with its integer part saturated at 2^64 - 1.
fixed_point scaled(impl::normalized_float x, int power) noexcept
{
    const impl::normalized_float y = impl::uvtTenScale(x, power);
    if (y.exponent <= 0)
        return {0, 0};
    if (y.exponent >= 64)
        return {y.exponent == 64 ? y.mantissa : ~std::uint64_t(0), 0};
    return {y.mantissa >> (64 - y.exponent), y.mantissa << y.exponent};
}

// floor(log10(2^e)) or one more: 78913 / 2^18 lies just below log10(2).
int decimal_exponent_estimate(int binary_exponent) noexcept { return (binary_exponent * 78913) >> 18; }

// The `count` leading digits of x as an integer, rounded to nearest with
// ties to even; stores the decimal point position (x ~ 0.digits * 10^decpt).
std::uint64_t leading_digits(impl::normalized_float x, int count, int& decpt) noexcept
{
    int power = count - 1 - decimal_exponent_estimate(x.exponent - 1);
    fixed_point y = scaled(x, power);
    if (y.integer < power_of_ten[count - 1])
        y = scaled(x, ++power);
    else if (y.integer >= power_of_ten[count])
        y = scaled(x, --power);
    constexpr std::uint64_t half = std::uint64_t(1) << 63;
    std::uint64_t digits = y.integer + (y.fraction > half || (y.fraction == half && (y.integer & 1)));
    if (digits == power_of_ten[count]) {
        digits = power_of_ten[count - 1];
        --power;
    }
    decpt = count - power;
    return digits;
}

// Writes `text` and its terminating zero when they fit in `len`.
bool put_text(const char* text, char* buf, std::size_t len) noexcept
{
    const std::size_t size = std::strlen(text) + 1;
    if (size > len)
        return false;
    std::memcpy(buf, text, size);
    return true;
}

const char* special_text(double value, std::size_t len) noexcept
{
    if (std::isinf(value))
        return len >= sizeof "Infinity" ? "Infinity" : "Inf";
    const auto bits = std::bit_cast<std::uint64_t>(value);
    return bits & std::uint64_t(1) << 51 ? "QNaN" : "SNaN";
}

char* write_chars(char* p, const char* chars, int count) noexcept
{
    std::memcpy(p, chars, static_cast<std::size_t>(count));
    return p + count;
}

char* write_zeros(char* p, int count) noexcept
{
    for (; count > 0; --count)
        *p++ = '0';
    return p;
}

// d.ddde+XX: the first digit, the others after a point, the decimal
// exponent with a sign and at least two digits.
char* exponent_form(char* p, const char* digits, int count, int exponent) noexcept
{
    *p++ = digits[0];
    if (count > 1) {
        *p++ = '.';
        p = write_chars(p, digits + 1, count - 1);
    }
    *p++ = 'e';
    *p++ = exponent < 0 ? '-' : '+';
    const int magnitude = exponent < 0 ? -exponent : exponent;
    if (magnitude >= 100)
        *p++ = char('0' + magnitude / 100);
    *p++ = char('0' + magnitude / 10 % 10);
    *p++ = char('0' + magnitude % 10);
    return p;
}

// The point at or after the first digit (decimal exponent decpt - 1 >= 0):
// plain while the integer digits number at most `precision`.
char* positivePower(char* p, const char* digits, int count, int decpt, int precision) noexcept
{
    if (decpt > precision)
        return exponent_form(p, digits, count, decpt - 1);
    if (count <= decpt)
        return write_zeros(write_chars(p, digits, count), decpt - count);
    p = write_chars(p, digits, decpt);
    *p++ = '.';
    return write_chars(p, digits + decpt, count - decpt);
}

// The point before the first digit (decimal exponent decpt - 1 < 0): plain
// down to 0.0001.
char* nonPositivePower(char* p, const char* digits, int count, int decpt) noexcept
{
    if (decpt < -3)
        return exponent_form(p, digits, count, decpt - 1);
    *p++ = '0';
    *p++ = '.';
    return write_chars(write_zeros(p, -decpt), digits, count);
}

} // namespace

int ecvt_r(double value, int ndigits, int* decpt, int* sign, char* buf, std::size_t len) noexcept
{
    if (ndigits < 1 || !buf)
        return -1;
    *sign = std::signbit(value);
    if (!std::isfinite(value)) {
        *decpt = 0;
        return put_text(special_text(value, len), buf, len) ? 0 : -1;
    }
    const int count = ndigits < dtoa_max_digits ? ndigits : dtoa_max_digits;
    if (len < std::size_t(count) + 1)
        return -1;
    std::uint64_t digits = 0;
    *decpt = 1;
    if (value != 0)
        digits = leading_digits(magnitude(value), count, *decpt);
    for (int i = count - 1; i >= 0; --i, digits /= 10)
        buf[i] = char('0' + digits % 10);
    buf[count] = '\0';
    return 0;
}

char* dtoa(double value, int ndigits, char* buf, std::size_t len) noexcept
{
    char digits[dtoa_max_digits + 1];
    int decpt;
    int sign;
    if (!buf || ecvt_r(value, ndigits, &decpt, &sign, digits, sizeof digits) != 0)
        return nullptr;
    char text[dtoa_buffer_size];
    char* p = text;
    if (sign && !std::isnan(value))
        *p++ = '-';
    if (!std::isfinite(value)) {
        const char* special = special_text(value, len - std::size_t(p - text));
        p = write_chars(p, special, static_cast<int>(std::strlen(special)));
    } else {
        const int precision = ndigits < dtoa_max_digits ? ndigits : dtoa_max_digits;
        int count = precision;
        while (count > 1 && digits[count - 1] == '0')
            --count;
        p = decpt > 0 ? positivePower(p, digits, count, decpt, precision) : nonPositivePower(p, digits, count, decpt);
    }
    *p = '\0';
    return put_text(text, buf, len) ? buf : nullptr;
}

} // namespace uvt
