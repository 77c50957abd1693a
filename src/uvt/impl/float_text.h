// The text of a binary floating-point value as printf writes it with "%f",
// "%e", "%g" and "%a", exact at every precision and without allocation.
//
// The decimal digits are those of the exact binary value, rounded once to
// nearest with ties to even at the requested position. Most requests need
// at most 17 or 19 digits; they are computed from one product with a
// 128-bit power of ten, whose error bound decides the rounding in all but
// about one case in 2^60. Every other request (long texts, huge exponents,
// precisions above 17, and the undecided cases) takes the exact path: the
// value's complete decimal expansion, generated on the fly from a big
// integer on the stack (a few hundred bytes for double, about 4 KiB for
// long double), walked twice: once to place the rounding, once to write.
#pragma once

#include <uvt/ios>

#include <cstddef>
#include <cstdint>

namespace uvt::impl {

// printf's conversion and flags, as a stream's flags select them.
struct float_format {
    enum style_t : unsigned char { fixed, scientific, general, hex };

    style_t style;
    bool uppercase; // "%E", "%G", "%A" ("%f" has no upper-case form here)
    bool showpoint; // '#'
    bool showpos;   // '+'
    int precision;  // >= 0, unused for hex

    // The conversion of a stream: floatfield fixed, scientific, both (hex)
    // or neither (general); a negative precision counts as 6, precisions
    // beyond the int range as INT_MAX.
    static float_format of(ios_base::fmtflags flags, streamsize precision) noexcept;
};

// Where a long text goes, piece by piece; each returns false when the
// destination refused the characters (the writer then stops).
class float_sink {
public:
    virtual bool chars(const char* s, std::size_t n) = 0;
    virtual bool zeros(std::size_t n) = 0;

protected:
    ~float_sink() = default;
};

// A value's text: built by the constructor, which writes texts of up to
// short_capacity characters at once; longer texts are written by write().
class float_text {
public:
    static constexpr std::size_t short_capacity = 64;

    float_text(double v, const float_format& f) noexcept;
    float_text(long double v, const float_format& f) noexcept;

    // The number of characters.
    std::size_t size() const noexcept { return size_; }
    // The characters that stay in front of internal padding: the sign, or
    // the "0x" of an unsigned hexadecimal text.
    int prefix() const noexcept { return prefix_; }
    // The text when size() <= short_capacity, else null.
    const char* short_text() const noexcept { return size_ <= short_capacity ? short_ : nullptr; }
    // Writes the text (any length) to `out`; false when `out` refused.
    bool write(float_sink& out) const;

    // How the digits are laid out; public for the writers in the source.
    struct layout {
        char sign;          // 0, '-' or '+'
        std::uint64_t lead; // digits of Q before the point (0: a single "0")
        bool point;
        std::uint64_t zeros; // after the point, before the rest of Q
        std::uint64_t tail;  // digits of Q after the point
        char suffix[8];      // exponent part, zero-terminated
        std::uint8_t suffix_size;
    };
    // How the rounded digits Q were found: `digits` holds them (up to 19)
    // when the short computation decided; otherwise the exact expansion is
    // regenerated with this plan.
    struct rounding_plan {
        std::uint64_t count;       // digits of Q
        std::int64_t exponent;     // decimal exponent of Q's first digit
        std::uint64_t significant; // digits of Q up to its last non-zero one
        std::int64_t cut;          // exponent of Q's last digit
        std::int64_t carry_at;     // kept digit raised by the rounding (-1: none; count: all nines)
        bool single;               // Q is one digit (0 or 1) below the value's first digit
        bool carried_one;          // the rounding carried into a new first digit: Q is 1 and zeros
    };

private:
    template <class F>
    void build_(F v, const float_format& f) noexcept;

    std::uint64_t mantissa_ = 0; // |v| = mantissa_ * 2^exponent_
    int exponent_ = 0;
    bool long_double_ = false;
    bool exact_ = false; // the digits come from the exact expansion
    layout layout_{};
    rounding_plan plan_{};
    std::size_t size_ = 0;
    int prefix_ = 0;
    char digits_[20]; // Q from the short computation
    char short_[short_capacity];
};

} // namespace uvt::impl
