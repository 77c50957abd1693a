// buffer_stream: the size-independent part.
#include <uvt/ext/buffer_stream>

namespace uvt::impl {

BufferStreamBase::BufferStreamBase(char* buffer, std::size_t capacity) : buf_(*this, buffer, capacity) { init(&buf_); }

BufferStreamBase::~BufferStreamBase() = default;

BufferStreamBase::text_buf::text_buf(BufferStreamBase& owner, char* buffer, std::size_t capacity) noexcept
    : owner_(owner)
{
    // The last character is kept for the terminating zero.
    setp(buffer, buffer + capacity - 1);
}

const char* BufferStreamBase::text_buf::text() const noexcept
{
    *pptr() = '\0';
    return pbase();
}

int BufferStreamBase::text_buf::sync()
{
    *pptr() = '\0';
    return 0;
}

BufferStreamBase::text_buf::int_type BufferStreamBase::text_buf::overflow(int_type c)
{
    if (c == traits_type::eof())
        return 0;
    owner_.add_state_(ios_base::badbit);
    if (owner_.exceptions() & ios_base::badbit)
        ios_base::throwIOSFailure(__FILE__, __LINE__, "buffer_stream::overflow");
    return traits_type::eof();
}

} // namespace uvt::impl
