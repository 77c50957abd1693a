// The file streams: a basic_filebuf member and the stream state around it.
#include <uvt/fstream>

namespace uvt {

template <class C>
basic_ofstream<C>::basic_ofstream(allocator& a) : buf_(a)
{
    this->init(&buf_);
}

template <class C>
basic_ofstream<C>::basic_ofstream(const char* name, ios_base::openmode mode, ios_base::iostate exceptions,
                                  allocator& a)
    : buf_(a)
{
    this->init(&buf_);
    this->exceptions(exceptions);
    open(name, mode);
}

template <class C>
basic_ofstream<C>::~basic_ofstream() = default;

template <class C>
void basic_ofstream<C>::open(const char* name, ios_base::openmode mode)
{
    if (buf_.open(name, mode | ios_base::out))
        this->clear();
    else
        this->setstate(ios_base::failbit);
}

template <class C>
void basic_ofstream<C>::open(int fd)
{
    if (buf_.open(fd))
        this->clear();
    else
        this->setstate(ios_base::failbit);
}

template <class C>
void basic_ofstream<C>::close()
{
    if (!buf_.close())
        this->setstate(ios_base::failbit);
}

template class basic_ofstream<char>;
template class basic_ofstream<wchar_t>;

} // namespace uvt
