// The number readers of the input streams.
#include "number_input.h"

#include <uvt/impl/strtod>

#include <algorithm>
#include <limits>
#include <type_traits>

namespace uvt::impl {

namespace {

// The next character of a stream buffer, consumed on demand.
template <class C>
class input_cursor {
public:
    using traits = stream_traits<C>;

    explicit input_cursor(basic_streambuf<C>& sb) : sb_(sb), c_(sb.sgetc()) {}

    bool at_end() const noexcept { return c_ == traits::eof(); }
    // Whether the next character is `c` (false at the end).
    bool is(char c) const noexcept { return !at_end() && traits::to_char_type(c_) == C(c); }
    // The value of the next character as a digit of `base`, or -1.
    int digit(int base) const noexcept
    {
        if (at_end())
            return -1;
        const C c = traits::to_char_type(c_);
        int d = 99;
        if (c >= C('0') && c <= C('9'))
            d = int(c - C('0'));
        else if (c >= C('a') && c <= C('z'))
            d = int(c - C('a')) + 10;
        else if (c >= C('A') && c <= C('Z'))
            d = int(c - C('A')) + 10;
        return d < base ? d : -1;
    }
    C get() const noexcept { return traits::to_char_type(c_); }
    void advance() { c_ = sb_.snextc(); }
    // Consumes the next character when it is one of a or b.
    bool take(char a, char b)
    {
        if (!is(a) && !is(b))
            return false;
        advance();
        return true;
    }
    ios_base::iostate end_state() const noexcept { return at_end() ? ios_base::eofbit : ios_base::goodbit; }

private:
    basic_streambuf<C>& sb_;
    typename traits::int_type c_;
};

} // namespace

template <class C, class T>
ios_base::iostate read_integer(basic_streambuf<C>& sb, ios_base::fmtflags flags, T& v)
{
    using U = std::make_unsigned_t<T>;
    const ios_base::fmtflags basefield = flags & ios_base::basefield;
    int base = basefield == ios_base::oct ? 8 : basefield == ios_base::hex ? 16 : basefield == ios_base::dec ? 10 : 0;
    input_cursor<C> in(sb);
    bool negative = in.is('-');
    if (negative || in.is('+'))
        in.advance();
    // A leading zero outside decimal selects octal for an unset basefield,
    // and may be followed by the "x" of hexadecimal, which then needs
    // digits; the zero alone is a complete number.
    bool found_zero = false;
    if (base != 10 && in.is('0')) {
        found_zero = true;
        in.advance();
        if (base == 0)
            base = 8;
        if ((basefield == 0 || base == 16) && in.take('x', 'X')) {
            base = 16;
            found_zero = false;
        }
    }
    if (base == 0)
        base = 10;

    // The limit of the magnitude: for a negative signed value that of the
    // minimum. Unsigned types take a negated magnitude as the standard
    // streams do ("-1" is the maximum).
    const U limit = negative && std::is_signed_v<T> ? U(std::numeric_limits<T>::max()) + 1
                                                    : U(std::numeric_limits<U>::max() >> (std::is_signed_v<T> ? 1 : 0));
    U magnitude = 0;
    bool digits = false, overflow = false;
    for (int d; (d = in.digit(base)) >= 0; in.advance()) {
        digits = true;
        if (magnitude > (limit - U(d)) / U(base))
            overflow = true;
        else
            magnitude = magnitude * U(base) + U(d);
    }
    ios_base::iostate err = in.end_state();
    if (!digits && !found_zero) {
        v = 0;
        err |= ios_base::failbit;
    } else if (overflow) {
        v = negative && std::is_signed_v<T> ? std::numeric_limits<T>::min() : std::numeric_limits<T>::max();
        err |= ios_base::failbit;
    } else {
        v = static_cast<T>(negative ? U(0) - magnitude : magnitude);
    }
    return err;
}

template <class C>
ios_base::iostate read_bool(basic_streambuf<C>& sb, const ios_base& s, bool& v)
{
    if (!(s.flags() & ios_base::boolalpha)) {
        long l = 0;
        ios_base::iostate err = read_integer(sb, s.flags(), l);
        v = l != 0;
        if (l != 0 && l != 1)
            err |= ios_base::failbit;
        return err;
    }
    // Both names are matched at once, a character at a time, as long as
    // the input agrees with one of them. The end of the input counts only
    // when it comes before a name is complete.
    const numeric_conventions<C>& conv = conventions_of<C>(s);
    input_cursor<C> in(sb);
    bool maybe_true = conv.truename_size > 0, maybe_false = conv.falsename_size > 0;
    bool hit_end = false;
    int n = 0;
    while ((maybe_true && n < conv.truename_size) || (maybe_false && n < conv.falsename_size)) {
        if (in.at_end()) {
            hit_end = true;
            break;
        }
        maybe_true = maybe_true && n < conv.truename_size && in.get() == conv.truename[n];
        maybe_false = maybe_false && n < conv.falsename_size && in.get() == conv.falsename[n];
        if (!maybe_true && !maybe_false)
            break;
        in.advance();
        ++n;
    }
    const bool is_true = maybe_true && n == conv.truename_size;
    const bool is_false = maybe_false && n == conv.falsename_size;
    v = is_true && !is_false;
    // Equal names could not tell the two values apart.
    return (hit_end ? ios_base::eofbit : ios_base::goodbit) |
           (is_true != is_false ? ios_base::goodbit : ios_base::failbit);
}

namespace {

// The number text reduced to what the parser needs: at most
// `kept_capacity` significant digits and the decimal exponent of the last
// one, so that any length of input fits a small buffer.
struct decimal_text {
    static constexpr int kept_capacity = 20;
    static constexpr long exponent_saturation = 100000;

