// Exact printf-style text of binary floating point: the 128-bit short
// computation, the exact decimal expansion, and the layouts of "%f", "%e",
// "%g" and "%a".
#include "float_text.h"
#include "powers_of_ten.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>
#include <limits>

namespace uvt::impl {

namespace {

using u64 = std::uint64_t;
using i64 = std::int64_t;
using u128 = unsigned __int128;

// The most digits the short computation produces: 10^19 < 2^64.
constexpr int short_digits = 19;

// ------------------------------------------------ powers of ten, 128 bits

// 10^k ~ (high * 2^64 + low) * 2^exponent with the top bit of `high` set,
// truncated (the true value lies below the next integer mantissa).
struct pow10_entry {
    u64 high;
    u64 low;
    int exponent;
};

constexpr int pow10_min = -342;
constexpr int pow10_max = 350;
// 5^k < 2^128 for k <= 55: those positive powers are exact.
constexpr int pow10_exact_max = 55;

// An unsigned big integer for building the table at compile time:
// 32-bit limbs, least significant first.
struct table_bigint {
    static constexpr int capacity = 42;
    std::uint32_t limb[capacity] = {};
    int size = 1;

    constexpr void multiply_by_10()
    {
        u64 carry = 0;
        for (int i = 0; i < size; ++i) {
            const u64 t = u64(limb[i]) * 10 + carry;
            limb[i] = std::uint32_t(t);
            carry = t >> 32;
        }
        if (carry)
            limb[size++] = std::uint32_t(carry);
    }
    constexpr void divide_by_10()
    {
        u64 rest = 0;
        for (int i = size; i-- > 0;) {
            const u64 t = rest << 32 | limb[i];
            limb[i] = std::uint32_t(t / 10);
            rest = t % 10;
        }
        while (size > 1 && limb[size - 1] == 0)
            --size;
    }
    constexpr int bit_length() const { return (size - 1) * 32 + 32 - std::countl_zero(limb[size - 1]); }
    // Bit `b` of the value; bits below 0 and above the top are 0.
    constexpr u64 bit(int b) const { return b < 0 || b >= size * 32 ? 0 : limb[b / 32] >> (b % 32) & 1; }
    // The 64 bits starting at bit `from`.
    constexpr u64 bits64(int from) const
    {
        u64 r = 0;
        for (int b = 0; b < 64; ++b)
            r |= bit(from + b) << b;
        return r;
    }
    // The top 128 bits as a table entry, with `scale` added to the exponent.
    constexpr pow10_entry top(int scale) const
    {
        const int shift = bit_length() - 128;
        return {bits64(shift + 64), bits64(shift), shift + scale};
    }
};

constexpr std::array<pow10_entry, pow10_max - pow10_min + 1> make_pow10_table()
{
    std::array<pow10_entry, pow10_max - pow10_min + 1> table{};
    table_bigint positive;
    positive.limb[0] = 1;
    for (int k = 0; k <= pow10_max; ++k, positive.multiply_by_10())
        table[k - pow10_min] = positive.top(0);
    // floor(2^1280 / 10^j) keeps more than 128 bits for every j here.
    constexpr int scale = 1280;
    table_bigint negative;
    negative.limb[scale / 32] = 1;
    negative.size = scale / 32 + 1;
    for (int j = 1; j <= -pow10_min; ++j) {
        negative.divide_by_10();
        table[-j - pow10_min] = negative.top(-scale);
    }
    return table;
}

constexpr auto pow10_table = make_pow10_table();

// ------------------------------------------------------ 192-bit numbers

struct u192 {
    u64 w[3]; // least significant first
};

// a << s for 0 <= s < 192 (bits beyond 192 are lost).
u192 shift_left(const u192& a, int s) noexcept
{
    u192 r{};
    const int limbs = s / 64, bits = s % 64;
    for (int i = 2; i >= limbs; --i) {
        const int from = i - limbs;
        r.w[i] = a.w[from] << bits | (bits && from > 0 ? a.w[from - 1] >> (64 - bits) : 0);
    }
    return r;
}

// The 64 bits of `a` from bit s (0 <= s < 192).
u64 bits_at(const u192& a, int s) noexcept
{
    const int limb = s / 64, bits = s % 64;
    u64 r = a.w[limb] >> bits;
    if (bits && limb < 2)
        r |= a.w[limb + 1] << (64 - bits);
    return r;
}

// Whether any bit at or above s (0 <= s <= 192) is set.
bool any_bit_from(const u192& a, int s) noexcept
{
    for (int i = 2; i >= 0; --i) {
        const int low = i * 64;
        if (low + 64 <= s)
            return false;
        const u64 mask = s > low ? ~u64(0) << (s - low) : ~u64(0);
        if (a.w[i] & mask)
            return true;
    }
    return false;
}

// a += b; returns the carry out of bit 191.
bool add(u192& a, const u192& b) noexcept
{
    bool carry = false;
    for (int i = 0; i < 3; ++i) {
        const u128 t = u128(a.w[i]) + b.w[i] + carry;
        a.w[i] = u64(t);
        carry = (t >> 64) != 0;
    }
    return carry;
}

int compare(const u192& a, const u192& b) noexcept
{
    for (int i = 2; i >= 0; --i)
        if (a.w[i] != b.w[i])
            return a.w[i] < b.w[i] ? -1 : 1;
    return 0;
}

// ------------------------------------------------- the short computation

// q = round(m * 2^e2 * 10^k) to nearest, ties to even; `up` tells whether
// that rounded up. The product with the truncated 128-bit power of ten lies
// at most m units of its last bit below the true one; false when that
// leaves the rounding undecided, or when q does not fit 64 bits or k is
// outside the table.
bool round_scaled(u64 m, int e2, int k, u64& q, bool& up) noexcept
{
    up = false;
    if (k < pow10_min || k > pow10_max)
        return false;
    const pow10_entry& t = pow10_table[k - pow10_min];
    const u128 low = u128(m) * t.low;
    const u128 high = u128(m) * t.high;
    const u128 middle = (low >> 64) + u64(high);
    const u192 product{{u64(low), u64(middle), u64(high >> 64) + u64(middle >> 64)}};
    const int fraction_bits = -(e2 + t.exponent);
    if (fraction_bits >= 194) { // below (2^192 + 2^64) / 2^194 < 1/2
        q = 0;
        return true;
    }
    if (fraction_bits < 64 || fraction_bits > 191 || any_bit_from(product, fraction_bits + 64))
        return false;
    q = bits_at(product, fraction_bits);
    // The fraction, left-aligned: one half is then the top bit alone.
    const int align = 192 - fraction_bits;
    const u192 fraction = shift_left(product, align);
    const u192 half{{0, 0, u64(1) << 63}};
    const int against_half = compare(fraction, half);
    if (k >= 0 && k <= pow10_exact_max) { // the product is exact
        up = against_half > 0 || (against_half == 0 && (q & 1));
        q += up;
        return q != 0 || !up;
    }
    u192 upper = fraction;
    if (add(upper, shift_left(u192{{m, 0, 0}}, align)))
        return false;        // the true value may reach the next integer
    if (against_half >= 0) { // the true fraction lies strictly above
        up = true;
        return ++q != 0;
    }
    return compare(upper, half) <= 0;
}

// floor(log10(m * 2^e2)) within one either way (m != 0).
int decimal_exponent_estimate(u64 m, int e2) noexcept
{
    const i64 binary = e2 + 63 - std::countl_zero(m);
    return int((binary * 1292913986) >> 32); // 1292913986 / 2^32 ~ log10(2)
}

// Q with exactly `digits` (1..19) digits and its exponent for scientific
// and general output; `carried` tells whether the rounding carried into a
// new first digit (Q is then 10^(digits-1)).
bool short_significant(u64 m, int e2, int digits, u64& q, i64& exponent, bool& carried) noexcept
{
    int e = decimal_exponent_estimate(m, e2);
    for (int attempt = 0; attempt < 4; ++attempt) {
        bool up;
        if (!round_scaled(m, e2, digits - 1 - e, q, up))
            return false;
        carried = up && q == power_of_ten[digits - 1];
        if (q >= power_of_ten[digits] && digits < 20)
            ++e; // the exponent is higher, or the rounding carried into 10^digits
        else if (q < power_of_ten[digits - 1])
            --e;
        else {
            exponent = e;
            return true;
        }
    }
    return false;
}

// Q = round(v * 10^p) for fixed output, when it has at most 19 digits.
bool short_fixed(u64 m, int e2, int p, u64& q) noexcept
{
    const i64 e = decimal_exponent_estimate(m, e2);
    if (e + 3 + p <= -1) { // v * 10^p < 0.1
        q = 0;
        return true;
    }
    bool up;
    return e + 2 + p <= short_digits && round_scaled(m, e2, p, q, up);
}

// ------------------------------------------------- the exact expansion

// The complete decimal expansion of m * 2^e2, digit by digit from the
// first: the integer part is converted to base 10^19 at once; the fraction
// r / 2^s yields 19 digits per multiplication by 10^19. Limbs bounds the
// 64-bit words of both (18 for double, 259 for long double).
template <int Limbs>
class exact_expansion {
public:
    exact_expansion(u64 m, int e2) noexcept
    {
        if (e2 >= 0) {
            u64 integer[Limbs] = {};
            const int limb = e2 / 64, bits = e2 % 64;
            integer[limb] = m << bits;
            if (bits)
                integer[limb + 1] = m >> (64 - bits);
            convert_integer_(integer, limb + 2);
            return;
        }
        fraction_bits_ = -e2;
        if (fraction_bits_ < 64) {
            u64 integer[1] = {m >> fraction_bits_};
            convert_integer_(integer, 1);
            m &= (u64(1) << fraction_bits_) - 1;
        }
        fraction_[0] = m;
        fraction_end_ = m ? 1 : 0;
    }

