// The standard streams: buffers over descriptors 0, 1 and 2 with the host's
// line prefix, and the accessors that prefer the host's streams.

#include <uvt/import>
#include <uvt/iostream>

#include <cerrno>
#include <cstring>
#include <new>

#include <sys/ioctl.h>
#include <unistd.h>

namespace uvt {

namespace {
// Standard error keeps at most this many characters between writes.
constexpr std::size_t small_buffer_size = 2;
// The prefix buffer handed to the host, and the size it is told.
constexpr std::size_t prefix_buffer_size = 128;
constexpr unsigned long prefix_size_told = 127;
} // namespace

std_streambuf::std_streambuf(StreamName name) noexcept
    : name_(name), mode_(name == standard_input ? ios_base::in : ios_base::out), small_buffer_(name == standard_error)
{
    if (mode_ & ios_base::out)
        setp(buffer_, buffer_ + (small_buffer_ ? small_buffer_size : sizeof buffer_));
}

std_streambuf::~std_streambuf()
{
    if (mode_ & ios_base::out)
        sync();
}

int std_streambuf::descriptor_() const noexcept
{
    return name_ == standard_input ? 0 : name_ == standard_output ? 1 : 2;
}

bool std_streambuf::write_(const char* bytes, std::size_t n) const noexcept
{
    while (n) {
        const ssize_t written = ::write(descriptor_(), bytes, n);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        n -= static_cast<std::size_t>(written);
    }
    return true;
}

bool std_streambuf::checkPrefix_()
{
    if (!at_line_start_)
        return true;
    char prefix[prefix_buffer_size];
    const char* text = getStandardPrefix(prefix, prefix_size_told);
    if (!text) {
        at_line_start_ = false;
        return true;
    }
    // The prefix and its tab leave in one write.
    char line_start[prefix_buffer_size + 1];
    const std::size_t length = ::strnlen(text, prefix_buffer_size);
    std::memcpy(line_start, text, length);
    line_start[length] = '\t';
    if (!write_(line_start, length + 1))
        return false;
    at_line_start_ = false;
    return true;
}

int std_streambuf::sync()
{
    const char* next = pbase();
    const char* const end = pptr();
    if (!(mode_ & ios_base::out) || next == end)
        return 0;
    bool ok = true;
    if (line_mode_) {
        while (ok && next < end) {
            const void* newline = std::memchr(next, '\n', static_cast<std::size_t>(end - next));
            const char* stop = newline ? static_cast<const char*>(newline) + 1 : end;
            ok = checkPrefix_() && write_(next, static_cast<std::size_t>(stop - next));
            if (ok && newline)
                at_line_start_ = true;
            next = stop;
        }
    } else {
        ok = write_(next, static_cast<std::size_t>(end - next));
    }
    setp(pbase(), epptr());
    return ok ? 0 : -1;
}

std_streambuf::int_type std_streambuf::overflow(int_type c)
{
    if (!(mode_ & ios_base::out) || sync() != 0)
        return traits_type::eof();
    if (c == traits_type::eof())
        return 0;
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}

std_streambuf::int_type std_streambuf::underflow()
{
    if (!(mode_ & ios_base::in))
        return traits_type::eof();
    if (gptr() < egptr())
        return traits_type::to_int_type(*gptr());
    ssize_t got;
    do {
        got = ::read(descriptor_(), buffer_, sizeof buffer_);
    } while (got < 0 && errno == EINTR);
    if (got <= 0)
        return traits_type::eof();
    setg(buffer_, buffer_, buffer_ + got);
    return traits_type::to_int_type(*gptr());
}

streamsize std_streambuf::showmanyc()
{
    int available = 0;
    if (!(mode_ & ios_base::in) || ::ioctl(descriptor_(), FIONREAD, &available) != 0)
        return 0;
    return available;
}

namespace {

// The library's own standard streams. They are never destroyed, so that
// code running during static destruction can still write; an object
// constructed with them flushes what is buffered at exit.
struct own_streams {
    std_streambuf in_buf{std_streambuf::standard_input};
    std_streambuf out_buf{std_streambuf::standard_output};
    std_streambuf err_buf{std_streambuf::standard_error};
    std_streambuf local_buf{std_streambuf::standard_error};
    basic_istream<char> in{&in_buf};
    basic_ostream<char> out{&out_buf};
    basic_ostream<char> err{&err_buf};
    basic_ostream<char> local{&local_buf};

    own_streams() { in.tie(&out); }
};

struct flush_at_exit {
    own_streams& streams;
    ~flush_at_exit()
    {
        streams.out_buf.pubsync();
        streams.err_buf.pubsync();
        streams.local_buf.pubsync();
    }
};

own_streams& own()
{
    alignas(own_streams) static unsigned char storage[sizeof(own_streams)];
    static own_streams* const streams = new (storage) own_streams();
    static flush_at_exit flusher{*streams};
    return *streams;
}

template <class S>
S& provided_or_own(S* (uvt_extern::StdStreamProvider::*slot)(), S& (*own_stream)())
{
    if (uvt_extern::StdStreamProvider* provider = uvt_extern::import::get_std_stream_provider()) {
        if (S* s = (provider->*slot)())
            return *s;
    }
    return own_stream();
}

} // namespace

basic_istream<char>& getStandardInput()
{
    return provided_or_own(
        &uvt_extern::StdStreamProvider::get_standard_input, +[]() -> basic_istream<char>& { return own().in; });
}

basic_ostream<char>& getStandardOutput()
{
    return provided_or_own(
        &uvt_extern::StdStreamProvider::get_standard_output, +[]() -> basic_ostream<char>& { return own().out; });
}

basic_ostream<char>& getStandardError()
{
    return provided_or_own(
        &uvt_extern::StdStreamProvider::get_standard_error, +[]() -> basic_ostream<char>& { return own().err; });
}

basic_ostream<char>& getLocalStream()
{
    return provided_or_own(
        &uvt_extern::StdStreamProvider::get_local_stream, +[]() -> basic_ostream<char>& { return own().local; });
}

} // namespace uvt
