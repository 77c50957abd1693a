// Counted C strings and component names.

#include "support/test_allocator.h"

#include <uvt/ext/cstring_ptr>
#include <uvt/new>
#include <uvt/stdexcept>
#include <uvt/vela_component>

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

using uvt_test::counting_allocator;

TEST(CStringPtr, CountedCopiesLiteralsFailuresConcurrentCopiesAndComponentNames)
{
    counting_allocator a;
    {
        uvt::cstring_ptr p("hello", a);
        EXPECT_STREQ(p.c_str(), "hello");
        EXPECT_FALSE(p.is_literal());
        EXPECT_EQ(p.use_count(), 1u);
        uvt::cstring_ptr q = p;
        EXPECT_EQ(q.c_str(), p.c_str());
        EXPECT_EQ(p.use_count(), 2u);
        uvt::cstring_ptr moved = std::move(q);
        EXPECT_FALSE(q);
        EXPECT_EQ(p.use_count(), 2u);
        EXPECT_EQ(a.live_blocks(), 1u);
    }
    EXPECT_EQ(a.live_blocks(), 0u);

    // Literals are neither copied nor counted.
    static const char text[] = "fixed";
    uvt::cstring_ptr p = uvt::cstring_ptr::literal(text);
    uvt::cstring_ptr q = p;
    EXPECT_EQ(q.c_str(), text);
    EXPECT_TRUE(q.is_literal());
    EXPECT_EQ(q.use_count(), 0u);
    EXPECT_EQ(uvt::cstring_ptr().c_str(), nullptr);

    // Wide text, null text and allocation failure.
    uvt::wcstring_ptr w(L"wide \u00e9", a);
    EXPECT_EQ(std::wcscmp(w.c_str(), L"wide \u00e9"), 0);
    EXPECT_THROW(uvt::cstring_ptr(static_cast<const char*>(nullptr), a), uvt::null_pointer);
    EXPECT_THROW(uvt::wcstring_ptr(static_cast<const wchar_t*>(nullptr), a), uvt::null_pointer);
    a.fail_at(1);
    EXPECT_THROW(uvt::cstring_ptr("x", a), uvt::bad_alloc);

    // Concurrent copies balance.
    counting_allocator b;
    {
        uvt::cstring_ptr shared("shared", b);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([shared] {
                for (int i = 0; i < 10000; ++i) {
                    uvt::cstring_ptr copy = shared;
                    ASSERT_EQ(copy.c_str()[0], 's');
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(shared.use_count(), 1u);
    }
    EXPECT_EQ(b.live_blocks(), 0u);

    // Component names: the named range and the unknown ones.
    EXPECT_STREQ(uvt::getVELAComponentName(uvt::vela_component{0}), "Unspecified");
    EXPECT_STREQ(uvt::getVELAComponentName(uvt::vela_component{2}), "Memory");
    for (unsigned n = 0; n <= 32; ++n)
        EXPECT_STRNE(uvt::getVELAComponentName(uvt::vela_component{n}), "Unknown component") << n;
    EXPECT_STREQ(uvt::getVELAComponentName(uvt::vela_component{33}), "Unknown component");
    EXPECT_STREQ(uvt::getVELAComponentName(uvt::vela_component{0xffffffffu}), "Unknown component");
}

TEST(CStringPtrDeathTest, CorruptedCounterAborts)
{
    counting_allocator a;
    uvt::cstring_ptr p("victim", a);
    auto* counter = reinterpret_cast<std::uint64_t*>(const_cast<char*>(p.c_str())) - 1;
    const std::uint64_t saved = *counter;
    *counter = 5; // tag destroyed
    EXPECT_DEATH({ uvt::cstring_ptr copy = p; }, "");
    *counter = saved;
}

} // namespace