    // Digits before the point (0 when the integer part is 0).
    i64 integer_digits() const noexcept { return integer_digits_; }

    // The next digit; 0 after the last non-zero one.
    int next() noexcept
    {
        if (digit_next_ == digit_end_ && !load_chunk_())
            return 0;
        return digits_[digit_next_++] - '0';
    }

    // No non-zero digit is left (cheap).
    bool done() const noexcept
    {
        return digit_next_ == digit_end_ && chunk_next_ == chunk_count_ && fraction_begin_ == fraction_end_;
    }
    // Every digit after those taken is zero.
    bool rest_is_zero() const noexcept
    {
        return fraction_begin_ == fraction_end_ &&
               std::all_of(chunks_ + chunk_next_, chunks_ + chunk_count_, [](u64 c) { return c == 0; }) &&
               std::all_of(digits_ + digit_next_, digits_ + digit_end_, [](char c) { return c == '0'; });
    }

private:
    static constexpr u64 chunk_base = 10000000000000000000ULL; // 10^19

    // Divides the integer (n limbs, destroyed) by 10^19 until it is zero,
    // keeping the remainders as chunks, most significant first.
    void convert_integer_(u64* integer, int n) noexcept
    {
        while (n > 0 && integer[n - 1] == 0)
            --n;
        while (n > 0) {
            u64 rest = 0;
            for (int i = n; i-- > 0;) {
                const u128 t = u128(rest) << 64 | integer[i];
                integer[i] = u64(t / chunk_base);
                rest = u64(t % chunk_base);
            }
            chunks_[chunk_count_++] = rest;
            while (n > 0 && integer[n - 1] == 0)
                --n;
        }
        std::reverse(chunks_, chunks_ + chunk_count_);
        if (chunk_count_ > 0) {
            top_digits_ = 1;
            while (top_digits_ < 19 && chunks_[0] >= power_of_ten[top_digits_])
                ++top_digits_;
            integer_digits_ = top_digits_ + i64(chunk_count_ - 1) * 19;
        }
    }

