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

strstreambuf::~strstreambuf() { alloc_.deallocate(pbase()); }

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
    const std::size_t capacity = pbase() ? static_cast<std::size_t>(epptr() - pbase()) + 1 : 0;
    if (used + extra < capacity)
        return true;
    const std::size_t grown = std::max({2 * capacity, used + extra + 1, initial_capacity});
    char* block = static_cast<char*>(alloc_.allocateNoThrow(grown));
    if (!block)
        return false;
    if (used)
        std::memcpy(block, pbase(), used);
    alloc_.deallocate(pbase());
    setp(block, block + grown - 1);
    pbump(static_cast<streamsize>(used));
    return true;
}

ostrstream::ostrstream(allocator& a) : buf_(a) { init(&buf_); }

ostrstream::~ostrstream() = default;

} // namespace uvt
