// The argument operators of uvt::exception: each converts its value to text
// without allocating (except the rendering of another exception) and
// defines it as a named argument of the current message.

#include <uvt/exception>
#include <uvt/impl/dtoa>
#include <uvt/impl/message_list>
#include <uvt/strstream>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace uvt {

namespace {

// Enough for "-" and 20 decimal digits, or "0x" and 16 hexadecimal digits,
// and the terminator.
using number_buffer = char[24];

// The decimal text of `value`, or "0x" and its hexadecimal digits (of the
// unsigned value of the same width), at the end of `buffer`.
template <class T>
const char* integer_text(number_buffer& buffer, T value, bool hexadecimal)
{
    using U = std::make_unsigned_t<T>;
    char* p = buffer + sizeof buffer;
    *--p = '\0';
    U magnitude = static_cast<U>(value);
    bool negative = false;
    if constexpr (std::is_signed_v<T>) {
        negative = !hexadecimal && value < 0;
        if (negative)
            magnitude = static_cast<U>(U(0) - magnitude);
    }
    const unsigned base = hexadecimal ? 16 : 10;
    do {
        *--p = "0123456789abcdef"[magnitude % base];
        magnitude = static_cast<U>(magnitude / base);
    } while (magnitude);
    if (hexadecimal) {
        *--p = 'x';
        *--p = '0';
    }
    if (negative)
        *--p = '-';
    return p;
}

template <class T>
exception& define_integer(exception& e, const message_arg_base<T>& a)
{
    number_buffer buffer;
    e.define_argument(a.name, integer_text(buffer, a.value, a.option), a.replace);
    return e;
}

// A hexadecimal dump shows at most this many bytes ("41 42 43").
constexpr std::size_t max_dump_bytes = 341;
using dump_buffer = char[max_dump_bytes * 3];

const char* hex_dump(dump_buffer& buffer, const char* text)
{
    const std::size_t n = strnlen(text, max_dump_bytes);
    for (std::size_t i = 0; i < n; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        buffer[3 * i] = "0123456789ABCDEF"[byte >> 4];
        buffer[3 * i + 1] = "0123456789ABCDEF"[byte & 15];
        buffer[3 * i + 2] = ' ';
    }
    buffer[n ? 3 * n - 1 : 0] = '\0';
    return buffer;
}

} // namespace

exception& operator<<(exception& e, const message_arg_base<bool>& a)
{
    const char* text = a.option ? (a.value ? "1" : "0") : (a.value ? "true" : "false");
    e.define_argument(a.name, text, a.replace);
    return e;
}

exception& operator<<(exception& e, const message_arg_base<char>& a) { return define_integer(e, a); }
exception& operator<<(exception& e, const message_arg_base<unsigned char>& a) { return define_integer(e, a); }
exception& operator<<(exception& e, const message_arg_base<int>& a) { return define_integer(e, a); }
exception& operator<<(exception& e, const message_arg_base<unsigned int>& a) { return define_integer(e, a); }
exception& operator<<(exception& e, const message_arg_base<long>& a) { return define_integer(e, a); }
exception& operator<<(exception& e, const message_arg_base<unsigned long>& a) { return define_integer(e, a); }

exception& operator<<(exception& e, const message_arg_base<double>& a)
{
    char buffer[dtoa_buffer_size];
    const char* text = dtoa(a.value, 12, buffer, sizeof buffer);
    e.define_argument(a.name, text ? text : "NaN", a.replace);
    return e;
}

exception& operator<<(exception& e, const message_arg_base<float>& a)
{
    return e << message_arg_base<double>{a.name, a.value, a.option, a.replace};
}

exception& operator<<(exception& e, const message_arg_base<const void*>& a)
{
    number_buffer buffer;
    e.define_argument(a.name, integer_text(buffer, reinterpret_cast<std::uintptr_t>(a.value), true), a.replace);
    return e;
}

exception& operator<<(exception& e, const message_arg_base<const char*>& a)
{
    if (!a.value)
        return e;
    if (!a.option) {
        e.define_argument(a.name, a.value, a.replace);
        return e;
    }
    dump_buffer buffer;
    e.define_argument(a.name, hex_dump(buffer, a.value), a.replace);
    return e;
}

exception& operator<<(exception& e, const message_arg_base<exception>& a)
{
    exception_data* d = e.payload_();
    allocator& text_allocator = d ? *d->alloc : exception::default_allocator();
    bool rendered = false;
    try {
        ostrstream text(text_allocator);
        a.value.print(text);
        rendered = !text.fail();
        if (rendered)
            e.define_argument(a.name, text.c_str(), a.replace);
    } catch (const exception& failure) {
        // The stream could not be set up for lack of memory: the argument is
        // lost like one whose block could not be allocated.
        failure.mark_processed();
    }
    if (!rendered && d && a.name && e.current_ && !e.current_->lost_information()) {
        d->clear_processed();
        e.current_->status = exception_node::parameter_lost;
    }
    return e;
}

} // namespace uvt
