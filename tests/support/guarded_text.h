// A zero-terminated text whose terminator is the last accessible character:
// the page after it is inaccessible, so a parser that reads past the end of
// its text crashes the test even without a sanitizer.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace uvt_test {

template <class C>
class guarded_text {
public:
    explicit guarded_text(const std::basic_string<C>& text)
    {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t bytes = (text.size() + 1) * sizeof(C);
        size_ = (bytes / page + 2) * page;
        base_ = static_cast<char*>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(base_, MAP_FAILED);
        EXPECT_EQ(mprotect(base_ + size_ - page, page, PROT_NONE), 0);
        begin_ = reinterpret_cast<C*>(base_ + size_ - page - bytes);
        std::copy(text.c_str(), text.c_str() + text.size() + 1, begin_);
    }
    ~guarded_text() { munmap(base_, size_); }
    guarded_text(const guarded_text&) = delete;
    guarded_text& operator=(const guarded_text&) = delete;

    const C* c_str() const { return begin_; }

private:
    char* base_;
    std::size_t size_;
    C* begin_;
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