    bool negative = false;
    bool valid = false;
    char digits[kept_capacity];
    int kept = 0;
    long exponent = 0; // value = 0.digits... kept as integer * 10^exponent

    // Room for the text of write().
    static constexpr int text_capacity = kept_capacity + 9;

    // The text "<digits>e<exponent>" for the parser, zero-terminated.
    void write(char* out) const noexcept
    {
        const long saturated = exponent < -exponent_saturation  ? -exponent_saturation
                               : exponent > exponent_saturation ? exponent_saturation
                                                                : exponent;
        out = std::copy(digits, digits + kept, out);
        *out++ = 'e';
        *out++ = saturated < 0 ? '-' : '+';
        char reversed[8];
        int n = 0;
        for (unsigned long e = saturated < 0 ? -saturated : saturated; n == 0 || e > 0; e /= 10)
            reversed[n++] = char('0' + e % 10);
        while (n > 0)
            *out++ = reversed[--n];
        *out = '\0';
    }
};

// Reads [sign] digits [point digits] [(e|E) [sign] digits] as the standard
// streams accumulate it: a point after the exponent, a second point or a
// second "e" end the number; an "e" needs a digit before it.
template <class C>
decimal_text scan_decimal(input_cursor<C>& in, C decimal_point)
{
    decimal_text t;
    t.negative = in.is('-');
    if (t.negative || in.is('+'))
        in.advance();
    bool mantissa_digit = false, point = false;
    for (;; in.advance()) {
        const int d = in.digit(10);
        if (d >= 0) {
            mantissa_digit = true;
            if (t.kept == 0 && d == 0) {
                t.exponent -= point; // a leading zero only moves the point
            } else if (t.kept < decimal_text::kept_capacity) {
                t.digits[t.kept++] = char('0' + d);
                t.exponent -= point;
            } else {
                t.exponent += !point; // a dropped digit before the point
            }
        } else if (!point && !in.at_end() && in.get() == decimal_point) {
            point = true;
        } else {
            break;
        }
    }
    if (!mantissa_digit || !in.take('e', 'E')) {
        t.valid = mantissa_digit;
        return t;
    }
    const bool negative_exponent = in.is('-');
    if (negative_exponent || in.is('+'))
        in.advance();
    long e = 0;
    for (int d; (d = in.digit(10)) >= 0; in.advance()) {
        t.valid = true;
        if (e < decimal_text::exponent_saturation)
            e = e * 10 + d;
    }
    t.exponent += negative_exponent ? -e : e;
    return t;
}

template <class F>
F parse_decimal(const char* text) noexcept
{
    if constexpr (std::is_same_v<F, long double>)
        return strtold(text, nullptr);
    else
        return strtod(text, nullptr);
}

} // namespace

template <class C, class F>
ios_base::iostate read_floating(basic_streambuf<C>& sb, const ios_base& s, F& v)
{
    // float goes through double and is rounded once more at the end.
    using wide = std::conditional_t<std::is_same_v<F, long double>, long double, double>;
    input_cursor<C> in(sb);
    const decimal_text t = scan_decimal(in, conventions_of<C>(s).decimal_point);
    ios_base::iostate err = in.end_state();
    if (!t.valid) {
        v = 0;
        return err | ios_base::failbit;
    }
    wide value = 0;
    if (t.kept > 0) {
        char text[decimal_text::text_capacity];
        t.write(text);
        value = parse_decimal<wide>(text);
    }
    const F narrowed = static_cast<F>(value);
    if (narrowed == std::numeric_limits<F>::infinity()) {
        v = t.negative ? -std::numeric_limits<F>::max() : std::numeric_limits<F>::max();
        return err | ios_base::failbit;
    }
    v = t.negative ? -narrowed : narrowed;
    return err;
}

#define UVT_NUMBER_READERS(C) \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, long&); \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, long long&); \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, unsigned short&); \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, unsigned int&); \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, unsigned long&); \
    template ios_base::iostate read_integer(basic_streambuf<C>&, ios_base::fmtflags, unsigned long long&); \
    template ios_base::iostate read_bool(basic_streambuf<C>&, const ios_base&, bool&); \
    template ios_base::iostate read_floating(basic_streambuf<C>&, const ios_base&, float&); \
    template ios_base::iostate read_floating(basic_streambuf<C>&, const ios_base&, double&); \
    template ios_base::iostate read_floating(basic_streambuf<C>&, const ios_base&, long double&);

UVT_NUMBER_READERS(char)
UVT_NUMBER_READERS(wchar_t)

#undef UVT_NUMBER_READERS

} // namespace uvt::impl