    // The next 19 digits (the first integer chunk without its leading
    // zeros); false when none is left.
    bool load_chunk_() noexcept
    {
        u64 chunk;
        if (chunk_next_ < chunk_count_) {
            chunk = chunks_[chunk_next_++];
        } else if (fraction_begin_ < fraction_end_) {
            chunk = multiply_fraction_();
        } else {
            return false;
        }
        for (int i = 19; i-- > 0; chunk /= 10)
            digits_[i] = char('0' + chunk % 10);
        digit_end_ = 19;
        digit_next_ = 0;
        if (chunk_next_ == 1 && fraction_calls_ == 0)
            digit_next_ = 19 - top_digits_;
        return true;
    }

    // r = r * 10^19; returns the bits at and above fraction_bits_ and
    // keeps the rest. Zero limbs at either end are skipped.
    u64 multiply_fraction_() noexcept
    {
        ++fraction_calls_;
        u64 carry = 0;
        for (int i = fraction_begin_; i < fraction_end_; ++i) {
            const u128 t = u128(fraction_[i]) * chunk_base + carry;
            fraction_[i] = u64(t);
            carry = u64(t >> 64);
        }
        if (carry)
            fraction_[fraction_end_++] = carry;
        const int top = fraction_bits_ / 64, bits = fraction_bits_ % 64;
        u64 chunk = 0;
        if (top < fraction_end_) {
            chunk = fraction_[top] >> bits;
            if (top + 1 < fraction_end_ && bits)
                chunk |= fraction_[top + 1] << (64 - bits);
            for (int i = top + 1; i < fraction_end_; ++i)
                fraction_[i] = 0;
            fraction_[top] &= (u64(1) << bits) - 1;
            fraction_end_ = top + 1;
        }
        while (fraction_end_ > fraction_begin_ && fraction_[fraction_end_ - 1] == 0)
            --fraction_end_;
        while (fraction_begin_ < fraction_end_ && fraction_[fraction_begin_] == 0)
            ++fraction_begin_;
        return chunk;
    }

