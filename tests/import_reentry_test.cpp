// A host whose getters call back into the library while they are asked:
// the inner calls get the library's defaults, the outer ones cache the
// host's answers, and racing first callers agree. Its own program, because
// the host object is looked up once per process.

#include "support/test_allocator.h"

#include <uvt/impl/malloc_allocator>
#include <uvt/impl/memory>
#include <uvt/import>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

struct reentrant_host : uvt_extern::UvtImport {
    uvt::allocator* get_global_allocator() override
    {
        inner_global = &uvt::allocator::global_allocator();
        return &global;
    }
    uvt_extern::CaughtCallback* get_caught_callback() override
    {
        inner_caught = uvt_extern::import::get_caught_callback();
        return &callbacks;
    }
    bool create_trace_file() override
    {
        inner_trace = uvt_extern::import::create_trace_file();
        return false;
    }

    uvt_test::counting_allocator global{"reentrant-global"};
    uvt_extern::UvtCrashHandlers callbacks;
    uvt::allocator* inner_global = nullptr;
    uvt_extern::CaughtCallback* inner_caught = nullptr;
    bool inner_trace = false;
};

std::atomic<int> host_lookups{0};

reentrant_host& host()
{
    static reentrant_host h;
    return h;
}

} // namespace

// The lookup itself calls back into the library before the host exists.
extern "C" uvt_extern::UvtImport* get_uvt_import()
{
    ++host_lookups;
    uvt::allocator::composite_allocator();
    return &host();
}

TEST(HostReentry, InnerCallsGetDefaultsOuterCallsCacheTheHost)
{
    // Racing first callers on several threads: every one sees the host's
    // answer, whichever asked.
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            if (&uvt::allocator::global_allocator() != &host().global)
                ++wrong;
            if (uvt_extern::import::get_caught_callback() != &host().callbacks)
                ++wrong;
            if (uvt_extern::import::create_trace_file())
                ++wrong;
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);

    EXPECT_EQ(host().inner_global, &uvt_extern::UvtMallocAllocator::instance());
    EXPECT_EQ(host().inner_caught, &uvt_extern::UvtCrashHandlers::instance());
    EXPECT_TRUE(host().inner_trace);
    // Inside the lookup the library saw no host: the composite allocator
    // asked then stays the default.
    EXPECT_EQ(&uvt::allocator::composite_allocator(), &uvt_extern::UvtMallocAllocator::instance());
    EXPECT_GE(host_lookups, 1);
    EXPECT_EQ(uvt_extern::get_import(), &host());
}
