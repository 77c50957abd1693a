// Memory fenced by inaccessible pages: `guarded<T>` holds n objects of T
// whose last one ends right at an inaccessible page, and a buffer of whole
// pages also starts right after one. A routine that reads or writes past
// either end of its buffer crashes the test even without a sanitizer.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace uvt_test {

inline std::size_t page_size() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

template <class T>
class guarded {
public:
    explicit guarded(std::size_t count)
        : mapped_((count * sizeof(T) + page_size() - 1) / page_size() * page_size() + 2 * page_size())
    {
        base_ = static_cast<char*>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED || mprotect(base_, page_size(), PROT_NONE) != 0 ||
            mprotect(base_ + mapped_ - page_size(), page_size(), PROT_NONE) != 0)
            throw std::runtime_error("cannot map guarded memory");
        end_ = reinterpret_cast<T*>(base_ + mapped_ - page_size());
        begin_ = end_ - count;
    }
    // A copy of [first, first + count).
    guarded(const T* first, std::size_t count) : guarded(count) { std::copy(first, first + count, begin_); }
    // A zero-terminated text whose terminator is the last accessible element.
    explicit guarded(const std::basic_string<T>& text) : guarded(text.c_str(), text.size() + 1) {}
    ~guarded() { munmap(base_, mapped_); }
    guarded(const guarded&) = delete;
    guarded& operator=(const guarded&) = delete;

    T* begin() const { return begin_; }
    T* end() const { return end_; }
    std::size_t size() const { return static_cast<std::size_t>(end_ - begin_); }

private:
    std::size_t mapped_;
    char* base_;
    T* begin_;
    T* end_;
};

// The bytes of `text` widened one by one to the codes 0..0xFF.
inline std::wstring widened(const std::string& text)
{
    std::wstring wide;
    for (unsigned char c : text)
        wide += wchar_t(c);
    return wide;
}

} // namespace uvt_test
