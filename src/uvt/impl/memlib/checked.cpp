// The checked variants: a destination too small for what will be written
// raises SIGSEGV; a handler that returns lets the operation run as asked.
// Carrying on is deliberate: the handler decides whether the process lives.

#include "memlib_internal.h"

#include <csignal>

namespace uvt::impl {
namespace {

void checkFits(std::size_t needed, std::size_t available) noexcept
{
    if (needed > available)
        std::raise(SIGSEGV);
}

std::size_t lengthOf(const char* s) noexcept { return uvt_memlib_strlen(s); }

std::size_t lengthOf(const wchar_t* s) noexcept { return uvt_memlib_wcslen(s); }

template <class C>
C* copyChecked(C* dst, const C* src, std::size_t dstSize) noexcept
{
    const std::size_t length = lengthOf(src) + 1;
    checkFits(length, dstSize);
    uvt_memlib_memcpy(dst, src, length * sizeof(C));
    return dst;
}

template <class C>
C* appendChecked(C* dst, const C* src, std::size_t dstSize) noexcept
{
    const std::size_t end = lengthOf(dst);
    const std::size_t length = lengthOf(src) + 1;
    checkFits(end + length, dstSize);
    uvt_memlib_memcpy(dst + end, src, length * sizeof(C));
    return dst;
}

} // namespace

void* __memcpy_chk(void* dst, const void* src, std::size_t n, std::size_t dstSize) noexcept
{
    checkFits(n, dstSize);
    return uvt_memlib_memcpy(dst, src, n);
}

void* __memmove_chk(void* dst, const void* src, std::size_t n, std::size_t dstSize) noexcept
{
    checkFits(n, dstSize);
    return uvt_memlib_memmove(dst, src, n);
}

void* __memset_chk(void* dst, int c, std::size_t n, std::size_t dstSize) noexcept
{
    checkFits(n, dstSize);
    return uvt_memlib_memset(dst, c, n);
}

char* __strncpy_chk(char* dst, const char* src, std::size_t n, std::size_t dstSize) noexcept
{
    checkFits(n, dstSize);
    return uvt_memlib_strncpy(dst, src, n);
}

char* __strcpy_chk(char* dst, const char* src, std::size_t dstSize) noexcept { return copyChecked(dst, src, dstSize); }

char* __strcat_chk(char* dst, const char* src, std::size_t dstSize) noexcept
{
    return appendChecked(dst, src, dstSize);
}

wchar_t* __wcscpy_chk(wchar_t* dst, const wchar_t* src, std::size_t dstSize) noexcept
{
    return copyChecked(dst, src, dstSize);
}

wchar_t* __wcscat_chk(wchar_t* dst, const wchar_t* src, std::size_t dstSize) noexcept
{
    return appendChecked(dst, src, dstSize);
}

} // namespace uvt::impl
