// strncpy_impl loops for processors below AVX: 16-byte SSE2 blocks.

#include "strncpy_loops.h"

namespace uvt::impl::memlib {
namespace {

struct sse2_vector {
    static constexpr std::size_t width = 16;
    UVT_MEMLIB_RAW static __m128i load(const char* p) noexcept { return loadBlock(p); }
    UVT_MEMLIB_RAW static __m128i loadu(const char* p) noexcept { return loadPiece(p); }
    UVT_MEMLIB_RAW static void storeu(char* p, __m128i v) noexcept { storePiece(p, v); }
    static std::uint32_t zeros(__m128i v) noexcept
    {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_setzero_si128())));
    }
};

} // namespace

constinit const std::array<strncpy_loop, 16> strncpyOldArhitectJTab = strncpy_loops<sse2_vector>::table;

} // namespace uvt::impl::memlib
