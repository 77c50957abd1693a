// strstreambuf / ostrstream: text collected in a block of the caller's
// allocator.
#include <uvt/strstream>

#include <algorithm>
#include <cstring>

namespace uvt {

namespace {
// The first block: enough for a typical message without regrowing.
constexpr std::size_t initial_capacity = 128;
} // namespace

strstreambuf::strstreambuf(char* buffer, std::size_t capacity) noexcept : alloc_(nullptr)
{
    if (capacity)
        setp(buffer, buffer + capacity - 1);
}

strstreambuf::~strstreambuf()
{
    if (alloc_)
        alloc_->deallocate(pbase());
}

const char* strstreambuf::c_str() const noexcept
{
    if (!pbase())
        return "";
    *pptr() = '\0';
    return pbase();
}

strstreambuf::int_type strstreambuf::overflow(int_type c)
{
    if (c == traits_type::eof())
        return 0;
    if (!reserve_(1))
        return traits_type::eof();
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}

streamsize strstreambuf::xsputn(const char* s, streamsize n)
{
    if (n <= 0)
        return 0;
    if (epptr() - pptr() < n)
        reserve_(static_cast<std::size_t>(n));
    const streamsize stored = std::min(n, static_cast<streamsize>(epptr() - pptr()));
    std::copy(s, s + stored, pptr());
    pbump(stored);
    return stored;
}

bool strstreambuf::reserve_(std::size_t extra) noexcept
{
    const std::size_t used = size();
    if (!alloc_)
        return used + extra <= static_cast<std::size_t>(epptr() - pbase());
    const std::size_t capacity = pbase() ? static_cast<std::size_t>(epptr() - pbase()) + 1 : 0;
    if (used + extra < capacity)
        return true;
    const std::size_t grown = std::max({2 * capacity, used + extra + 1, initial_capacity});
    char* block = static_cast<char*>(alloc_->allocateNoThrow(grown));
    if (!block)
        return false;
    if (used)
        std::memcpy(block, pbase(), used);
    alloc_->deallocate(pbase());
    setp(block, block + grown - 1);
    pbump(static_cast<streamsize>(used));
    return true;
}

ostrstream::ostrstream(allocator& a) : buf_(a) { init(&buf_); }

ostrstream::~ostrstream() = default;

namespace {
// The capacity of a caller's buffer given with a negative size.
constexpr std::size_t unbounded_caller_buffer = 32767;

std::size_t caller_capacity(const char* buffer, int size)
{
    if (size > 0)
        return static_cast<std::size_t>(size);
    // The text already in the buffer and its zero.
    return size == 0 ? std::strlen(buffer) + 1 : unbounded_caller_buffer;
}
} // namespace

msgarg_stream::msgarg_stream(const char* name) : name_(name), buf_(allocator::global_allocator()) { init(&buf_); }

msgarg_stream::msgarg_stream(const char* name, char* buffer, int size)
    : name_(name), buf_(buffer, caller_capacity(buffer, size))
{
    init(&buf_);
}

msgarg_stream::~msgarg_stream() = default;

exception& operator<<(exception& e, const msgarg_stream& s)
{
    e.define_argument(s.name(), s.c_str(), false);
    return e;
}

} // namespace uvt
