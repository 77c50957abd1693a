// A host object for tests: counts every callback, keeps the registered
// exception list in thread-local storage as a real host must, captures fake
// stack frames and makes aborts visible on stderr. A test program installs
// it by defining
//
//   extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }
#pragma once

#include "test_allocator.h"

#include <uvt/import>

#include <atomic>

namespace uvt_test {

class test_callbacks : public uvt_extern::UvtCrashHandlers {
public:
    void unhandled_exception(const uvt::exception& e) override;
    void register_exception(const uvt::exception& e) override;
    void unregister_exception(const uvt::exception& e) override;
    const uvt::exception* get_registered_exception() override;
    void abort(const char* file, int line, const char* text) override;
    unsigned save_stack_trace(void** frames, unsigned max, const void* caller) const override;
    void print_stack_trace(uvt::basic_ostream<char>* os, void** frames, unsigned count) override;
    void out_of_memory_exception(const uvt::exception& e) override;
    void forgotten_exception(const uvt::exception& e) override;
    void caught_exception(const uvt::exception& e) override;

    std::atomic<int> unhandled{0}, out_of_memory{0}, forgotten{0}, caught{0};
    // Frames reported by save_stack_trace; 0 reproduces a host without traces.
    std::atomic<unsigned> frames_to_capture{3};
    // Error number of the last exception passed to any exception callback.
    std::atomic<int> last_error_no{0};

private:
    void count(std::atomic<int>& counter, const uvt::exception& e);
};

class test_host : public uvt_extern::UvtImport {
public:
    static test_host& instance();

    uvt::allocator* get_global_allocator() override { return &global; }
    uvt::allocator* get_exception_allocator() override { return &exceptions; }
    uvt_extern::UnhandledCallback* get_unhandled_callback() override { return &callbacks; }
    uvt_extern::OutOfMemoryCallback* get_out_of_memory_callback() override { return &callbacks; }
    uvt_extern::ForgottenCallback* get_forgotten_callback() override { return &callbacks; }
    uvt_extern::CaughtCallback* get_caught_callback() override { return &callbacks; }
    uvt_extern::StackTraceCallback* get_stacktrace_callback() override { return &callbacks; }
    bool create_trace_file() override { return false; }
    const void* aux_vector() override { return &callbacks; }

    counting_allocator global{"host-global"};
    counting_allocator exceptions{"host-exceptions"};
    test_callbacks callbacks;
};

} // namespace uvt_test
