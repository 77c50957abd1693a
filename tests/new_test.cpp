// Allocation failures: bad_alloc's constructors and host notification, the
// out-of-memory allocator behind it, failure-type texts, bad_numa_alloc and
// the throw entry points.
#include "support/type_header.h"
#include <uvt/ios>
#include <uvt/new>
#include <uvt/strstream>

#include "support/test_host.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The test host with its own out-of-memory allocator, so the tests can see
// where a bad_alloc keeps its message.
class oom_host : public uvt_test::test_host {
public:
    uvt::allocator* get_out_of_memory_allocator() override { return &oom; }
    uvt_test::counting_allocator oom{"host-oom"};
};

oom_host& host()
{
    static oom_host h;
    return h;
}

} // namespace

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &host(); }

namespace {

using uvt_test::type_header;
using uvt_test::words;

constexpr const char* F = "f.cpp";

int notifications() { return host().callbacks.out_of_memory.load(); }

std::string streamed(uvt::allocation_failure_type t)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    os << t;
    return os.c_str();
}

// The library's name table is sized by the enumeration; spot checks of its
// ends and middle, and the texts for values beyond it.
TEST(BadAlloc, FailureTypesConstructorsTheOutOfMemoryAllocatorThrowEntryPointsAndHeaders)
{
    for (auto [v, name] : {std::pair{0, "UNKNOWN"}, {9, "STATEMENT_MEMORY_LIMIT"}, {16, "FORBIDDEN"}}) {
        const auto t = static_cast<uvt::allocation_failure_type>(v);
        EXPECT_STREQ(uvt::get_allocation_failure_type_string(t), name);
        EXPECT_EQ(streamed(t), name);
    }
    for (int v : {17, 255}) {
        const auto t = static_cast<uvt::allocation_failure_type>(v);
        EXPECT_STREQ(uvt::get_allocation_failure_type_string(t), "<Unexpected allocation failure limit type>");
        EXPECT_EQ(streamed(t), "<Unexpected allocation failure type " + std::to_string(v) + ">");
    }

    const struct {
        const char* name;
        uvt::bad_alloc (*make)();
        int notifications;
        const char* reason;
    } cases[] = {
        {"silent", [] { return uvt::bad_alloc(F, 1, true); }, 0, ""},
        {"not silent", [] { return uvt::bad_alloc(F, 1, false); }, 1, ""},
        {"caller", [] { return uvt::bad_alloc(F, 1, static_cast<const void*>(F)); }, 1, ""},
        {"reason silent", [] { return uvt::bad_alloc(F, 1, "no pages", true); }, 0, "no pages"},
        {"reason", [] { return uvt::bad_alloc(F, 1, "no pages", false); }, 1, "no pages"},
        {"std::bad_alloc", [] { return uvt::bad_alloc(F, 1, std::bad_alloc()); }, 1, "std::bad_alloc"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const int before = notifications();
        const uvt::bad_alloc e = c.make();
        EXPECT_EQ(notifications() - before, c.notifications);
        EXPECT_EQ(e.error_no(), 1000002);
        EXPECT_EQ(e.line(), 1);
        EXPECT_STREQ(e.get_msgarg_by_name("REASON"), c.reason);
        EXPECT_EQ(e.get_allocation_failure_type(), uvt::UNKNOWN);
        e.mark_processed();
    }

    // Copies never notify; the (base, std) form resets the failure type.
    uvt::bad_alloc original(F, 2, "r", true);
    original.set_allocation_failure_type(uvt::MALFUNCTION);
    const int before = notifications();

    const uvt::bad_alloc copy = original;
    EXPECT_EQ(copy.get_allocation_failure_type(), uvt::MALFUNCTION);
    EXPECT_TRUE(copy == original);

    const uvt::bad_alloc from_base(static_cast<const uvt::exception&>(original), std::bad_alloc());
    EXPECT_EQ(from_base.get_allocation_failure_type(), uvt::UNKNOWN);
    EXPECT_TRUE(from_base == original);
    EXPECT_EQ(notifications(), before);
    original.mark_processed();

    // The message lives in the out-of-memory allocator; when that fails, the
    // bad_alloc still knows its number and origin.
    auto& oom = host().oom;
    const unsigned long live_before = oom.live_blocks();
    const unsigned long exceptions_before = host().exceptions.attempts();
    {
        const uvt::bad_alloc e(F, 3, "r", true);
        EXPECT_GT(oom.live_blocks(), live_before);
        EXPECT_EQ(host().exceptions.attempts(), exceptions_before);
        e.mark_processed();
    }
    EXPECT_EQ(oom.live_blocks(), live_before);
    uvt_test::sweep_allocation_failures(oom, [] {
        const uvt::bad_alloc e(F, 4, "reason", true);
        EXPECT_EQ(e.error_no(), 1000002);
        EXPECT_EQ(e.line(), 4);
        EXPECT_NE(e.what(), nullptr);
        e.mark_processed();
    });

    // Both notify the host once and throw a uvt::bad_alloc that a std::bad_alloc
    // handler catches, with the same what() through both bases.
    const struct {
        const char* label;
        void (*thrower)();
        const char* file;
        int line;
        const char* items;
    } rows[] = {
        {"throw_uvt_bad_allocation", [] { throw_uvt_bad_allocation(F, 5); }, F, 5, ""},
        {"impl::throwBadAllocation", [] { uvt::impl::throwBadAllocation(12345); }, "uvt/impl/memory", 451, "12345"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const int before = notifications();
        try {
            row.thrower();
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::bad_alloc& e) {
            const auto* uvt_e = dynamic_cast<const uvt::bad_alloc*>(&e);
            ASSERT_NE(uvt_e, nullptr);
            EXPECT_STREQ(e.what(), "Allocation failed $REASON$");
            EXPECT_STREQ(e.what(), static_cast<const uvt::exception*>(uvt_e)->what());
            EXPECT_STREQ(uvt_e->file().get(), row.file);
            EXPECT_EQ(uvt_e->line(), row.line);
            EXPECT_STREQ(uvt_e->get_msgarg_by_name("items: "), row.items);
            EXPECT_STREQ(uvt_e->get_msgarg_by_name("REASON"), "");
            uvt_e->mark_processed();
        }
        EXPECT_EQ(notifications() - before, 1);
    }

    // The failure type follows the class word of bad_alloc's header;
    // bad_numa_alloc has a header of its own and throws itself through a
    // bad_alloc reference.
    uvt::bad_alloc e(F, 6, true);
    e.set_allocation_failure_type(uvt::MALFUNCTION);
    EXPECT_EQ(type_header(e), words({0xFACE0001, 0xFACADE34, 1}));
    e.set_allocation_failure_type(static_cast<uvt::allocation_failure_type>(200));
    EXPECT_EQ(type_header(e), words({0xFACE0001, 0xFACADE34, 200}));
    e.mark_processed();

    const uvt::bad_numa_alloc numa;
    EXPECT_EQ(type_header(numa), words({0xFACE001E, 0xFACADE01}));
    const uvt::bad_alloc& as_base = numa;
    try {
        uvt::tThrow(as_base);
    } catch (const std::bad_alloc& thrown) {
        EXPECT_NE(dynamic_cast<const uvt::bad_numa_alloc*>(&thrown), nullptr);
    }
}

} // namespace