    u64 chunks_[Limbs + 2];
    int chunk_count_ = 0;
    int chunk_next_ = 0;
    int top_digits_ = 0; // digits of the first chunk
    i64 integer_digits_ = 0;

    u64 fraction_[Limbs + 1];
    int fraction_bits_ = 0;
    int fraction_begin_ = 0; // limbs [begin, end) may be non-zero
    int fraction_end_ = 0;
    int fraction_calls_ = 0;

    char digits_[19];
    int digit_next_ = 0;
    int digit_end_ = 0;
};

constexpr int double_limbs = 18;
constexpr int long_double_limbs = 259;

using rounding_plan = float_text::rounding_plan;

// Walks the expansion once to find Q: `fixed` keeps the digits down to
// 10^-wanted, otherwise `wanted` significant digits. Kept out of line, as
// is write_exact, so that the short path's frame stays small.
template <int Limbs>
[[gnu::noinline]] rounding_plan plan_exact(u64 m, int e2, bool fixed, i64 wanted) noexcept
{
    exact_expansion<Limbs> expansion(m, e2);
    rounding_plan plan{};
    plan.carry_at = -1;
    i64 position = expansion.integer_digits() > 0 ? expansion.integer_digits() - 1 : -1;
    int d = expansion.next();
    for (; d == 0; d = expansion.next()) // the value is not zero: a digit comes
        --position;
    const i64 first = position;
    plan.cut = fixed ? -wanted : first - wanted + 1;
    if (first < plan.cut) {
        // Q is one digit, 0 or 1, at the cut: only the first digit and
        // what follows it can round it up.
        const int dropped = first == plan.cut - 1 ? d : 0;
        const bool up = dropped > 5 || (dropped == 5 && !expansion.rest_is_zero());
        plan.single = true;
        plan.count = 1;
        plan.significant = up;
        plan.exponent = plan.cut;
        return plan;
    }
    const i64 kept = first - plan.cut + 1;
    i64 last_non_nine = -1, last_non_zero = -1;
    int last = d;
    bool beyond_expansion = false;
    for (i64 i = 0;;) {
        if (d != 9)
            last_non_nine = i;
        if (d != 0)
            last_non_zero = i;
        last = d;
        if (++i == kept)
            break;
        if (expansion.done()) { // the remaining kept digits are zeros
            last_non_nine = kept - 1;
            last = 0;
            beyond_expansion = true;
            break;
        }
        d = expansion.next();
    }
    const int dropped = beyond_expansion ? 0 : expansion.next();
    const bool up = dropped > 5 || (dropped == 5 && (!expansion.rest_is_zero() || (last & 1)));
    plan.count = u64(kept);
    plan.exponent = first;
    if (!up) {
        plan.significant = u64(last_non_zero + 1);
    } else if (last_non_nine >= 0) {
        plan.carry_at = last_non_nine;
        plan.significant = u64(last_non_nine + 1);
    } else { // all nines: Q is a one and zeros, one digit longer
        plan.carried_one = true;
        plan.significant = 1;
        plan.exponent = first + 1;
        plan.count += fixed;
    }
    return plan;
}

// ------------------------------------------------------------- writers

// The characters of a short text, written into a buffer.
struct buffer_sink {
    char* out;

