// The file streams: a basic_filebuf member and the stream state around it.
#include <uvt/fstream>

namespace uvt {

namespace impl {

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
file_stream<C, Stream, Implied, Default>::file_stream(allocator& a) : buf_(a)
{
    this->init(&buf_);
}

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
file_stream<C, Stream, Implied, Default>::file_stream(const char* name, ios_base::openmode mode,
                                                      ios_base::iostate exceptions, allocator& a)
    : buf_(a)
{
    this->init(&buf_);
    this->exceptions(exceptions);
    open(name, mode);
}

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
file_stream<C, Stream, Implied, Default>::~file_stream() = default;

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
void file_stream<C, Stream, Implied, Default>::open(const char* name, ios_base::openmode mode)
{
    if (buf_.open(name, mode | Implied))
        this->clear();
    else
        this->setstate(ios_base::failbit);
}

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
void file_stream<C, Stream, Implied, Default>::open(int fd)
{
    if (buf_.open(fd))
        this->clear();
    else
        this->setstate(ios_base::failbit);
}

template <class C, template <class> class Stream, ios_base::openmode Implied, ios_base::openmode Default>
void file_stream<C, Stream, Implied, Default>::close()
{
    if (!buf_.close())
        this->setstate(ios_base::failbit);
}

template class file_stream<char, basic_ostream, ios_base::out, ios_base::out>;
template class file_stream<wchar_t, basic_ostream, ios_base::out, ios_base::out>;
template class file_stream<char, basic_istream, ios_base::in, ios_base::in>;
template class file_stream<wchar_t, basic_istream, ios_base::in, ios_base::in>;
template class file_stream<char, basic_iostream, 0, ios_base::in | ios_base::out>;
template class file_stream<wchar_t, basic_iostream, 0, ios_base::in | ios_base::out>;

} // namespace impl

bool readFromBinFile(basic_ifstream<char>& in, void* buffer, streamsize size)
{
    return !in.read(static_cast<char*>(buffer), size).fail();
}

} // namespace uvt
