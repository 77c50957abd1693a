// strncpy_impl loops for AVX2: 32-byte blocks tested with one compare.
// Compiled for AVX2 from here on; reached only through the dispatch, on
// processors that have it.

#include "memlib_internal.h"

#include <immintrin.h>

UVT_MEMLIB_TARGET_BEGIN("avx2")

#include "strncpy_loops.h"

namespace uvt::impl::memlib {
namespace {

struct avx2_vector {
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
    static std::uint32_t zeros(__m256i v) noexcept
    {
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, _mm256_setzero_si256())));
    }
};

} // namespace

constinit const strncpy_wide_table strncpyAlignedAVX2JTab = strncpy_loops<avx2_vector>::table;

} // namespace uvt::impl::memlib

UVT_MEMLIB_TARGET_END