    bool chars(const char* s, std::size_t n) noexcept
    {
        std::memcpy(out, s, n);
        out += n;
        return true;
    }
    bool zeros(std::size_t n) noexcept
    {
        std::memset(out, '0', n);
        out += n;
        return true;
    }
};

// Q's digits from the short computation.
struct short_digits_source {
    const char* next;

    template <class Sink>
    bool write(Sink& out, u64 n)
    {
        next += n;
        return out.chars(next - n, n);
    }
};

// Q's digits regenerated from the expansion under a rounding plan.
template <int Limbs>
class exact_digits_source {
public:
    exact_digits_source(u64 m, int e2, const rounding_plan& plan) noexcept : expansion_(m, e2), plan_(plan)
    {
        if (!plan.single && !plan.carried_one) {
            do
                first_ = expansion_.next();
            while (first_ == 0);
        }
    }

    template <class Sink>
    bool write(Sink& out, u64 n)
    {
        char buffer[64];
        std::size_t used = 0;
        for (; n > 0; --n) {
            if (rest_is_zero_()) {
                index_ += i64(n);
                return out.chars(buffer, used) && out.zeros(n);
            }
            buffer[used++] = char('0' + digit_());
            if (used == sizeof buffer) {
                if (!out.chars(buffer, used))
                    return false;
                used = 0;
            }
        }
        return out.chars(buffer, used);
    }

private:
    bool rest_is_zero_() const noexcept
    {
        if (index_ == 0)
            return false;
        if (plan_.single || plan_.carried_one)
            return true;
        return (plan_.carry_at >= 0 && index_ > plan_.carry_at) || expansion_.done();
    }

    int digit_() noexcept
    {
        const i64 i = index_++;
        if (plan_.single)
            return int(plan_.significant);
        if (plan_.carried_one)
            return i == 0;
        const int d = i == 0 ? first_ : expansion_.next();
        if (plan_.carry_at < 0 || i < plan_.carry_at)
            return d;
        return i == plan_.carry_at ? d + 1 : 0;
    }

