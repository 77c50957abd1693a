// A small host program: it installs a host object with its own allocator,
// out-of-memory and caught-exception callbacks, then throws and catches the
// library's exceptions and prints them, and puts strings and number text
// conversion to work.

#include <uvt/all>

#include <cstdio>
#include <cstdlib>
#include <execinfo.h>

namespace {

// Counts what passes through the host's global allocator.
class demo_allocator : public uvt::allocator {
public:
    void release() override {}
    void addReference() override {}
    uvt::CA_statistics getStatistics() const override { return stats; }
    void* allocateNoThrowImpl(unsigned long size, const void* caller) override
    {
        return count(uvt_extern::UvtMallocAllocator::instance().allocateNoThrowImpl(size, caller), size);
    }
    void* allocateAlignedNoThrowImpl(unsigned long size, unsigned long alignment, const void* caller) override
    {
        return count(uvt_extern::UvtMallocAllocator::instance().allocateAlignedNoThrowImpl(size, alignment, caller),
                     size);
    }
    void deallocateImpl(void* p, const void* caller) override
    {
        if (p)
            ++stats.free_count;
        uvt_extern::UvtMallocAllocator::instance().deallocateImpl(p, caller);
    }
    void addBadAllocInfo(uvt::exception& e, unsigned long size, unsigned long) override
    {
        e << uvt::message_argument<unsigned long>("size", size) << uvt::msgarg_text("type", "demo_allocator");
    }

    uvt::CA_statistics stats;

private:
    void* count(void* p, unsigned long size)
    {
        if (p) {
            ++stats.alloc_count;
            stats.size_sum += double(size);
        }
        return p;
    }
};

void print(const char* label, const uvt::exception& e)
{
    uvt::buffer_stream<2048> out;
    e.print(out);
    std::printf("--- %s\n%s", label, out.c_str());
}

class demo_callbacks : public uvt_extern::UvtCrashHandlers {
public:
    void out_of_memory_exception(const uvt::exception& e) override
    {
        std::printf("[host] out of memory reported (error %d)\n", e.error_no());
    }
    void caught_exception(const uvt::exception& e) override { print("[host] caught exception", e); }

    // Stack traces: the host decides how to take and print them.
    // Frames start at the caller the library names, so the capture
    // machinery itself does not show.
    unsigned save_stack_trace(void** frames, unsigned max, const void* caller) const override
    {
        void* all[64];
        const int n = backtrace(all, 64);
        int first = 0;
        while (first < n && all[first] != caller)
            ++first;
        if (first == n)
            first = 0;
        unsigned count = 0;
        for (int i = first; i < n && count < max; ++i)
            frames[count++] = all[i];
        return count;
    }
    void print_stack_trace(uvt::basic_ostream<char>* os, void** frames, unsigned count) override
    {
        char** symbols = backtrace_symbols(frames, int(count));
        for (unsigned i = 0; symbols && i < count && i < 4; ++i)
            *os << "    " << symbols[i] << (i + 1 < count && i < 3 ? "\n" : "");
        std::free(symbols);
    }
};

class demo_host : public uvt_extern::UvtImport {
public:
    uvt::allocator* get_global_allocator() override { return &allocator; }
    uvt_extern::OutOfMemoryCallback* get_out_of_memory_callback() override { return &callbacks; }
    uvt_extern::CaughtCallback* get_caught_callback() override { return &callbacks; }
    uvt_extern::StackTraceCallback* get_stacktrace_callback() override { return &callbacks; }

    demo_allocator allocator;
    demo_callbacks callbacks;
};

demo_host host;

// Strings, number text and Unicode: a concatenation built with one
// allocation, a wide string printed as UTF-8, numbers parsed and a bad one
// reported by exception.
void show_text(uvt::allocator& a)
{
    uvt::string name("settings", a);
    uvt::string path(name + "/" + "main.conf", a);
    const wchar_t wide_text[] = {L'p', L'r', 0xE9, L'f', 0};
    uvt::wstring wide(wide_text, a);
    uvt::buffer_stream<256> out;
    out << "--- text: " << path << ", " << wide << ", ";

    std::size_t used = 0;
    const double ratio = uvt::stod("2.5e-3", &used);
    char digits[uvt::dtoa_buffer_size];
    out << uvt::dtoa(ratio * 4, 12, digits, sizeof digits) << " from " << used << " characters\n";
    std::printf("%s", out.c_str());
    try {
        uvt::stoi("99999999999", nullptr, 10);
    } catch (const uvt::exception& e) {
        print("number out of range", e);
    }
}

} // namespace

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &host; }

int main()
{
    std::printf("%s (component %s)\n", "libwdbuvtbase demo", uvt::getVELAComponentName(uvt::vela_component{1}));

    // An index outside [0, 5): thrown inside the library, caught here by class.
    try {
        uvt::throwOutOfRange(__FILE__, __LINE__, 7, 0, 5);
    } catch (const uvt::out_of_range& e) {
        e.dump(); // handed to the host's caught-exception callback
    }

    // An exception with an added message and a named argument, appended to
    // another one.
    try {
        uvt::runtime_error outer(__FILE__, __LINE__, "Loading \"$FILE$\" failed");
        outer << uvt::msgarg_text("FILE", "settings.conf");
        uvt::invalid_argument cause(__FILE__, __LINE__);
        cause << uvt::error_message(__FILE__, __LINE__, 42, "line $LINE$ is malformed")
              << uvt::message_argument<int>("LINE", 17);
        outer << cause;
        uvt::tThrow(outer);
    } catch (const uvt::exception& e) {
        print("chained exception", e);
    }

    // Out of memory: the host's allocator is the global allocator, and the
    // host hears of the failure before the program catches it.
    uvt::allocator& global = uvt::allocator::global_allocator();
    try {
        global.allocate(1ul << 60);
    } catch (const std::bad_alloc& e) {
        std::printf("--- caught as std::bad_alloc: %s\n", e.what());
        static_cast<const uvt::exception&>(dynamic_cast<const uvt::bad_alloc&>(e)).mark_processed();
    }

    show_text(global);

    void* block = global.allocate(100);
    global.deallocate(block);
    const uvt::CA_statistics stats = global.getStatistics();
    std::printf("--- host allocator: %lu allocations, %lu frees\n", (unsigned long)stats.alloc_count,
                (unsigned long)stats.free_count);
    return EXIT_SUCCESS;
}
