// A host object for tests: counts every callback, keeps the registered
// exception list in thread-local storage as a real host must, captures fake
// stack frames and makes aborts visible on stderr. A test program installs
// it by defining
//
//   extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }
#pragma once

#include "test_allocator.h"

#include <uvt/exception>
#include <uvt/import>
#include <uvt/ios>

#include <atomic>
#include <cstdio>

namespace uvt_test {

class test_callbacks : public uvt_extern::UvtCrashHandlers {
public:
    void unhandled_exception(const uvt::exception& e) override { count(unhandled, e); }
    void register_exception(const uvt::exception& e) override { registered_head() = &e; }
    void unregister_exception(const uvt::exception&) override { registered_head() = nullptr; }
    const uvt::exception* get_registered_exception() override { return registered_head(); }
    void abort(const char* file, int line, const char* text) override
    {
        std::fprintf(stderr, "host abort: %s:%d %s\n", file, line, text);
    }
    unsigned save_stack_trace(void** frames, unsigned max, const void* caller) const override
    {
        const unsigned n = frames_to_capture < max ? frames_to_capture.load() : max;
        for (unsigned i = 0; i < n; ++i)
            frames[i] = const_cast<void*>(caller);
        return n;
    }
    void print_stack_trace(uvt::basic_ostream<char>* os, void**, unsigned frames) override
    {
        *os << "  <" << frames << " test frames>";
    }
    void out_of_memory_exception(const uvt::exception& e) override { count(out_of_memory, e); }
    void forgotten_exception(const uvt::exception& e) override { count(forgotten, e); }
    void caught_exception(const uvt::exception& e) override { count(caught, e); }

    std::atomic<int> unhandled{0}, out_of_memory{0}, forgotten{0}, caught{0};
    // Frames reported by save_stack_trace; 0 reproduces a host without traces.
    std::atomic<unsigned> frames_to_capture{3};
    // Error number of the last exception passed to any exception callback.
    std::atomic<int> last_error_no{0};

private:
    void count(std::atomic<int>& counter, const uvt::exception& e)
    {
        last_error_no = e.error_no();
        ++counter;
    }
    // Null when empty, so that the first registered exception's link (null)
    // is told apart from "not registered" (1).
    static const uvt::exception*& registered_head()
    {
        static thread_local const uvt::exception* head = nullptr;
        return head;
    }
};

class test_host : public uvt_extern::UvtImport {
public:
    static test_host& instance()
    {
        static test_host host;
        return host;
    }

    uvt::allocator* get_global_allocator() override { return &global; }
    uvt::allocator* get_exception_allocator() override { return &exceptions; }
    uvt_extern::UnhandledCallback* get_unhandled_callback() override { return &callbacks; }
    uvt_extern::OutOfMemoryCallback* get_out_of_memory_callback() override { return &callbacks; }
    uvt_extern::ForgottenCallback* get_forgotten_callback() override { return &callbacks; }
    uvt_extern::CaughtCallback* get_caught_callback() override { return &callbacks; }
    uvt_extern::StackTraceCallback* get_stacktrace_callback() override { return &callbacks; }
    // The library asks once: a test program that wants failure traces sets
    // trace_files before its first stream failure.
    bool create_trace_file() override { return trace_files; }
    const void* aux_vector() override { return &callbacks; }

    counting_allocator global{"host-global"};
    counting_allocator exceptions{"host-exceptions"};
    test_callbacks callbacks;
    bool trace_files = false;
};

} // namespace uvt_test
