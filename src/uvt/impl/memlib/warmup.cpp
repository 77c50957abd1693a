// Load-time warm-up: runs every lazily dispatched routine once from the
// library's static initialisation, so that the jump tables are settled
// before the rest of the process can call them from several threads.

#include "memlib_internal.h"

namespace {

struct table_warmup {
    table_warmup() noexcept
    {
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
