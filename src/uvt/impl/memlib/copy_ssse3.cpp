// The SSSE3 loop tables of memcpy and memmove: misaligned sources are joined
// from two aligned blocks by one PALIGNR. Compiled for SSSE3 from here on;
// reached only through the dispatch, on processors that have it.

#include "memlib_internal.h"

#include <tmmintrin.h>

UVT_MEMLIB_TARGET_BEGIN("ssse3")

#include "copy_loops.h"

namespace uvt::impl::memlib {
namespace {

template <int K>
struct alignr_join {
    static constexpr int shift = K;
    // Bytes K..15 of lo followed by bytes 0..K-1 of hi.
    static __m128i join(__m128i lo, __m128i hi) noexcept { return _mm_alignr_epi8(hi, lo, K); }
};

} // namespace

constinit const copy_loop_table memcpyAlignedSupSSE3JTab = forwardLoops<alignr_join>(std::make_index_sequence<15>{});
constinit const copy_loop_table memmoveAlignedSupSSE3JTab = backwardLoops<alignr_join>(std::make_index_sequence<15>{});

} // namespace uvt::impl::memlib

UVT_MEMLIB_TARGET_END
