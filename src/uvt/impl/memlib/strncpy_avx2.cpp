// strncpy_impl loops for AVX2: 32-byte blocks tested with one compare.
// Compiled for AVX2 from here on; reached only through the dispatch, on
// processors that have it.

#include "memlib_internal.h"

#include <immintrin.h>

UVT_MEMLIB_TARGET_BEGIN("avx2")

#include "strncpy_avx_blocks.h"
#include "strncpy_loops.h"

namespace uvt::impl::memlib {
namespace {

struct avx2_vector : avx_blocks {
    static std::uint32_t zeros(__m256i v) noexcept
    {
        return static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, _mm256_setzero_si256())));
    }
};

} // namespace

constinit const strncpy_wide_table strncpyAlignedAVX2JTab = strncpy_loops<avx2_vector>::table;

} // namespace uvt::impl::memlib

UVT_MEMLIB_TARGET_END
