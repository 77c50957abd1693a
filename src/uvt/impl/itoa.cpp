// Integer text to binary: the parser and its throwing wrappers.

#include <uvt/impl/itoa>

#include "number_check.h"

#include <uvt/stdexcept>
#include <uvt/string>

#include <cerrno>
#include <limits>
#include <type_traits>

namespace uvt {

namespace {

// Larger than every digit of every base.
constexpr unsigned not_a_digit = 36;

template <class C>
bool is_blank(C c) noexcept
{
    return c == C(' ') || c == C('\t') || c == C('\n') || c == C('\r');
}

// 0..9 for decimal digits, 10..35 for letters of either case.
template <class C>
unsigned digit_value(C c) noexcept
{
    const auto code = static_cast<unsigned>(static_cast<std::make_unsigned_t<C>>(c));
    if (code - '0' < 10)
        return code - '0';
    const unsigned letter = (code | 0x20) - 'a'; // lower case; other codes land far away
    return letter < 26 ? letter + 10 : not_a_digit;
}

// Settles base 0 and skips a "0x" prefix of base 16 at `p`. The leading "0"
// that selects base 8 stays: it is the first octal digit.
template <class C>
int take_prefix(const C*& p, int base) noexcept
{
    const bool hex_prefix = p[0] == C('0') && p[1] == C('x');
    if (base == 0)
        base = hex_prefix ? 16 : p[0] == C('0') ? 8 : 10;
    if (base == 16 && hex_prefix)
        p += 2;
    return base;
}

} // namespace

template <class T, class C>
T strtoint(const C* text, const C** end, int base) noexcept
{
    using U = std::make_unsigned_t<T>;
    errno = 0;
    const C* stop = text;
    T value = 0;
    if (base == 0 || (base >= 2 && base <= 36)) {
        const C* p = text;
        while (is_blank(*p))
            ++p;
        const bool negative = *p == C('-');
        p += negative || *p == C('+');
        base = take_prefix(p, base);
        bool used = false;
        for (unsigned digit; (digit = digit_value(*p)) < unsigned(base); ++p, used = true) {
            const T next = static_cast<T>(static_cast<U>(value) * unsigned(base) + digit);
            if (next < value) {
                errno = ERANGE;
                if (end)
                    *end = p;
                return negative ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
            }
            value = next;
        }
        if (used) {
            stop = p;
            if (negative)
                value = static_cast<T>(U(0) - static_cast<U>(value));
        }
    } else {
        errno = EINVAL;
    }
    if (end)
        *end = stop;
    return value;
}

template UVT_API long strtoint<long, char>(const char*, const char**, int) noexcept;
template UVT_API long strtoint<long, wchar_t>(const wchar_t*, const wchar_t**, int) noexcept;
template UVT_API unsigned long strtoint<unsigned long, char>(const char*, const char**, int) noexcept;
template UVT_API unsigned long strtoint<unsigned long, wchar_t>(const wchar_t*, const wchar_t**, int) noexcept;

namespace {

template <class T, class C>
T parse_integer(const C* text, std::size_t* pos, int base)
{
    const auto parse = [base](const C* t, const C** stop) { return strtoint<T, C>(t, stop, base); };
    return impl::parse_checked(parse, text, pos);
}

// Parses as the wider type T and checks that the value lies in [low, high].
template <class Narrow, class T, class C>
Narrow parse_narrow(const C* text, std::size_t* pos, int base)
{
    constexpr T low = std::numeric_limits<Narrow>::min();
    constexpr T high = std::numeric_limits<Narrow>::max();
    const T value = parse_integer<T>(text, pos, base);
    if (value < low || value > high)
        throwOutOfRange(__FILE__, __LINE__, static_cast<long>(value), static_cast<long>(low), static_cast<long>(high));
    return static_cast<Narrow>(value);
}

} // namespace

// clang-format off
int stoi(const char* text, std::size_t* pos, int base) { return parse_narrow<int, long>(text, pos, base); }
int stoi(const wchar_t* text, std::size_t* pos, int base) { return parse_narrow<int, long>(text, pos, base); }
unsigned int stoui(const char* text, std::size_t* pos, int base) { return parse_narrow<unsigned int, unsigned long>(text, pos, base); }
unsigned int stoui(const wchar_t* text, std::size_t* pos, int base) { return parse_narrow<unsigned int, unsigned long>(text, pos, base); }
std::int64_t stoi64(const char* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
std::int64_t stoi64(const wchar_t* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
std::uint64_t stoui64(const char* text, std::size_t* pos, int base) { return parse_integer<unsigned long>(text, pos, base); }
std::uint64_t stoui64(const wchar_t* text, std::size_t* pos, int base) { return parse_integer<unsigned long>(text, pos, base); }
long stol(const char* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
long stol(const wchar_t* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
long long stoll(const char* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
long long stoll(const wchar_t* text, std::size_t* pos, int base) { return parse_integer<long>(text, pos, base); }
unsigned long stoul(const char* text, std::size_t* pos, int base) { return parse_integer<unsigned long>(text, pos, base); }
unsigned long stoul(const wchar_t* text, std::size_t* pos, int base) { return parse_integer<unsigned long>(text, pos, base); }
int stoi(const basic_string<char>& text, std::size_t* pos, int base) { return stoi(text.c_str(), pos, base); }
int stoi(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoi(text.c_str(), pos, base); }
unsigned int stoui(const basic_string<char>& text, std::size_t* pos, int base) { return stoui(text.c_str(), pos, base); }
unsigned int stoui(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoui(text.c_str(), pos, base); }
std::int64_t stoi64(const basic_string<char>& text, std::size_t* pos, int base) { return stoi64(text.c_str(), pos, base); }
std::int64_t stoi64(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoi64(text.c_str(), pos, base); }
std::uint64_t stoui64(const basic_string<char>& text, std::size_t* pos, int base) { return stoui64(text.c_str(), pos, base); }
std::uint64_t stoui64(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoui64(text.c_str(), pos, base); }
long stol(const basic_string<char>& text, std::size_t* pos, int base) { return stol(text.c_str(), pos, base); }
long stol(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stol(text.c_str(), pos, base); }
long long stoll(const basic_string<char>& text, std::size_t* pos, int base) { return stoll(text.c_str(), pos, base); }
long long stoll(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoll(text.c_str(), pos, base); }
unsigned long stoul(const basic_string<char>& text, std::size_t* pos, int base) { return stoul(text.c_str(), pos, base); }
unsigned long stoul(const basic_string<wchar_t>& text, std::size_t* pos, int base) { return stoul(text.c_str(), pos, base); }
// clang-format on

} // namespace uvt
