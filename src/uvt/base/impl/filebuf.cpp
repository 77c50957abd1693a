// basic_filebuf: one buffer, used for reading or for writing at a time,
// over a Filebuf_base.
//
// The file's own position always belongs to one end of the buffer: while
// reading it is the position of egptr() (the get area holds characters
// already read from the file), while writing that of pbase() (the put area
// holds characters not yet written). Every change of direction or position
// restores the plain state first: unread input is given back by seeking,
// pending output is written.
//
// Input is read with read(2), never through a mapping of the file: on files
// in the page cache a mapping saved only 10 to 15% of a bare scan for line
// ends, too little to accept that a file shortened by another process while
// mapped kills the reading process with SIGBUS.
#include <uvt/fstream>
#include <uvt/impl/memory>

#include <algorithm>
#include <cstring>

namespace uvt {

namespace {

constexpr long buffer_bytes = 64 * 1024;
// The kernel copies between the page cache and a buffer much faster when
// the buffer starts on a cache line: reading a cached file into a buffer
// 8 or 16 bytes off one took three times as long.
constexpr unsigned long buffer_alignment = 64;

// The bytes one character takes in the file.
template <class C>
constexpr long long width = static_cast<long long>(sizeof(C));

} // namespace

template <class C>
basic_filebuf<C>::basic_filebuf(allocator& a) noexcept : alloc_(a)
{}

template <class C>
basic_filebuf<C>::~basic_filebuf()
{
    close();
}

// ------------------------------------------------------------ open/close

template <class C>
basic_filebuf<C>* basic_filebuf<C>::open(const char* name, ios_base::openmode mode, long permissions)
{
    return file_.open(name, mode, permissions) ? this : nullptr;
}

template <class C>
basic_filebuf<C>* basic_filebuf<C>::open(int fd)
{
    return file_.open(fd, 0) ? this : nullptr;
}

template <class C>
basic_filebuf<C>* basic_filebuf<C>::close()
{
    if (!file_.is_open())
        return nullptr;
    const bool flushed = io_ != io_state::writing || flush_put_();
    this->setg(nullptr, nullptr, nullptr);
    this->setp(nullptr, nullptr);
    io_ = io_state::idle;
    release_buffer_();
    const bool closed = file_.close();
    return flushed && closed ? this : nullptr;
}

// ---------------------------------------------------------------- helpers

template <class C>
bool basic_filebuf<C>::can_read_() const noexcept
{
    return file_.is_open() && (file_.mode() & ios_base::in);
}

template <class C>
bool basic_filebuf<C>::can_write_() const noexcept
{
    return file_.is_open() && (file_.mode() & (ios_base::out | ios_base::app));
}

template <class C>
void basic_filebuf<C>::ensure_buffer_() noexcept
{
    if (buffer_)
        return;
    buffer_ = static_cast<C*>(alloc_.allocateAlignedNoThrow(buffer_bytes, buffer_alignment));
    buffer_size_ = buffer_bytes / width<C>;
    if (!buffer_) {
        buffer_ = spare_;
        buffer_size_ = 1;
    }
}

template <class C>
void basic_filebuf<C>::release_buffer_() noexcept
{
    if (buffer_ != spare_)
        alloc_.deallocate(buffer_);
    buffer_ = nullptr;
    buffer_size_ = 0;
}

template <class C>
long long basic_filebuf<C>::byte_position_() noexcept
{
    const long long file_position = file_.seek(0, ios_base::cur);
    if (file_position < 0)
        return -1;
    if (io_ == io_state::reading)
        return file_position - (this->egptr() - this->gptr()) * width<C>;
    if (io_ == io_state::writing)
        return file_position + (this->pptr() - this->pbase()) * width<C>;
    return file_position;
}

template <class C>
bool basic_filebuf<C>::flush_put_() noexcept
{
    const long bytes = static_cast<long>((this->pptr() - this->pbase()) * width<C>);
    const bool written = bytes == 0 || file_.write(reinterpret_cast<const char*>(this->pbase()), bytes);
    this->setp(this->pbase(), this->epptr());
    return written;
}

template <class C>
bool basic_filebuf<C>::end_read_() noexcept
{
    if (io_ != io_state::reading)
        return true;
    const long long unread = (this->egptr() - this->gptr()) * width<C>;
    if (unread != 0 && file_.seek(-unread, ios_base::cur) < 0)
        return false;
    this->setg(nullptr, nullptr, nullptr);
    io_ = io_state::idle;
    return true;
}

template <class C>
bool basic_filebuf<C>::begin_read_()
{
    if (io_ == io_state::reading)
        return true;
    if (!can_read_())
        return false;
    if (io_ == io_state::writing) {
        const bool flushed = flush_put_();
        this->setp(nullptr, nullptr);
        io_ = io_state::idle;
        if (!flushed)
            return false;
    }
    ensure_buffer_();
    this->setg(buffer_, buffer_, buffer_);
    io_ = io_state::reading;
    return true;
}

template <class C>
bool basic_filebuf<C>::begin_write_() noexcept
{
    if (io_ == io_state::writing)
        return true;
    if (!can_write_() || !end_read_())
        return false;
    ensure_buffer_();
    this->setp(buffer_, buffer_ + buffer_size_);
    io_ = io_state::writing;
    return true;
}

template <class C>
streamsize basic_filebuf<C>::read_chars_(C* s, streamsize n) noexcept
{
    char* bytes = reinterpret_cast<char*>(s);
    long got = file_.read(bytes, static_cast<long>(n * width<C>));
    if (got <= 0)
        return got;
    // A wide character split by the read is completed by further reads; at
    // the end of the file its first bytes are dropped.
    while (got % width<C> != 0) {
        const long more = file_.read(bytes + got, static_cast<long>(width<C> - got % width<C>));
        if (more <= 0)
            break;
        got += more;
    }
    return got / width<C>;
}

template <class C>
bool basic_filebuf<C>::fill_get_area_()
{
    const streamsize got = read_chars_(buffer_, buffer_size_);
    if (got < 0)
        ios_base::throwIOSFailure(__FILE__, __LINE__, "basic_filebuf::underflow error reading the file");
    this->setg(buffer_, buffer_, buffer_ + got);
    return got > 0;
}

// ------------------------------------------------------------ positioning

template <class C>
streampos basic_filebuf<C>::seekoff(streamoff off, ios_base::seekdir dir, ios_base::openmode)
{
    if (!file_.is_open())
        return -1;
    long long bytes = 0;
    if (__builtin_mul_overflow(off, width<C>, &bytes))
        return -1;
    if (dir == ios_base::cur) {
        const long long here = byte_position_();
        if (here < 0 || __builtin_add_overflow(here, bytes, &bytes))
            return -1;
        if (off == 0)
            return here / width<C>;
        dir = ios_base::beg;
    }
    if (io_ == io_state::writing) {
        const bool flushed = flush_put_();
        this->setp(nullptr, nullptr);
        io_ = io_state::idle;
        if (!flushed)
            return -1;
    }
    if (!end_read_())
        return -1;
    const long long position = file_.seek(bytes, dir);
    return position < 0 ? -1 : position / width<C>;
}

template <class C>
streampos basic_filebuf<C>::seekpos(streampos pos, ios_base::openmode which)
{
    return seekoff(pos, ios_base::beg, which);
}

template <class C>
int basic_filebuf<C>::sync()
{
    return io_ != io_state::writing || flush_put_() ? 0 : -1;
}

// ------------------------------------------------------------------ input

template <class C>
streamsize basic_filebuf<C>::showmanyc()
{
    if (!can_read_())
        return -1;
    if (io_ == io_state::writing || !file_.is_regular())
        return 0;
    const long long file_position = file_.seek(0, ios_base::cur);
    const long long left = file_.file_size() - file_position;
    return file_position < 0 || left <= 0 ? 0 : left / width<C>;
}

template <class C>
typename basic_filebuf<C>::int_type basic_filebuf<C>::underflow()
{
    if (this->gptr() < this->egptr())
        return traits_type::to_int_type(*this->gptr());
    if (!begin_read_() || !fill_get_area_())
        return traits_type::eof();
    return traits_type::to_int_type(*this->gptr());
}

template <class C>
typename basic_filebuf<C>::int_type basic_filebuf<C>::pbackfail(int_type c)
{
    if (!can_read_())
        return traits_type::eof();
    if (this->gptr() == this->eback()) {
        const streampos here = seekoff(0, ios_base::cur, ios_base::in);
        if (here <= 0 || seekpos(here - 1, ios_base::in) < 0 || underflow() == traits_type::eof())
            return traits_type::eof();
    } else {
        this->gbump(-1);
    }
    if (c != traits_type::eof() && traits_type::to_char_type(c) != *this->gptr())
        *this->gptr() = traits_type::to_char_type(c);
    return traits_type::to_int_type(*this->gptr());
}

template <class C>
streamsize basic_filebuf<C>::xsgetn(C* s, streamsize n)
{
    streamsize done = 0;
    while (done < n) {
        const streamsize ready = std::min<streamsize>(this->egptr() - this->gptr(), n - done);
        if (ready > 0) {
            std::memcpy(s + done, this->gptr(), static_cast<std::size_t>(ready) * sizeof(C));
            this->gbump(ready);
            done += ready;
        } else if (n - done >= buffer_bytes / width<C> && begin_read_()) {
            // The get area stays empty, so the file position stays its end.
            this->setg(buffer_, buffer_, buffer_);
            const streamsize got = read_chars_(s + done, n - done);
            if (got < 0)
                ios_base::throwIOSFailure(__FILE__, __LINE__, "basic_filebuf::xsgetn error reading the file");
            if (got == 0)
                break;
            done += got;
        } else if (underflow() == traits_type::eof()) {
            break;
        }
    }
    return done;
}

// ----------------------------------------------------------------- output

template <class C>
typename basic_filebuf<C>::int_type basic_filebuf<C>::overflow(int_type c)
{
    if (!begin_write_())
        return traits_type::eof();
    if (c == traits_type::eof())
        return flush_put_() ? 0 : traits_type::eof();
    if (this->pptr() == this->epptr() && !flush_put_())
        return traits_type::eof();
    *this->pptr() = traits_type::to_char_type(c);
    this->pbump(1);
    return c;
}

template <class C>
streamsize basic_filebuf<C>::xsputn(const C* s, streamsize n)
{
    if (n <= 0)
        return 0;
    if (n <= this->epptr() - this->pptr()) {
        std::memcpy(this->pptr(), s, static_cast<std::size_t>(n) * sizeof(C));
        this->pbump(n);
        return n;
    }
    if (!begin_write_())
        return 0;
    if (n >= buffer_bytes / width<C>)
        return flush_put_() && file_.write(reinterpret_cast<const char*>(s), static_cast<long>(n * width<C>)) ? n : 0;
    for (streamsize done = 0;;) {
        const streamsize chunk = std::min<streamsize>(n - done, this->epptr() - this->pptr());
        std::memcpy(this->pptr(), s + done, static_cast<std::size_t>(chunk) * sizeof(C));
        this->pbump(chunk);
        done += chunk;
        if (done == n)
            return n;
        if (!flush_put_())
            return 0;
    }
}

template class basic_filebuf<char>;
template class basic_filebuf<wchar_t>;

} // namespace uvt
