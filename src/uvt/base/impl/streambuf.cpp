// basic_streambuf: the default behaviour of the overridable operations.
#include <uvt/ios>

#include <algorithm>

namespace uvt {

template <class C>
basic_streambuf<C>* basic_streambuf<C>::setbuf(C*, streamsize)
{
    return this;
}

template <class C>
streampos basic_streambuf<C>::seekoff(streamoff, ios_base::seekdir, ios_base::openmode)
{
    return -1;
}

template <class C>
streampos basic_streambuf<C>::seekpos(streampos, ios_base::openmode)
{
    return -1;
}

template <class C>
int basic_streambuf<C>::sync()
{
    return 0;
}

template <class C>
streamsize basic_streambuf<C>::showmanyc()
{
    return 0;
}

template <class C>
streamsize basic_streambuf<C>::xsgetn(C* s, streamsize n)
{
    streamsize done = 0;
    while (done < n) {
        const int_type c = sbumpc();
        if (c == traits_type::eof())
            break;
        s[done++] = traits_type::to_char_type(c);
    }
    return done;
}

template <class C>
typename basic_streambuf<C>::int_type basic_streambuf<C>::underflow()
{
    return traits_type::eof();
}

template <class C>
typename basic_streambuf<C>::int_type basic_streambuf<C>::uflow()
{
    const int_type c = underflow();
    if (c != traits_type::eof())
        gbump(1);
    return c;
}

template <class C>
typename basic_streambuf<C>::int_type basic_streambuf<C>::pbackfail(int_type)
{
    return traits_type::eof();
}

template <class C>
streamsize basic_streambuf<C>::xsputn(const C* s, streamsize n)
{
    if (n <= 0)
        return 0;
    if (n <= epptr() - pptr()) { // the common case: everything fits
        std::copy(s, s + n, pptr());
        pbump(n);
        return n;
    }
    streamsize done = 0;
    while (done < n) {
        const streamsize room = epptr() - pptr();
        if (room > 0) {
            const streamsize chunk = std::min(room, n - done);
            std::copy(s + done, s + done + chunk, pptr());
            pbump(chunk);
            done += chunk;
        } else if (overflow(traits_type::to_int_type(s[done])) != traits_type::eof()) {
            ++done;
        } else {
            break;
        }
    }
    return done;
}

template <class C>
typename basic_streambuf<C>::int_type basic_streambuf<C>::overflow(int_type)
{
    return traits_type::eof();
}

template class basic_streambuf<char>;

} // namespace uvt
