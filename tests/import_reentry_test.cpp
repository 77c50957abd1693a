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

// A call made from inside a getter gets the library's default while no
// answer is cached, or the host's answer once a racing thread cached it;
// never anything else, and it never recurses.
struct inner_answers {
    std::atomic<int> defaults{0}, cached{0}, wrong{0};
    template <class T>
    void note(T inner, T library_default, T host_answer)
    {
        ++(inner == library_default ? defaults : inner == host_answer ? cached : wrong);
    }
};

struct reentrant_host : uvt_extern::UvtImport {
    uvt::allocator* get_global_allocator() override
    {
        global_inner.note(&uvt::allocator::global_allocator(), malloc_default(), static_cast<uvt::allocator*>(&global));
        return &global;
    }
    uvt_extern::CaughtCallback* get_caught_callback() override
    {
        caught_inner.note(uvt_extern::import::get_caught_callback(), library_callbacks(), caught());
        return &callbacks;
    }
    bool create_trace_file() override
    {
        trace_inner.note(uvt_extern::import::create_trace_file(), true, false);
        return false;
    }

    static uvt::allocator* malloc_default() { return &uvt_extern::UvtMallocAllocator::instance(); }
    static uvt_extern::CaughtCallback* library_callbacks() { return &uvt_extern::UvtCrashHandlers::instance(); }
    uvt_extern::CaughtCallback* caught() { return &callbacks; }

    uvt_test::counting_allocator global{"reentrant-global"};
    uvt_extern::UvtCrashHandlers callbacks;
    inner_answers global_inner, caught_inner, trace_inner;
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

    // The first getter to finish made its inner call before anything was
    // cached, so at least one inner call got the default.
    for (const inner_answers* inner : {&host().global_inner, &host().caught_inner, &host().trace_inner}) {
        EXPECT_GE(inner->defaults, 1);
        EXPECT_EQ(inner->wrong, 0);
    }
    // Inside the lookup the library saw no host: the composite allocator
    // asked then stays the default.
    EXPECT_EQ(&uvt::allocator::composite_allocator(), &uvt_extern::UvtMallocAllocator::instance());
    EXPECT_GE(host_lookups, 1);
    EXPECT_EQ(uvt_extern::get_import(), &host());
}
