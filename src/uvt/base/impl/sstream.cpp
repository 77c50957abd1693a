// basic_stringbuf and the string streams.
#include <uvt/sstream>

#include <algorithm>
#include <limits>

namespace uvt {

namespace {
// The first block: enough for a typical message without regrowing.
constexpr std::size_t initial_capacity = 128;
} // namespace

template <class C>
basic_stringbuf<C>::basic_stringbuf(allocator& a, ios_base::openmode mode) noexcept
    : alloc_(a), mode_(mode & (ios_base::in | ios_base::out)), view_(false)
{}

// The view's characters are never written: every operation that would
// write refuses a view, so dropping const here is safe.
template <class C>
basic_stringbuf<C>::basic_stringbuf(const C* data, std::size_t n, allocator& a) noexcept
    : alloc_(a), mode_(ios_base::in), view_(true)
{
    C* begin = const_cast<C*>(data);
    this->setg(begin, begin, begin + n);
}

template <class C>
basic_stringbuf<C>::~basic_stringbuf()
{
    if (!view_)
        alloc_.deallocate(this->pbase());
}

template <class C>
const C* basic_stringbuf<C>::text_begin_() const noexcept
{
    return view_ ? this->eback() : this->pbase();
}

template <class C>
const C* basic_stringbuf<C>::text_end_() const noexcept
{
    return view_ ? this->egptr() : std::max<const C*>(high_mark_, this->pptr());
}

template <class C>
basic_string<C> basic_stringbuf<C>::str() const
{
    return basic_string<C>(text_begin_(), size(), alloc_);
}

template <class C>
void basic_stringbuf<C>::sync_get_area_() noexcept
{
    if (view_ || !(mode_ & ios_base::in) || !this->pbase())
        return;
    high_mark_ = const_cast<C*>(text_end_());
    C* begin = this->pbase();
    const streamsize next = this->eback() ? this->gptr() - this->eback() : 0;
    this->setg(begin, begin + next, high_mark_);
}

template <class C>
bool basic_stringbuf<C>::reserve_(std::size_t extra) noexcept
{
    if (extra <= static_cast<std::size_t>(this->epptr() - this->pptr()))
        return true;
    const std::size_t put = static_cast<std::size_t>(this->pptr() - this->pbase());
    const std::size_t text = size();
    const std::size_t capacity = static_cast<std::size_t>(this->epptr() - this->pbase());
    constexpr std::size_t max_chars = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(C) / 2;
    if (extra > max_chars - put)
        return false;
    const std::size_t grown = std::max({2 * capacity, put + extra, initial_capacity});
    C* block = static_cast<C*>(alloc_.allocateNoThrow(grown * sizeof(C)));
    if (!block)
        return false;
    std::copy(text_begin_(), text_end_(), block);
    const streamsize next = this->eback() ? this->gptr() - this->eback() : 0;
    alloc_.deallocate(this->pbase());
    this->setp(block, block + grown);
    this->pbump(static_cast<streamsize>(put));
    high_mark_ = block + text;
    if (mode_ & ios_base::in)
        this->setg(block, block + next, high_mark_);
    return true;
}

template <class C>
typename basic_stringbuf<C>::int_type basic_stringbuf<C>::overflow(int_type c)
{
    if (c == traits_type::eof())
        return 0;
    if (view_ || !(mode_ & ios_base::out) || !reserve_(1))
        return traits_type::eof();
    *this->pptr() = traits_type::to_char_type(c);
    this->pbump(1);
    return c;
}

template <class C>
streamsize basic_stringbuf<C>::xsputn(const C* s, streamsize n)
{
    if (n <= 0 || view_ || !(mode_ & ios_base::out))
        return 0;
    if (this->epptr() - this->pptr() < n)
        reserve_(static_cast<std::size_t>(n));
    const streamsize stored = std::min<streamsize>(n, this->epptr() - this->pptr());
    std::copy(s, s + stored, this->pptr());
    this->pbump(stored);
    return stored;
}

template <class C>
typename basic_stringbuf<C>::int_type basic_stringbuf<C>::underflow()
{
    if (this->gptr() == this->egptr())
        sync_get_area_();
    if (this->gptr() < this->egptr())
        return traits_type::to_int_type(*this->gptr());
    return traits_type::eof();
}

template <class C>
typename basic_stringbuf<C>::int_type basic_stringbuf<C>::pbackfail(int_type c)
{
    if (this->eback() == this->gptr())
        return traits_type::eof();
    if (c == traits_type::eof()) {
        this->gbump(-1);
        return traits_type::to_int_type(*this->gptr());
    }
    if (view_ || !(mode_ & ios_base::out))
        return traits_type::eof();
    this->gbump(-1);
    *this->gptr() = traits_type::to_char_type(c);
    return c;
}

template <class C>
streamsize basic_stringbuf<C>::showmanyc()
{
    if (!(mode_ & ios_base::in))
        return -1;
    sync_get_area_();
    return this->egptr() - this->gptr();
}

template <class C>
streampos basic_stringbuf<C>::seekoff(streamoff off, ios_base::seekdir dir, ios_base::openmode which)
{
    const bool in = (which & ios_base::in) != 0;
    const bool out = (which & ios_base::out) != 0;
    if ((!in && !out) || (in && !(mode_ & ios_base::in)) || (out && !(mode_ & ios_base::out)) ||
        (in && out && dir == ios_base::cur))
        return -1;
    sync_get_area_();
    const streamoff length = static_cast<streamoff>(size());
    streamoff base = 0;
    if (dir == ios_base::end)
        base = length;
    else if (dir == ios_base::cur)
        base = in ? this->gptr() - this->eback() : this->pptr() - this->pbase();
    if (off < -base || off > length - base)
        return -1;
    const streamoff target = base + off;
    if (in && this->eback())
        this->setg(this->eback(), this->eback() + target, this->egptr());
    if (out) {
        high_mark_ = const_cast<C*>(text_end_());
        this->setp(this->pbase(), this->epptr());
        this->pbump(target);
    }
    return target;
}

template <class C>
streampos basic_stringbuf<C>::seekpos(streampos pos, ios_base::openmode which)
{
    return seekoff(pos, ios_base::beg, which);
}

// ----------------------------------------------------------------- streams

template <class C>
basic_ostringstream<C>::basic_ostringstream(allocator& a) : buf_(a, ios_base::out)
{
    this->init(&buf_);
}

template <class C>
basic_ostringstream<C>::~basic_ostringstream() = default;

template <class C>
basic_istringstream<C>::basic_istringstream(const C* data, std::size_t n, allocator& a) : buf_(data, n, a)
{
    this->init(&buf_);
}

template <class C>
basic_istringstream<C>::~basic_istringstream() = default;

template <class C>
basic_stringstream<C>::basic_stringstream(allocator& a) : buf_(a, ios_base::in | ios_base::out)
{
    this->init(&buf_);
}

template <class C>
basic_stringstream<C>::~basic_stringstream() = default;

template class basic_stringbuf<char>;
template class basic_stringbuf<wchar_t>;
template class basic_ostringstream<char>;
template class basic_ostringstream<wchar_t>;
template class basic_istringstream<char>;
template class basic_istringstream<wchar_t>;
template class basic_stringstream<char>;
template class basic_stringstream<wchar_t>;

} // namespace uvt
