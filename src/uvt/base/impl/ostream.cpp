// basic_ostream: sentries, padding, integer and pointer formatting.
#include <uvt/ios>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <type_traits>

namespace uvt {

namespace {

// A formatted integer, built from the end of `text` backwards so that no
// length has to be known in advance. 64 bits take at most 22 octal digits;
// a sign or a base prefix adds at most 2 characters.
struct number_field {
    static constexpr int capacity = 24;

    char text[capacity];
    int begin = capacity; // first character of the field
    int prefix = 0;       // leading sign or "0x" that stays before internal padding

    const char* data() const noexcept { return text + begin; }
    int size() const noexcept { return capacity - begin; }
    void push_front(char c) noexcept { text[--begin] = c; }
};

// Octal and hexadecimal digits come from shifts; decimal digits two at a
// time from a table, which halves the divisions.
template <unsigned Bits>
void push_power_of_two_digits(number_field& f, std::uint64_t v, const char* digits) noexcept
{
    do {
        f.push_front(digits[v & ((1u << Bits) - 1)]);
        v >>= Bits;
    } while (v);
}

void push_decimal_digits(number_field& f, std::uint64_t v) noexcept
{
    static constexpr char pairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                                    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                                    "8081828384858687888990919293949596979899";
    while (v >= 100) {
        const unsigned pair = static_cast<unsigned>(v % 100) * 2;
        v /= 100;
        f.push_front(pairs[pair + 1]);
        f.push_front(pairs[pair]);
    }
    if (v >= 10) {
        f.push_front(pairs[v * 2 + 1]);
        f.push_front(pairs[v * 2]);
    } else {
        f.push_front(static_cast<char>('0' + v));
    }
}

// Renders `magnitude` as the flags say: decimal with a '-' for `negative`
// and a '+' under showpos for a signed type; octal or hexadecimal with the
// base prefix under showbase for a non-zero value.
void render_integer(number_field& f, std::uint64_t magnitude, bool negative, bool signed_type,
                    ios_base::fmtflags flags) noexcept
{
    const bool upper = (flags & ios_base::uppercase) != 0;
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    const bool with_base = (flags & ios_base::showbase) && magnitude != 0;
    switch (flags & ios_base::basefield) {
    case ios_base::oct:
        push_power_of_two_digits<3>(f, magnitude, digits);
        if (with_base)
            f.push_front('0');
        return;
    case ios_base::hex:
        push_power_of_two_digits<4>(f, magnitude, digits);
        if (with_base) {
            f.push_front(upper ? 'X' : 'x');
            f.push_front('0');
            f.prefix = 2;
        }
        return;
    default:
        push_decimal_digits(f, magnitude);
        if (negative || (signed_type && (flags & ios_base::showpos))) {
            f.push_front(negative ? '-' : '+');
            f.prefix = 1;
        }
    }
}

// Called in a catch handler: marks a library exception that the stream
// absorbs into its state as handled, so it is not reported as forgotten.
void absorb_current_exception() noexcept
{
    try {
        throw;
    } catch (const exception& e) {
        e.mark_processed();
    } catch (...) {
    }
}

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
        absorb_current_exception();
    }
}

// ------------------------------------------------------ formatted output

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
    number_field f;
    render_integer(f, reinterpret_cast<std::uintptr_t>(p), false, false, ios_base::hex | ios_base::showbase);
    return insert_narrow_(f.data(), f.size(), f.prefix);
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
    number_field f;
    render_integer(f, magnitude, negative, std::is_signed_v<T>, flags);
    return insert_narrow_(f.data(), f.size(), f.prefix);
}

template <class C>
basic_ostream<C>& basic_ostream<C>::insert_narrow_(const char* s, streamsize n, streamsize prefix)
{
    if constexpr (std::is_same_v<C, char>) {
        return insert_field_(s, n, prefix);
    } else {
        C wide[number_field::capacity];
        std::copy(s, s + n, wide);
        return insert_field_(wide, n, prefix);
    }
}

template <class C>
basic_ostream<C>& basic_ostream<C>::insert_field_(const C* s, streamsize n, streamsize prefix)
{
    const sentry ok(*this);
    if (ok)
        guarded_([&] { write_padded_(s, n, prefix); });
    return *this;
}

template <class C>
void basic_ostream<C>::write_padded_(const C* s, streamsize n, streamsize prefix)
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
bool basic_ostream<C>::write_chars_(const C* s, streamsize n)
{
    return n <= 0 || this->rdbuf()->sputn(s, n) == n;
}

// An exception from the buffer sets badbit and goes on only when the
// exception mask asks for badbit; otherwise the stream absorbs it.
template <class C>
template <class Op>
void basic_ostream<C>::guarded_(Op op)
{
    try {
        op();
    } catch (...) {
        this->add_state_(ios_base::badbit);
        if (this->exceptions() & ios_base::badbit)
            throw;
        absorb_current_exception();
    }
}

// ---------------------------------------------------- unformatted output

template <class C>
basic_ostream<C>& basic_ostream<C>::put(C c)
{
    const sentry ok(*this);
    if (ok) {
        guarded_([&] {
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
        guarded_([&] {
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
        guarded_([&] {
            if (this->rdbuf()->pubsync() == -1)
                this->setstate(ios_base::badbit);
        });
    }
    return *this;
}

template class basic_ostream<char>;

} // namespace uvt
