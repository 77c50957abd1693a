// The host hooks: finding the host object, caching its answers and the
// do-nothing defaults used without a host.

#include "uvt/base/impl/host_answer.h"

#include <uvt/exception>
#include <uvt/import>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// Defined by a host program that wants to take over the hooks. Referenced
// weakly: without a definition its address is null.
extern "C" UVT_API uvt_extern::UvtImport* get_uvt_import() __attribute__((weak));

namespace uvt::impl {
thread_local const host_question* host_questions_asked = nullptr;
}

namespace uvt_extern {

// --- callback defaults ---

void UnhandledCallback::unhandled_exception(const exception&) {}
bool UnhandledCallback::is_test_handler() { return false; }
void UnhandledCallback::add_recent_exception(const exception&) {}
void UnhandledCallback::register_exception(const exception&) {}
void UnhandledCallback::unregister_exception(const exception&) {}
const exception* UnhandledCallback::get_registered_exception() { return no_registered_exception(); }
void UnhandledCallback::abort(const char*, int, const char*) {}
void UnhandledCallback::halt(const char* file, int line, const char* text) { abort(file, line, text); }
UnhandledCallback::~UnhandledCallback() = default;

unsigned StackTraceCallback::save_stack_trace(void**, unsigned, const void*) const { return 0; }
bool StackTraceCallback::is_handle_debug_active() { return false; }
unsigned long StackTraceCallback::save_stack_trace_debug(const void*) { return 0; }
void StackTraceCallback::print_stack_trace(uvt::basic_ostream<char>*, void**, unsigned) {}
void StackTraceCallback::print_stack_trace(uvt::basic_ostream<char>*, void*) {}
StackTraceCallback::~StackTraceCallback() = default;

void OutOfMemoryCallback::out_of_memory_exception(const exception&) {}
OutOfMemoryCallback::~OutOfMemoryCallback() = default;
void ForgottenCallback::forgotten_exception(const exception&) {}
ForgottenCallback::~ForgottenCallback() = default;
void CaughtCallback::caught_exception(const exception&) {}
CaughtCallback::~CaughtCallback() = default;
UvtCrashHandlers::~UvtCrashHandlers() = default;

UvtCrashHandlers& UvtCrashHandlers::instance()
{
    // Never destroyed: exceptions may still be reported during static
    // destruction.
    alignas(UvtCrashHandlers) static unsigned char storage[sizeof(UvtCrashHandlers)];
    static UvtCrashHandlers* const self = new (storage) UvtCrashHandlers();
    return *self;
}

// --- host object defaults: null everywhere selects the library's default ---

allocator* UvtImport::get_emergency_allocator() { return nullptr; }
allocator* UvtImport::get_global_allocator() { return nullptr; }
allocator* UvtImport::get_composite_allocator() { return nullptr; }
allocator* UvtImport::get_allocate_only_allocator() { return nullptr; }
allocator* UvtImport::get_null_allocator() { return nullptr; }
allocator* UvtImport::get_exception_allocator() { return nullptr; }
allocator* UvtImport::get_out_of_memory_allocator() { return nullptr; }
allocator* UvtImport::get_adaptor_allocator() { return nullptr; }
allocator* UvtImport::get_locale_allocator() { return nullptr; }
UnhandledCallback* UvtImport::get_unhandled_callback() { return nullptr; }
OutOfMemoryCallback* UvtImport::get_out_of_memory_callback() { return nullptr; }
ForgottenCallback* UvtImport::get_forgotten_callback() { return nullptr; }
CaughtCallback* UvtImport::get_caught_callback() { return nullptr; }
StackTraceCallback* UvtImport::get_stacktrace_callback() { return nullptr; }
StdStreamProvider* UvtImport::get_std_stream_provider() { return nullptr; }
void UvtImport::reserved_15() {}
void UvtImport::reserved_16() {}
bool UvtImport::create_trace_file() { return true; }
void UvtImport::reserved_18() {}
const void* UvtImport::aux_vector() { return nullptr; }

UvtImport* get_import()
{
    // The host function may itself call into the library (and so back
    // here) while it builds its object: that inner call sees no host.
    static uvt::impl::host_answer<UvtImport*> host;
    return host.get([] { return get_uvt_import ? get_uvt_import() : nullptr; }, nullptr);
}

namespace {

UvtCrashHandlers& defaults() { return UvtCrashHandlers::instance(); }

// The answer of one host slot, asked once and cached; the library's
// default when there is no host or it answers null.
template <class T, T* (UvtImport::*Slot)()>
T* cached_callback()
{
    static uvt::impl::host_answer<T*> answer;
    T* fallback = &defaults();
    return answer.get(
        [fallback] {
            UvtImport* host = get_import();
            T* c = host ? (host->*Slot)() : nullptr;
            return c ? c : fallback;
        },
        fallback);
}

} // namespace

UnhandledCallback* import::get_unhandled_callback()
{
    return cached_callback<UnhandledCallback, &UvtImport::get_unhandled_callback>();
}
StackTraceCallback* import::get_stacktrace_callback()
{
    return cached_callback<StackTraceCallback, &UvtImport::get_stacktrace_callback>();
}
OutOfMemoryCallback* import::get_out_of_memory_callback()
{
    return cached_callback<OutOfMemoryCallback, &UvtImport::get_out_of_memory_callback>();
}
ForgottenCallback* import::get_forgotten_callback()
{
    return cached_callback<ForgottenCallback, &UvtImport::get_forgotten_callback>();
}
CaughtCallback* import::get_caught_callback()
{
    return cached_callback<CaughtCallback, &UvtImport::get_caught_callback>();
}

StdStreamProvider* import::get_std_stream_provider()
{
    static uvt::impl::host_answer<StdStreamProvider*> provider;
    return provider.get(
        [] {
            UvtImport* host = get_import();
            return host ? host->get_std_stream_provider() : nullptr;
        },
        nullptr);
}

void import::abort(const char* file, int line, const char* text)
{
    get_unhandled_callback()->abort(file, line, text);
    std::abort();
}

void import::abort(const char* file, int line, const char* text, long value)
{
    char message[256];
    std::snprintf(message, sizeof message, "%s %ld", text ? text : "", value);
    abort(file, line, message);
}

void import::halt(const char* file, int line, const char* text)
{
    get_unhandled_callback()->halt(file, line, text);
    std::abort();
}

unsigned import::save_stack_trace(void** frames, unsigned max, const void* caller)
{
    StackTraceCallback* cb = get_stacktrace_callback();
    if (cb == static_cast<StackTraceCallback*>(&defaults()))
        return 0;
    return cb->save_stack_trace(frames, max, caller);
}

void import::print_stack_trace(uvt::basic_ostream<char>* os, void** frames, unsigned count)
{
    get_stacktrace_callback()->print_stack_trace(os, frames, count);
}

void import::out_of_memory_exception(const exception& e) { get_out_of_memory_callback()->out_of_memory_exception(e); }
void import::forgotten_exception(const exception& e) { get_forgotten_callback()->forgotten_exception(e); }
void import::caught_exception(const exception& e) { get_caught_callback()->caught_exception(e); }
void import::unhandled_exception(const exception& e) { get_unhandled_callback()->unhandled_exception(e); }

bool import::create_trace_file()
{
    static uvt::impl::host_answer<bool> allowed;
    return allowed.get(
        [] {
            UvtImport* host = get_import();
            return host ? host->create_trace_file() : true;
        },
        true);
}

const void* import::aux_vector()
{
    static uvt::impl::host_answer<const void*> vector;
    return vector.get(
        [] {
            UvtImport* host = get_import();
            return host ? host->aux_vector() : nullptr;
        },
        nullptr);
}

namespace {
std::atomic<import::prefix_fn> standard_prefix{nullptr};

bool is_separator(char c) { return c == '/' || c == '\\'; }

// Length of the prefix of `path` that names `dir` (a directory ending in a
// separator), treating "/" and "\" alike; 0 when `path` is not below it.
std::size_t below(const char* path, const char* dir)
{
    std::size_t i = 0;
    for (; dir[i]; ++i) {
        if (path[i] != dir[i] && !(is_separator(path[i]) && is_separator(dir[i])))
            return 0;
    }
    return i;
}
} // namespace

import::prefix_fn import::set_standard_prefix(prefix_fn fn){return standard_prefix.exchange(fn);
} // namespace uvt_extern

const char* import::stdFileName(const char* path)
{
    if (!path)
        return path;
    std::size_t root = below(path, UVT_SOURCE_ROOT);
    if (!root)
        return path;
    for (const char* dir : {"src/", "include/"}) {
        if (std::size_t sub = below(path + root, dir))
            return path + root + sub;
    }
    return path + root;
}

} // namespace uvt_extern

namespace uvt {

const char* getStandardPrefix(char* buffer, unsigned long size)
{
    uvt_extern::import::prefix_fn fn = uvt_extern::standard_prefix.load();
    return fn ? fn(buffer, size) : nullptr;
}

void impl::debugCrash(const char* file, int line, const char* text, int number)
{
    uvt_extern::import::abort(file, line, text, number);
}

} // namespace uvt
