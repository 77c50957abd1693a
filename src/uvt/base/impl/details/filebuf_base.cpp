// Filebuf_base: open modes to open(2) flags, descriptor ownership, raw I/O
// and read-only mapping.
#include <uvt/base/impl/details/filebuf_base>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace uvt::impl {

namespace {

constexpr int no_flags = -1;

// The open(2) flags of `mode` (ate and binary ignored), or no_flags for a
// combination that has none.
int open_flags(ios_base::openmode mode) noexcept
{
    using ios = ios_base;
    switch (mode & ~static_cast<ios_base::openmode>(ios::ate | ios::binary)) {
    case ios::app:
    case ios::out | ios::app:
        return O_WRONLY | O_CREAT | O_APPEND;
    case ios::in:
        return O_RDONLY;
    case ios::in | ios::app:
    case ios::in | ios::out | ios::app:
        return O_RDWR | O_CREAT | O_APPEND;
    case ios::out:
    case ios::out | ios::trunc:
        return O_WRONLY | O_CREAT | O_TRUNC;
    case ios::in | ios::out:
        return O_RDWR;
    case ios::in | ios::out | ios::trunc:
        return O_RDWR | O_CREAT | O_TRUNC;
    case ios::out | Filebuf_base::dsync:
        return O_WRONLY | O_CREAT | O_TRUNC | O_DSYNC;
    default:
        return no_flags;
    }
}

// The mode that describes an adopted descriptor's status flags.
ios_base::openmode mode_of_status(int status) noexcept
{
    ios_base::openmode mode = 0;
    switch (status & O_ACCMODE) {
    case O_RDONLY:
        mode = ios_base::in;
        break;
    case O_WRONLY:
        mode = ios_base::out;
        break;
    case O_RDWR:
        mode = ios_base::in | ios_base::out;
        break;
    }
    if (status & O_APPEND)
        mode |= ios_base::app;
    return mode;
}

bool is_regular_file(int fd) noexcept
{
    struct stat st;
    return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

} // namespace

Filebuf_base::~Filebuf_base() { close(); }

bool Filebuf_base::open(const char* name, ios_base::openmode mode, long permissions) noexcept
{
    if (is_open_)
        return false;
    const int flags = open_flags(mode);
    if (flags == no_flags)
        return false;
    const int fd = flags == O_RDONLY ? ::open64(name, flags) : ::open64(name, flags, static_cast<mode_t>(permissions));
    if (fd < 0)
        return false;
    if ((mode & (ios_base::app | ios_base::ate)) && ::lseek64(fd, 0, SEEK_END) < 0) {
        ::close(fd);
        return false;
    }
    fd_ = fd;
    is_regular_ = is_regular_file(fd);
    is_open_ = true;
    owns_fd_ = true;
    mode_ = mode;
    return true;
}

bool Filebuf_base::open(int fd, ios_base::openmode) noexcept
{
    if (is_open_ || fd < 0)
        return false;
    const int status = ::fcntl(fd, F_GETFL);
    if (status == -1)
        return false;
    fd_ = fd;
    is_regular_ = is_regular_file(fd);
    is_open_ = true;
    owns_fd_ = false;
    mode_ = mode_of_status(status);
    return true;
}

bool Filebuf_base::close() noexcept
{
    if (!is_open_)
        return false;
    const bool closed = !owns_fd_ || ::close(fd_) == 0;
    is_open_ = false;
    owns_fd_ = false;
    mode_ = 0;
    return closed;
}

long Filebuf_base::read(char* buffer, long n) noexcept { return ::read(fd_, buffer, static_cast<size_t>(n)); }

bool Filebuf_base::write(const char* buffer, long n) noexcept
{
    while (n > 0) {
        const ssize_t written = ::write(fd_, buffer, static_cast<size_t>(n));
        if (written <= 0 || written > n)
            return false;
        buffer += written;
        n -= written;
    }
    return true;
}

long long Filebuf_base::seek(long long offset, ios_base::seekdir dir) noexcept
{
    switch (dir) {
    case ios_base::beg:
        return offset < 0 ? -1 : ::lseek64(fd_, offset, SEEK_SET);
    case ios_base::cur:
        return ::lseek64(fd_, offset, SEEK_CUR);
    case ios_base::end:
        return offset < -file_size() ? -1 : ::lseek64(fd_, offset, SEEK_END);
    default:
        return -1;
    }
}

long long Filebuf_base::file_size() const noexcept
{
    struct stat64 st;
    if (::fstat64(fd_, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0)
        return 0;
    return st.st_size;
}

long Filebuf_base::page_size() noexcept
{
    static const long size = ::sysconf(_SC_PAGESIZE);
    return size;
}

void* Filebuf_base::mmap(long long offset, long long length) noexcept
{
    void* address = ::mmap64(nullptr, static_cast<size_t>(length), PROT_READ, MAP_PRIVATE, fd_, offset);
    if (address == MAP_FAILED)
        return nullptr;
    if (::lseek64(fd_, offset + length, SEEK_SET) < 0) {
        unmap(address, length);
        return nullptr;
    }
    return address;
}

void Filebuf_base::unmap(void* address, long long length) noexcept { ::munmap(address, static_cast<size_t>(length)); }

} // namespace uvt::impl
