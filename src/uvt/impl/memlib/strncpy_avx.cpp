// strncpy_impl loops for AVX without AVX2: 32-byte loads and stores, the
// zero test on the two 16-byte halves. Compiled for AVX from here on;
// reached only through the dispatch, on processors that have it.

#include "memlib_internal.h"

#include <immintrin.h>

UVT_MEMLIB_TARGET_BEGIN("avx")

#include "strncpy_avx_blocks.h"
#include "strncpy_loops.h"

namespace uvt::impl::memlib {
namespace {

struct avx_vector : avx_blocks {
    static std::uint32_t zeros(__m256i v) noexcept
    {
        const __m128i zero = _mm_setzero_si128();
        const __m128i lo = _mm_cmpeq_epi8(_mm256_castsi256_si128(v), zero);
        const __m128i hi = _mm_cmpeq_epi8(_mm256_extractf128_si256(v, 1), zero);
        const auto mask = [](__m128i equal) { return static_cast<std::uint32_t>(_mm_movemask_epi8(equal)); };
        return mask(lo) | mask(hi) << 16;
    }
};

} // namespace

constinit const strncpy_wide_table strncpyAlignedAVXJTab = strncpy_loops<avx_vector>::table;

} // namespace uvt::impl::memlib

UVT_MEMLIB_TARGET_END
