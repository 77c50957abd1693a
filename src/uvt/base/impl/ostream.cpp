// basic_ostream: sentries, padding, integer, pointer and floating-point
// formatting.
#include "stream_guard.h"
#include "uvt/impl/float_text.h"

#include <uvt/ios>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <exception>
#include <type_traits>
#include <utility>

namespace uvt {

namespace {

// The text of an integer is at most 24 characters: 64 bits take at most
// 22 octal digits, and a sign or a base prefix adds at most 2.
constexpr int longest_integer = 24;

// The length of an integer's text, and how many of its first characters (a
// sign or "0x") stay before internal padding.
struct integer_text {
    int size;
    int prefix;
};

constexpr char digit_pairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                               "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                               "8081828384858687888990919293949596979899";

// Decimal digits are written forward, two at a time from a table; numbers
// of more than 8 digits are split into 8-digit parts first, so that the
// divisions stay 32-bit ones.
inline void put_pair(char* p, unsigned v) noexcept { std::memcpy(p, digit_pairs + 2 * v, 2); }

// Exactly 4 or 8 digits (leading zeros included).
inline void put_four(char* p, unsigned v) noexcept
{
    put_pair(p, v / 100);
    put_pair(p + 2, v % 100);
}
inline void put_eight(char* p, unsigned v) noexcept
{
    put_four(p, v / 10000);
    put_four(p + 4, v % 10000);
}

// The digits of v < 10^8 without leading zeros; returns their end.
char* put_up_to_eight(char* p, unsigned v) noexcept
{
    if (v < 10000) {
        if (v < 100) {
            if (v < 10) {
                *p = static_cast<char>('0' + v);
                return p + 1;
            }
            put_pair(p, v);
            return p + 2;
        }
        if (v < 1000) {
            *p = static_cast<char>('0' + v / 100);
            put_pair(p + 1, v % 100);
            return p + 3;
        }
        put_four(p, v);
        return p + 4;
    }
    // Five to eight digits: the high part as above, then four.
    p = put_up_to_eight(p, v / 10000);
    put_four(p, v % 10000);
    return p + 4;
}

char* put_decimal(char* p, std::uint64_t v) noexcept
{
    constexpr std::uint64_t e8 = 100000000, e16 = e8 * e8;
    if (v < e8)
        return put_up_to_eight(p, static_cast<unsigned>(v));
    if (v < e16) {
        p = put_up_to_eight(p, static_cast<unsigned>(v / e8));
    } else {
        p = put_up_to_eight(p, static_cast<unsigned>(v / e16));
        v %= e16;
        put_eight(p, static_cast<unsigned>(v / e8));
        p += 8;
    }
    put_eight(p, static_cast<unsigned>(v % e8));
    return p + 8;
}

// Octal and hexadecimal digits, written from their end.
template <unsigned Bits>
char* put_power_of_two(char* p, std::uint64_t v, const char* digits) noexcept
{
    const int count = v ? (64 - __builtin_clzll(v) + Bits - 1) / Bits : 1;
    for (char* q = p + count; q != p; v >>= Bits)
        *--q = digits[v & ((1u << Bits) - 1)];
    return p + count;
}

// Octal or hexadecimal (by the flags) with the base prefix under showbase
// for a non-zero value.
integer_text render_power_of_two(char* out, std::uint64_t magnitude, ios_base::fmtflags flags) noexcept
{
    const bool upper = (flags & ios_base::uppercase) != 0;
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    const bool with_base = (flags & ios_base::showbase) && magnitude != 0;
    char* p = out;
    if ((flags & ios_base::basefield) == ios_base::oct) {
        if (with_base)
            *p++ = '0';
        return {static_cast<int>(put_power_of_two<3>(p, magnitude, digits) - out), 0};
    }
    if (with_base) {
        *p++ = '0';
        *p++ = upper ? 'X' : 'x';
    }
    return {static_cast<int>(put_power_of_two<4>(p, magnitude, digits) - out), with_base ? 2 : 0};
}

// Writes `magnitude` to `out` (room for longest_integer characters) as the
// flags say: in the base of basefield (see render_power_of_two), decimal
// with a '-' for `negative` and a '+' under showpos for a signed type.
integer_text render_integer(char* out, std::uint64_t magnitude, bool negative, bool signed_type,
                            ios_base::fmtflags flags) noexcept
{
    const ios_base::fmtflags base = flags & ios_base::basefield;
    if (base == ios_base::oct || base == ios_base::hex)
        return render_power_of_two(out, magnitude, flags);
    const bool sign = negative || (signed_type && (flags & ios_base::showpos));
    if (sign)
        *out = negative ? '-' : '+';
    return {static_cast<int>(put_decimal(out + sign, magnitude) - out), sign};
}

// Long runs of zeros of floating-point texts are written from here.
constexpr char zero_digits[] = "0000000000000000000000000000000000000000000000000000000000000000";

} // namespace

// ----------------------------------------------------------------- sentry

// The count of uncaught exceptions is needed only to flush under unitbuf;
// taking it costs a thread-local lookup, so other insertions skip it.
template <class C>
basic_ostream<C>::sentry::sentry(basic_ostream& os)
    : os_(os), uncaught_(os.flags() & ios_base::unitbuf ? std::uncaught_exceptions() : 0), ok_(false)
{
    if (os.good() && !os.rdbuf())
        os.setstate(ios_base::badbit);
    // A stream tied to itself would flush itself without end.
    if (os.good() && os.tie() && os.tie() != &os)
        os.tie()->flush();
    ok_ = os.good();
    if (!ok_)
        os.setstate(ios_base::failbit);
}

template <class C>
basic_ostream<C>::sentry::~sentry()
{
    if (!(os_.flags() & ios_base::unitbuf) || std::uncaught_exceptions() != uncaught_ || !os_.good())
        return;
    try {
        if (os_.rdbuf()->pubsync() == -1)
            os_.add_state_(ios_base::badbit);
    } catch (...) {
        os_.add_state_(ios_base::badbit);
        impl::absorb_current_exception();
    }
}

// ------------------------------------------------------ formatted output

// Where an insertion of n characters may go straight into the put area:
// the stream is good and untied (the sentry would do nothing), no width
// asks for padding, no unitbuf for a flush, and the area has room. Null
// otherwise.
template <class C>
[[gnu::always_inline]] inline C* basic_ostream<C>::direct_room_(streamsize n) noexcept
{
    basic_streambuf<C>* sb = this->rdbuf();
    const bool plain = this->good() && sb && !this->tie() && this->width() == 0 && !(this->flags() & ios_base::unitbuf);
    return plain && sb->put_area_room_() >= n ? sb->put_area_next_() : nullptr;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(bool v)
{
    if (this->flags() & ios_base::boolalpha)
        return v ? insert_narrow_("true", 4, 0) : insert_narrow_("false", 5, 0);
    return insert_integer_(static_cast<long>(v));
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(short v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(unsigned short v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(int v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(unsigned int v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(long v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(unsigned long v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(long long v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(unsigned long long v)
{
    return insert_integer_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(const void* p)
{
    if (!p)
        return insert_narrow_("(nil)", 5, 0);
    char text[longest_integer];
    const integer_text t =
        render_integer(text, reinterpret_cast<std::uintptr_t>(p), false, false, ios_base::hex | ios_base::showbase);
    return insert_narrow_(text, t.size, t.prefix);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(double v)
{
    return insert_floating_(v);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::operator<<(long double v)
{
    return insert_floating_(v);
}

template <class C>
template <class F>
basic_ostream<C>& basic_ostream<C>::insert_floating_(F v)
{
    const impl::float_text text(v, impl::float_format::of(this->flags(), this->precision()));
    // The text has '.' for the decimal point of the conventions.
    const C point = impl::conventions_of<C>(*this).decimal_point;
    if (const char* s = text.short_text()) {
        if (point == C('.'))
            return insert_narrow_(s, static_cast<streamsize>(text.size()), text.prefix());
        C converted[impl::float_text::short_capacity];
        std::transform(s, s + text.size(), converted,
                       [&](char c) { return c == '.' ? point : static_cast<C>(static_cast<unsigned char>(c)); });
        return insert_field_(converted, static_cast<streamsize>(text.size()), text.prefix());
    }

    // A long text (exact digits at a high precision) is written piece by
    // piece, the padding going in after the first `pad_at` characters.
    // The point comes as a piece of its own.
    class padded_sink final : public impl::float_sink {
    public:
        padded_sink(basic_ostream& os, C point, std::size_t pad_at, streamsize pad)
            : os_(os), point_(point), pad_at_(pad_at), pad_(pad)
        {}
        bool chars(const char* s, std::size_t n) override
        {
            if (!pad_if_due_())
                return false;
            written_ += n;
            if (n == 1 && *s == '.')
                return os_.write_chars_(&point_, 1);
            return os_.write_chars_(s, static_cast<streamsize>(n));
        }
        bool zeros(std::size_t n) override
        {
            constexpr std::size_t chunk = sizeof zero_digits - 1;
            for (; n > chunk; n -= chunk)
                if (!chars(zero_digits, chunk))
                    return false;
            return chars(zero_digits, n);
        }
        // Pads at the end (left adjustment).
        bool finish() { return pad_if_due_(); }

    private:
        bool pad_if_due_()
        {
            if (pad_ == 0 || written_ < pad_at_)
                return true;
            return os_.write_fill_(std::exchange(pad_, 0));
        }

        basic_ostream& os_;
        C point_;
        std::size_t pad_at_;
        streamsize pad_;
        std::size_t written_ = 0;
    };

    const sentry ok(*this);
    if (ok) {
        this->guarded_([&] {
            const streamsize pad = std::max<streamsize>(this->width() - static_cast<streamsize>(text.size()), 0);
            this->width(0);
            const ios_base::fmtflags adjust = this->flags() & ios_base::adjustfield;
            const std::size_t pad_at = adjust == ios_base::left       ? text.size()
                                       : adjust == ios_base::internal ? static_cast<std::size_t>(text.prefix())
                                                                      : 0;
            padded_sink sink(*this, point, pad_at, pad);
            if (!(text.write(sink) && sink.finish()))
                this->setstate(ios_base::badbit);
        });
    }
    return *this;
}

template <class C>
template <class T>
basic_ostream<C>& basic_ostream<C>::insert_integer_(T v)
{
    const ios_base::fmtflags flags = this->flags();
    const ios_base::fmtflags base = flags & ios_base::basefield;
    // Octal and hexadecimal show the bits of the value as unsigned.
    bool negative = false;
    if constexpr (std::is_signed_v<T>)
        negative = v < 0 && base != ios_base::oct && base != ios_base::hex;
    const std::uint64_t magnitude =
        negative ? std::uint64_t(0) - static_cast<std::uint64_t>(v) : static_cast<std::make_unsigned_t<T>>(v);
    // Narrow digits go straight into the put area when they may.
    if constexpr (std::is_same_v<C, char>) {
        if (char* to = direct_room_(longest_integer)) {
            this->rdbuf()->put_area_fill_(render_integer(to, magnitude, negative, std::is_signed_v<T>, flags).size);
            return *this;
        }
    }
    char text[longest_integer];
    const integer_text t = render_integer(text, magnitude, negative, std::is_signed_v<T>, flags);
    return insert_narrow_(text, t.size, t.prefix);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::insert_narrow_(const char* s, streamsize n, streamsize prefix)
{
    return insert_(s, n, prefix);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::insert_field_(const C* s, streamsize n, streamsize prefix)
{
    return insert_(s, n, prefix);
}

// Most insertions need no sentry, padding or buffer call: they copy their
// characters straight into the put area. The rest take the general way,
// kept out of line so that the direct one needs no stack frame.
template <class C>
template <class S>
basic_ostream<C>& basic_ostream<C>::insert_(const S* s, streamsize n, streamsize prefix)
{
    if (C* to = direct_room_(n)) {
        for (streamsize i = 0; i < n; ++i)
            to[i] = static_cast<C>(static_cast<std::make_unsigned_t<S>>(s[i]));
        this->rdbuf()->put_area_fill_(n);
        return *this;
    }
    return insert_padded_(s, n, prefix);
}

template <class C>
template <class S>
[[gnu::noinline]] basic_ostream<C>& basic_ostream<C>::insert_padded_(const S* s, streamsize n, streamsize prefix)
{
    const sentry ok(*this);
    if (ok)
        this->guarded_([&] { write_padded_(s, n, prefix); });
    return *this;
}

template <class C>
template <class S>
void basic_ostream<C>::write_padded_(const S* s, streamsize n, streamsize prefix)
{
    const streamsize pad = std::max<streamsize>(this->width() - n, 0);
    this->width(0);
    const ios_base::fmtflags adjust = this->flags() & ios_base::adjustfield;
    // The characters that go before the padding: all of them (left, or no
    // padding at all), the prefix (internal) or none (right, the default).
    const streamsize before = pad == 0 || adjust == ios_base::left ? n : adjust == ios_base::internal ? prefix : 0;
    if (!(write_chars_(s, before) && (pad == 0 || write_fill_(pad)) && write_chars_(s + before, n - before)))
        this->setstate(ios_base::badbit);
}

template <class C>
bool basic_ostream<C>::write_fill_(streamsize n)
{
    constexpr streamsize chunk_size = 32;
    C chunk[chunk_size];
    std::fill_n(chunk, std::min(n, chunk_size), this->fill());
    for (; n > 0; n -= chunk_size) {
        if (!write_chars_(chunk, std::min(n, chunk_size)))
            return false;
    }
    return true;
}

template <class C>
template <class S>
bool basic_ostream<C>::write_chars_(const S* s, streamsize n)
{
    if constexpr (std::is_same_v<S, C>) {
        return n <= 0 || this->rdbuf()->sputn(s, n) == n;
    } else {
        // Narrow text on a wide stream, widened a chunk at a time.
        constexpr streamsize chunk_size = 64;
        C chunk[chunk_size];
        for (streamsize done = 0; done < n; done += chunk_size) {
            const streamsize count = std::min(n - done, chunk_size);
            for (streamsize i = 0; i < count; ++i)
                chunk[i] = static_cast<C>(static_cast<unsigned char>(s[done + i]));
            if (this->rdbuf()->sputn(chunk, count) != count)
                return false;
        }
        return true;
    }
}

// ---------------------------------------------------- unformatted output

template <class C>
basic_ostream<C>& basic_ostream<C>::put(C c)
{
    const sentry ok(*this);
    if (ok) {
        this->guarded_([&] {
            if (this->rdbuf()->sputc(c) == traits_type::eof())
                this->setstate(ios_base::badbit);
        });
    }
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::write(const C* s, streamsize n)
{
    const sentry ok(*this);
    if (ok) {
        this->guarded_([&] {
            if (!write_chars_(s, n))
                this->setstate(ios_base::badbit);
        });
    }
    return *this;
}

template <class C>
basic_ostream<C>& basic_ostream<C>::flush()
{
    if (!this->rdbuf())
        return *this;
    const sentry ok(*this);
    if (ok) {
        this->guarded_([&] {
            if (this->rdbuf()->pubsync() == -1)
                this->setstate(ios_base::badbit);
        });
    }
    return *this;
}

// ------------------------------------------------------------ positioning

// Runs `op` (a positioning of the buffer) unless the stream has failed;
// -1 then, or when `op` throws. A stream at the end of its input (eofbit
// alone) is positioned without a sentry, which would set failbit.
template <class C>
template <class Op>
streampos basic_ostream<C>::position_(Op op)
{
    if (this->fail())
        return -1;
    streampos pos = -1;
    auto run = [&] { this->guarded_([&] { pos = op(*this->rdbuf()); }); };
    if (this->good()) {
        const sentry ok(*this);
        if (ok)
            run();
    } else {
        run();
    }
    return pos;
}

// position_, then failbit when the buffer refused (but not when the stream
// had failed already or the buffer threw).
template <class C>
template <class Op>
basic_ostream<C>& basic_ostream<C>::seek_(Op op)
{
    if (!this->fail() && position_(op) == -1 && !this->bad())
        this->setstate(ios_base::failbit);
    return *this;
}

template <class C>
streampos basic_ostream<C>::tellp()
{
    return position_([](basic_streambuf<C>& sb) { return sb.pubseekoff(0, ios_base::cur, ios_base::out); });
}

template <class C>
basic_ostream<C>& basic_ostream<C>::seekp(streampos pos)
{
    return seek_([&](basic_streambuf<C>& sb) { return sb.pubseekpos(pos, ios_base::out); });
}

template <class C>
basic_ostream<C>& basic_ostream<C>::seekp(streamoff off, ios_base::seekdir dir)
{
    return seek_([&](basic_streambuf<C>& sb) { return sb.pubseekoff(off, dir, ios_base::out); });
}

template class basic_ostream<char>;
template class basic_ostream<wchar_t>;

} // namespace uvt
