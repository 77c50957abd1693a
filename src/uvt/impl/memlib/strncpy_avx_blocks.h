// The 32-byte block access shared by the AVX and AVX2 strncpy_impl loops;
// they differ only in how they find the zero bytes of a block. Included by
// those two files inside their instruction-set regions; the unnamed
// namespace gives each its own copy, compiled for its own extension.
#pragma once

#include "memlib_internal.h"

#include <immintrin.h>

namespace uvt::impl::memlib {
namespace {

struct avx_blocks {
    static constexpr std::size_t width = 32;
    UVT_MEMLIB_RAW static __m256i load(const char* p) noexcept
    {
        return _mm256_load_si256(reinterpret_cast<const __m256i*>(p));
    }
    UVT_MEMLIB_RAW static __m256i loadu(const char* p) noexcept
    {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    }
    UVT_MEMLIB_RAW static void storeu(char* p, __m256i v) noexcept
    {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
    }
};

} // namespace
} // namespace uvt::impl::memlib
