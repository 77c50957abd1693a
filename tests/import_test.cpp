// The host hooks as a program with a host object sees them.

#include "support/test_host.h"

#include <uvt/exception>
#include <uvt/ext/buffer_stream>
#include <uvt/impl/malloc_allocator>
#include <uvt/new>
#include <uvt/stdexcept>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

using uvt_extern::import;
using uvt_test::test_host;

test_host& host() { return test_host::instance(); }

// The host object is found once; its answers are cached, the malloc
// allocator stands in for the allocators it answers null for, exceptions
// built without an allocator take the host's, and a failing allocation
// notifies it.
TEST(HostHooks, HostAnswersAllocatorSlotsStandardPrefixAndFileNames)
{
    EXPECT_EQ(uvt_extern::get_import(), &host());
    EXPECT_EQ(uvt_extern::get_import(), &host());
    EXPECT_FALSE(import::create_trace_file());
    EXPECT_EQ(import::aux_vector(), &host().callbacks);
    EXPECT_EQ(import::get_std_stream_provider(), nullptr);
    EXPECT_EQ(import::get_unhandled_callback(), &host().callbacks);

    EXPECT_EQ(&uvt::allocator::global_allocator(), &host().global);
    EXPECT_EQ(&uvt::exception::default_allocator(), &host().exceptions);
    auto& fallback = uvt_extern::UvtMallocAllocator::instance();
    EXPECT_EQ(&uvt::get_emergency_allocator(), &fallback);
    EXPECT_EQ(&uvt::allocator::null_allocator(), &fallback);
    EXPECT_EQ(import::get_out_of_memory_allocator(), &fallback);
    const unsigned long before = host().exceptions.live_blocks();
    {
        uvt::exception e(__FILE__, __LINE__, uvt__ERR_UVT_RUNTIME());
        EXPECT_GT(host().exceptions.live_blocks(), before);
        e.mark_processed();
    }
    EXPECT_EQ(host().exceptions.live_blocks(), before);

    const int notified = host().callbacks.out_of_memory;
    host().global.fail_at(1);
    EXPECT_THROW(uvt::allocator::global_allocator().allocate(10), uvt::bad_alloc);
    EXPECT_EQ(host().callbacks.out_of_memory, notified + 1);

    // The standard prefix function, and file names cut below the source tree.
    char buffer[32];
    EXPECT_EQ(uvt::getStandardPrefix(buffer, sizeof buffer), nullptr);
    auto prefix = [](char* b, unsigned long) -> const char* { return std::strcpy(b, "[t1]"); };
    EXPECT_EQ(import::set_standard_prefix(prefix), nullptr);
    EXPECT_STREQ(uvt::getStandardPrefix(buffer, sizeof buffer), "[t1]");
    EXPECT_EQ(import::set_standard_prefix(nullptr), +prefix);

    const std::string root = UVT_TEST_SOURCE_DIR;
    const std::string source = root + "/src/uvt/base/impl/import.cpp";
    EXPECT_STREQ(import::stdFileName(source.c_str()), "uvt/base/impl/import.cpp");
    const std::string header = root + "/include/uvt/exception";
    EXPECT_STREQ(import::stdFileName(header.c_str()), "uvt/exception");
    std::string windows = source;
    for (char& c : windows)
        if (c == '/')
            c = '\\';
    EXPECT_STREQ(import::stdFileName(windows.c_str()), "uvt\\base\\impl\\import.cpp");
    EXPECT_STREQ(import::stdFileName("/elsewhere/host.cpp"), "/elsewhere/host.cpp");
    EXPECT_EQ(import::stdFileName(nullptr), nullptr);
}

TEST(HostHooksDeathTest, AbortsReachTheHostFirst)
{
    EXPECT_DEATH(import::abort("f.cpp", 12, "boom"), "host abort: f.cpp:12 boom");
    EXPECT_DEATH(import::abort("f.cpp", 42, "Exception type is already registered", 7),
                 "host abort: f.cpp:42 Exception type is already registered 7");
    EXPECT_DEATH(import::halt("h.cpp", 3, "halted"), "host abort: h.cpp:3 halted");
    EXPECT_DEATH(uvt::impl::debugCrash("d.cpp", 5, "out of range", 1000003), "host abort: d.cpp:5 out of range");
}

} // namespace
