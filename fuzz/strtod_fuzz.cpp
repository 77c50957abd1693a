// Parses arbitrary bytes as decimal text with strtod, strtold and strtof (and
// the wchar_t parser) and checks: the stop is the beginning of the text (then
// the value is +0) or lies one past a character after the number, within the
// text and its terminating zero; errno is ERANGE exactly for infinities; char
// and wchar_t agree; and where glibc's strtod reads the same characters, the
// value is glibc's correctly rounded one: bit-identical when the decimal
// value is itself a double, within one unit in the last place for up to 17
// significant digits (each scaling step rounds to 64 bits) and within two
// beyond (only 17 digits are kept).
#include "../tests/support/ulp_distance.h"
#include "fuzz_check.h"

#include <uvt/impl/strtod>

#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

template <class F, class C>
F parse(const std::basic_string<C>& text, std::size_t& stop, int& error)
{
    const C* end = nullptr;
    errno = -1;
    F value;
    if constexpr (std::is_same_v<F, float>)
        value = uvt::strtof(text.c_str(), &end);
    else if constexpr (std::is_same_v<F, long double>)
        value = uvt::strtold(text.c_str(), &end);
    else
        value = uvt::uvtStringToDoubleT<double, uvt::ieee754_double, 12, 1023, C>(text.c_str(), &end);
    error = errno;
    FUZZ_CHECK(end >= text.c_str() && end <= text.c_str() + text.size() + 1);
    stop = static_cast<std::size_t>(end - text.c_str());
    FUZZ_CHECK(error == (std::isinf(value) ? ERANGE : 0));
    if (stop == 0)
        FUZZ_CHECK(value == 0 && !std::signbit(value));
    else
        FUZZ_CHECK(text[stop - 1] < C('0') || text[stop - 1] > C('9')); // every digit is used
    return value;
}

// The decimal value of a text glibc read in full: digits * 10^exponent with
// `significant` digits from the first non-zero one.
struct Decimal {
    unsigned __int128 digits = 0;
    int significant = 0;
    long exponent = 0;
};

Decimal scan(const char* p, const char* end)
{
    Decimal d;
    p += *p == '-' || *p == '+';
    bool point = false;
    for (; p < end && *p != 'e' && *p != 'E'; ++p) {
        if (*p == '.') {
            point = true;
            continue;
        }
        if (d.significant > 0 || *p != '0')
            ++d.significant;
        if (d.significant > 30)
            d.exponent += !point;
        else {
            d.digits = d.digits * 10 + unsigned(*p - '0');
            d.exponent -= point;
        }
    }
    if (p < end)
        d.exponent += std::strtol(p + 1, nullptr, 10);
    return d;
}

// Whether digits * 10^exponent is a double: a whole number or a fraction
// q / 2^k below 2^53.
bool isDouble(Decimal d)
{
    if (d.significant > 30 || d.exponent > 22 || d.exponent < -22)
        return false;
    constexpr auto limit = static_cast<unsigned __int128>(1) << 53;
    for (; d.exponent > 0 && d.digits < limit; --d.exponent)
        d.digits *= 10;
    for (; d.exponent < 0; ++d.exponent) {
        if (d.digits % 5)
            return false;
        d.digits /= 5;
    }
    return d.digits < limit;
}

void compareWithGlibc(const std::string& text, double value, std::size_t stop, int error)
{
    char* end;
    errno = 0;
    const double expected = std::strtod(text.c_str(), &end);
    const char* const used = text.c_str() + stop - 1;
    if (stop == 0 || end != used || errno != 0 || std::fabs(expected) < 1e-306)
        return; // another syntax (blanks, "inf", hexadecimal, "1e 5"), or a range this parser reads as 0
    if (error == ERANGE) {
        FUZZ_CHECK(std::fabs(expected) == DBL_MAX);
        return;
    }
    const Decimal d = scan(text.c_str(), used);
    const long allowed = d.significant <= 17 ? isDouble(d) ? 0 : 1 : 2;
    FUZZ_CHECK(uvt_test::ulpDistance(value, expected) <= allowed);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const char* bytes = reinterpret_cast<const char*>(data);
    const std::string text(bytes, strnlen(bytes, size));
    std::wstring wide(text.size(), L'\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(text[i]));

    std::size_t stop, wideStop, otherStop;
    int error, wideError, otherError;
    const double value = parse<double>(text, stop, error);
    const double wideValue = parse<double>(wide, wideStop, wideError);
    FUZZ_CHECK(std::memcmp(&value, &wideValue, sizeof value) == 0 && stop == wideStop && error == wideError);
    compareWithGlibc(text, value, stop, error);

    const long double extended = parse<long double>(text, otherStop, otherError);
    FUZZ_CHECK(otherStop == stop);
    if (otherError == 0 && error == 0 && value != 0) // the same digits, more bits
        FUZZ_CHECK(std::fabs(extended / value - 1) < 1e-15L);
    parse<float>(text, otherStop, otherError);
    FUZZ_CHECK(otherStop == stop);
    return 0;
}
