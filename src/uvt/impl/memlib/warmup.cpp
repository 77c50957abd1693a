// Load-time warm-up: settles the jump tables for the dispatch level and runs
// every lazily dispatched routine once from the library's static
// initialisation, before the rest of the process can call them from several
// threads. Settling explicitly, rather than only through the stubs, also
// corrects tables that a caller ahead of the C library's own start-up
// patched without seeing UVT_CPU_LEVEL.

#include "memlib_internal.h"

namespace {

struct table_warmup {
    table_warmup() noexcept
    {
        uvt::impl::memlib::settleCopyLoops();
        uvt::impl::memlib::settleStrncpyPath();
        alignas(32) char buffer[256];
        uvt_memlib_memset(buffer, 0, sizeof buffer);
        uvt_memlib_memcpy(buffer, buffer, sizeof buffer);
        uvt_memlib_memmove(buffer, buffer, sizeof buffer);
        uvt_memlib_strncpy(buffer + 128, buffer, 128);
        asm volatile("" : : "r"(buffer) : "memory");
    }
};

const table_warmup warmup;

} // namespace