    exact_expansion<Limbs> expansion_;
    const rounding_plan& plan_;
    int first_ = 0;
    i64 index_ = 0;
};

template <class Digits, class Sink>
bool write_layout(const float_text::layout& l, Digits& digits, Sink& out)
{
    if (l.sign && !out.chars(&l.sign, 1))
        return false;
    if (!(l.lead ? digits.write(out, l.lead) : out.chars("0", 1)))
        return false;
    if (l.point && !out.chars(".", 1))
        return false;
    if (l.zeros && !out.zeros(l.zeros))
        return false;
    if (l.tail && !digits.write(out, l.tail))
        return false;
    return out.chars(l.suffix, l.suffix_size);
}

// The text of a layout whose digits come from the exact expansion.
template <int Limbs, class Sink>
[[gnu::noinline]] bool write_exact(const float_text::layout& l, u64 m, int e2, const rounding_plan& plan, Sink& out)
{
    exact_digits_source<Limbs> source(m, e2, plan);
    return write_layout(l, source, out);
}

// ------------------------------------------------------------- layouts

std::size_t layout_size(const float_text::layout& l) noexcept
{
    return (l.sign != 0) + (l.lead ? l.lead : 1) + l.point + l.zeros + l.tail + l.suffix_size;
}

// The exponent letter, its sign and at least `min_digits` digits.
void set_exponent_suffix(float_text::layout& l, char letter, i64 exponent, int min_digits = 2) noexcept
{
    char* out = l.suffix;
    *out++ = letter;
    *out++ = exponent < 0 ? '-' : '+';
    const u64 magnitude = exponent < 0 ? u64(-exponent) : u64(exponent);
    int digits = min_digits;
    while (digits < 5 && magnitude >= power_of_ten[digits])
        ++digits;
    for (int i = digits; i-- > 0;)
        out[i] = char('0' + magnitude / power_of_ten[digits - 1 - i] % 10);
    l.suffix_size = std::uint8_t(2 + digits);
}

// Digits of Q before the point, zeros after it, Q's remaining digits:
// "%f" with p digits after the point.
void layout_fixed(float_text::layout& l, const rounding_plan& q, u64 p, bool showpoint) noexcept
{
    l.lead = q.count > p ? q.count - p : 0;
    l.zeros = p > q.count ? p - q.count : 0;
    l.tail = q.count - l.lead;
    l.point = p > 0 || showpoint;
}

// "%e" with the P digits of Q; trailing zeros go unless they must stay.
void layout_scientific(float_text::layout& l, const rounding_plan& q, bool keep_zeros, bool showpoint,
                       char letter) noexcept
{
    l.lead = 1;
    l.tail = keep_zeros ? q.count - 1 : (q.significant > 1 ? q.significant - 1 : 0);
    l.point = l.tail > 0 || showpoint;
    set_exponent_suffix(l, letter, q.exponent);
}

// "%g": plain for exponents from -4 up to below P, else scientific;
// trailing zeros removed unless showpoint. Where the rounding carried a
// value that would have been written plain with P digits and no fraction
// (99.5 with P = 2) to the exponent P, the C library writes no fraction
// digits under showpoint either ("1.e+02"), and so does this.
void layout_general(float_text::layout& l, const rounding_plan& q, const float_format& f) noexcept
{
    const i64 x = q.exponent;
    const i64 digits = i64(q.count);
    if (x < -4 || x >= digits) {
        layout_scientific(l, q, f.showpoint, f.showpoint, f.uppercase ? 'E' : 'e');
        if (q.carried_one && x == digits)
            l.tail = 0;
        return;
    }
    l.lead = x >= 0 ? u64(x + 1) : 0;
    l.zeros = x < 0 ? u64(-x - 1) : 0;
    l.tail = q.count - l.lead;
    if (!f.showpoint) {
        l.tail = q.significant > l.lead ? q.significant - l.lead : 0;
        if (l.tail == 0)
            l.zeros = 0;
    }
    l.point = l.tail + l.zeros > 0 || f.showpoint;
}

// A value split into sign, class and m * 2^e2.
struct binary_value {
    enum kind_t { zero, finite, infinite, nan } kind;
    bool negative;
    u64 mantissa;
    int exponent;
};

binary_value decompose(double v) noexcept
{
    const u64 bits = std::bit_cast<u64>(v);
    const bool negative = bits >> 63;
    const int field = int(bits >> 52 & 0x7FF);
    const u64 fraction = bits & ((u64(1) << 52) - 1);
    if (field == 0x7FF)
        return {fraction == 0 ? binary_value::infinite : binary_value::nan, negative, 0, 0};
    if (field == 0 && fraction == 0)
        return {binary_value::zero, negative, 0, 0};
    const u64 m = field ? fraction | u64(1) << 52 : fraction;
    return {binary_value::finite, negative, m, (field ? field : 1) - 1075};
}

binary_value decompose(long double v) noexcept
{
    struct bits {
        u64 significand;
        std::uint16_t sign_exponent;
        std::uint16_t padding[3];
    };
    const auto b = std::bit_cast<bits>(v);
    const bool negative = b.sign_exponent >> 15;
    const int field = b.sign_exponent & 0x7FFF;
    if (field == 0x7FFF) {
        const bool nan = (b.significand << 1) != 0;
        return {nan ? binary_value::nan : binary_value::infinite, negative, 0, 0};
    }
    if (b.significand == 0)
        return {binary_value::zero, negative, 0, 0};
    return {binary_value::finite, negative, b.significand, (field ? field : 1) - 16383 - 63};
}

// "%a": the hexadecimal digits of the significand with a leading digit of
// 1 (double) or of the top four bits (long double, as the C library writes
// it), trailing zeros dropped, and a binary exponent.
std::size_t render_hex(char* out, const binary_value& v, bool long_double, const float_format& f) noexcept
{
    const char* digits = f.uppercase ? "0123456789ABCDEF" : "0123456789abcdef";
    char* p = out;
    *p++ = '0';
    *p++ = f.uppercase ? 'X' : 'x';
    u64 rest = 0; // the bits after the leading digit, left-aligned
    i64 exponent = 0;
    unsigned lead = 0;
    if (v.kind == binary_value::finite) {
        if (long_double) {
            lead = unsigned(v.mantissa >> 60);
            rest = v.mantissa << 4;
            exponent = v.exponent + 60;
        } else {
            lead = unsigned(v.mantissa >> 52); // 1, or 0 for a subnormal
            rest = v.mantissa << 12;
            exponent = v.exponent + 52;
        }
    }
    *p++ = digits[lead];
    if (rest || f.showpoint)
        *p++ = '.';
    for (; rest; rest <<= 4)
        *p++ = digits[rest >> 60];
    float_text::layout l{};
    set_exponent_suffix(l, f.uppercase ? 'P' : 'p', exponent, 1);
    std::memcpy(p, l.suffix, l.suffix_size);
    return std::size_t(p - out) + l.suffix_size;
}

} // namespace

float_format float_format::of(ios_base::fmtflags flags, streamsize precision) noexcept
{
    float_format f;
    switch (flags & ios_base::floatfield) {
    case ios_base::fixed:
        f.style = fixed;
        break;
    case ios_base::scientific:
        f.style = scientific;
        break;
    case ios_base::floatfield:
        f.style = hex;
        break;
    default:
        f.style = general;
    }
    f.uppercase = (flags & ios_base::uppercase) && f.style != fixed;
    f.showpoint = (flags & ios_base::showpoint) != 0;
    f.showpos = (flags & ios_base::showpos) != 0;
    f.precision = precision < 0 ? 6 : precision > INT_MAX ? INT_MAX : int(precision);
    return f;
}

float_text::float_text(double v, const float_format& f) noexcept { build_(v, f); }

float_text::float_text(long double v, const float_format& f) noexcept
{
    long_double_ = true;
    build_(v, f);
}

template <class F>
void float_text::build_(F v, const float_format& f) noexcept
{
    const binary_value b = decompose(v);
    layout_.sign = b.negative ? '-' : f.showpos ? '+' : 0;
    prefix_ = layout_.sign != 0;
    char* out = short_;
    if (layout_.sign)
        *out++ = layout_.sign;
    if (b.kind == binary_value::infinite || b.kind == binary_value::nan) {
        const char* word =
            b.kind == binary_value::infinite ? (f.uppercase ? "INF" : "inf") : (f.uppercase ? "NAN" : "nan");
        std::memcpy(out, word, 3);
        size_ = std::size_t(out + 3 - short_);
        return;
    }
    if (f.style == float_format::hex) {
        if (!layout_.sign)
            prefix_ = 2;
        size_ = std::size_t(out - short_) + render_hex(out, b, long_double_, f);
        return;
    }
    mantissa_ = b.mantissa;
    exponent_ = b.exponent;

    // Q: its digit count, significant digits and exponent, and for the
    // short computation the digits themselves.
    const bool fixed = f.style == float_format::fixed;
    const i64 wanted = fixed                                 ? f.precision
                       : f.style == float_format::scientific ? i64(f.precision) + 1
                                                             : std::max(f.precision, 1);
    char* const digits = digits_;
    u64 q = 0;
    i64 exponent = 0;
    bool carried = false;
    bool found;
    if (b.kind == binary_value::zero)
        found = fixed || wanted <= short_digits;
    else
        found = fixed ? short_fixed(b.mantissa, b.exponent, f.precision, q)
                      : wanted <= short_digits &&
                            short_significant(b.mantissa, b.exponent, int(wanted), q, exponent, carried);
    if (b.kind == binary_value::zero && !found) {
        // As many zeros as wanted, written as one digit repeated.
        exact_ = true;
        plan_ = {u64(wanted), 0, 0, 0, -1, true, false};
    } else if (found) {
        int n = 1;
        while (n < short_digits && q >= power_of_ten[n])
            ++n;
        if (!fixed)
            n = int(wanted); // a zero value has as many zeros
        for (int i = n; i-- > 0; q /= 10)
            digits[i] = char('0' + q % 10);
        int significant = n;
        while (significant > 0 && digits[significant - 1] == '0')
            --significant;
        plan_ = {u64(n), fixed ? n - 1 - i64(f.precision) : exponent, u64(significant), 0, -1, false, carried};
    } else {
        exact_ = true;
        plan_ = long_double_ ? plan_exact<long_double_limbs>(b.mantissa, b.exponent, fixed, wanted)
                             : plan_exact<double_limbs>(b.mantissa, b.exponent, fixed, wanted);
    }

    switch (f.style) {
    case float_format::fixed:
        layout_fixed(layout_, plan_, u64(f.precision), f.showpoint);
        break;
    case float_format::scientific:
        layout_scientific(layout_, plan_, true, f.showpoint, f.uppercase ? 'E' : 'e');
        break;
    default:
        layout_general(layout_, plan_, f);
    }
    size_ = layout_size(layout_);
    if (size_ > short_capacity)
        return;
    buffer_sink sink{short_};
    if (!exact_) {
        short_digits_source source{digits};
        write_layout(layout_, source, sink);
    } else if (long_double_) {
        write_exact<long_double_limbs>(layout_, mantissa_, exponent_, plan_, sink);
    } else {
        write_exact<double_limbs>(layout_, mantissa_, exponent_, plan_, sink);
    }
}

bool float_text::write(float_sink& out) const
{
    if (size_ <= short_capacity)
        return out.chars(short_, size_);
    if (!exact_) { // a few digits among many zeros
        short_digits_source source{digits_};
        return write_layout(layout_, source, out);
    }
    return long_double_ ? write_exact<long_double_limbs>(layout_, mantissa_, exponent_, plan_, out)
                        : write_exact<double_limbs>(layout_, mantissa_, exponent_, plan_, out);
}

} // namespace uvt::impl
