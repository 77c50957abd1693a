#include "test_host.h"

#include <uvt/exception>
#include <uvt/ios>

#include <cstdio>

namespace uvt_test {

namespace {
// Null when empty, so that the first registered exception's link (null) is
// told apart from "not registered" (1).
thread_local const uvt::exception* registered_head = nullptr;
}

test_host& test_host::instance()
{
    static test_host host;
    return host;
}

void test_callbacks::count(std::atomic<int>& counter, const uvt::exception& e)
{
    last_error_no = e.error_no();
    ++counter;
}

void test_callbacks::unhandled_exception(const uvt::exception& e) { count(unhandled, e); }

void test_callbacks::register_exception(const uvt::exception& e) { registered_head = &e; }

void test_callbacks::unregister_exception(const uvt::exception&) { registered_head = nullptr; }

const uvt::exception* test_callbacks::get_registered_exception() { return registered_head; }

void test_callbacks::abort(const char* file, int line, const char* text)
{
    std::fprintf(stderr, "host abort: %s:%d %s\n", file, line, text);
}

unsigned test_callbacks::save_stack_trace(void** frames, unsigned max, const void* caller) const
{
    unsigned n = frames_to_capture < max ? frames_to_capture.load() : max;
    for (unsigned i = 0; i < n; ++i)
        frames[i] = const_cast<void*>(caller);
    return n;
}

void test_callbacks::print_stack_trace(uvt::basic_ostream<char>* os, void**, unsigned frames)
{
    *os << "  <" << frames << " test frames>";
}

void test_callbacks::out_of_memory_exception(const uvt::exception& e) { count(out_of_memory, e); }

void test_callbacks::forgotten_exception(const uvt::exception& e) { count(forgotten, e); }

void test_callbacks::caught_exception(const uvt::exception& e) { count(caught, e); }

} // namespace uvt_test
