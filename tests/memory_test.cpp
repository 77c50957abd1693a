// The allocator interface, the malloc allocator and the process-wide
// accessors as a program without a host object sees them.

#include "support/caught.h"
#include "support/test_allocator.h"

#include <uvt/exception>
#include <uvt/ext/buffer_stream>
#include <uvt/impl/malloc_allocator>
#include <uvt/import>
#include <uvt/new>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using uvt::allocator;
using uvt_test::counting_allocator;

namespace {

bool aligned_to(const void* p, unsigned long alignment) { return reinterpret_cast<std::uintptr_t>(p) % alignment == 0; }

// A fresh malloc allocator of its own, so that fault injection does not
// disturb the process-wide one.
uvt::allocator_handle private_malloc_allocator()
{
    return allocator::global_allocator().createBlockAllocator("private", 48, uvt::vela_component{});
}

// Zero bytes are requested as one (distinct blocks); aligned requests as at
// least the alignment.
TEST(AllocatorEntryPoints, RequestSizesReallocRulesAndFailures)
{
    counting_allocator a;
    void* p = a.allocate(0);
    EXPECT_EQ(a.last_size(), 1u);
    void* q = a.allocateNoThrow(0);
    EXPECT_EQ(a.last_size(), 1u);
    EXPECT_NE(p, q);
    void* r = a.allocateAligned(8, 64);
    EXPECT_EQ(a.last_size(), 64u);
    EXPECT_EQ(a.last_alignment(), 64u);
    EXPECT_TRUE(aligned_to(r, 64));
    void* s = a.allocateAlignedNoThrow(100, 32);
    EXPECT_EQ(a.last_size(), 100u);
    EXPECT_TRUE(aligned_to(s, 32));
    for (void* block : {p, q, r, s})
        a.deallocate(block);
    EXPECT_EQ(a.live_blocks(), 0u);

    // Failures throw or return null.
    a.fail_at(1, true);
    EXPECT_EQ(a.allocateNoThrow(10), nullptr);
    EXPECT_EQ(a.allocateAlignedNoThrow(10, 16), nullptr);
    EXPECT_THROW(a.allocate(10), uvt::bad_alloc);
    EXPECT_THROW(a.allocateAligned(10, 16), std::bad_alloc);
    EXPECT_THROW(a.allocateViaReservations(10, nullptr), uvt::bad_alloc);
    EXPECT_EQ(a.live_blocks(), 0u);

    // realloc: shrinking, moving, failures, and allocators without block sizes.
    a.fail_at(0);
    void* block = a.realloc(nullptr, 100);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5a, 100);
    EXPECT_EQ(a.realloc(block, 60), block) << "shrinking to more than half keeps the block";
    void* moved = a.realloc(block, 50);
    EXPECT_NE(moved, block) << "shrinking to half or less moves the block";
    EXPECT_EQ(static_cast<unsigned char*>(moved)[49], 0x5a);
    EXPECT_EQ(a.live_blocks(), 1u);

    void* small = a.allocate(16);
    EXPECT_EQ(a.realloc(small, 1), small) << "blocks of at most 16 bytes are kept";

    void* grown = a.reallocThrow(moved, 4000);
    EXPECT_EQ(static_cast<unsigned char*>(grown)[0], 0x5a);
    EXPECT_EQ(a.realloc(grown, 0), nullptr);
    EXPECT_EQ(a.reallocThrow(small, 0), nullptr);
    EXPECT_EQ(a.live_blocks(), 0u);

    // A failure keeps the old block.
    void* kept = a.allocate(32);
    a.fail_at(1);
    EXPECT_EQ(a.realloc(kept, 1000), nullptr);
    a.fail_at(1);
    EXPECT_THROW(a.reallocThrow(kept, 1000), uvt::bad_alloc);
    EXPECT_EQ(a.getBlockSize(kept), 32u);
    a.deallocate(kept);

    // Without block sizes (the malloc allocator) realloc is refused.
    allocator& m = allocator::global_allocator();
    void* unsized = m.allocate(40);
    std::memset(unsized, 1, 40);
    EXPECT_EQ(m.realloc(unsized, 20), nullptr);
    EXPECT_EQ(static_cast<unsigned char*>(unsized)[39], 1) << "the block stays valid";
    m.deallocate(unsized);
}

// A temporary allocator hanging below another one.
class temp_allocator : public counting_allocator {
public:
    explicit temp_allocator(allocator* parent) : parent_(parent) {}
    bool isTempAllocator() const override { return true; }
    allocator* getParentAllocator() const override { return parent_; }

private:
    allocator* parent_;
};

TEST(MallocAllocator, ProcessWideOnesBlockAllocatorsReferencesMalfunctionsAndConcurrency)
{
    allocator& global = allocator::global_allocator();
    EXPECT_EQ(&global, &allocator::internal_global_allocator());
    for (allocator* a :
         {&allocator::null_allocator(), &allocator::composite_allocator(), &allocator::allocate_only_allocator(),
          &allocator::adaptor_allocator(), &uvt::get_emergency_allocator(), &uvt::exception::default_allocator(),
          uvt_extern::import::get_out_of_memory_allocator()})
        EXPECT_EQ(a, &global);
    EXPECT_EQ(&global, &uvt_extern::UvtMallocAllocator::instance());
    EXPECT_STREQ(global.getName().c_str(), "UvtMallocAllocator");

    // getNonTempParentAllocator skips temporary allocators.
    counting_allocator root;
    temp_allocator mid(&root), leaf(&mid), orphan(nullptr);
    EXPECT_EQ(leaf.getNonTempParentAllocator(), &root);
    EXPECT_EQ(orphan.getNonTempParentAllocator(), nullptr);

    // Block allocators fix the alignment.
    struct Case {
        unsigned long block_size, alignment;
    };
    for (Case c : {Case{48, 0}, Case{0, 4096}, Case{256, 256}, Case{1, 1}, Case{100, 0}}) {
        auto block = global.createBlockAllocator("blocks", c.block_size, uvt::vela_component{});
        EXPECT_EQ(block->getAlignmentSize(), c.alignment) << "block size " << c.block_size;
        EXPECT_EQ(block->getParentAllocator(), &global);
        EXPECT_STREQ(block->getName().c_str(), "blocks");
        void* p = block->allocate(10);
        if (c.alignment)
            EXPECT_TRUE(aligned_to(p, c.alignment));
        block->deallocate(p);
    }

    // References keep an allocator alive.
    auto block = private_malloc_allocator();
    auto* impl = static_cast<uvt_extern::UvtMallocAllocator*>(block.get());
    uvt::allocator_handle copy = block;
    EXPECT_EQ(impl->referenceCount(), 2u);
    block.reset();
    EXPECT_EQ(impl->referenceCount(), 1u);
    copy->deallocate(copy->allocate(8)); // still usable
    impl->addReferences(3);
    EXPECT_EQ(impl->referenceCount(), 4u);
    for (int i = 0; i < 3; ++i)
        impl->release();

    // The process-wide instance survives its last release.
    auto& instance = uvt_extern::UvtMallocAllocator::instance();
    instance.release();
    instance.release();
    instance.deallocate(instance.allocate(8));

    auto a = private_malloc_allocator();
    a->setMalfunctionStartCounter(3);
    void* first = a->allocateNoThrow(8);
    void* second = a->allocateNoThrow(8);
    EXPECT_NE(first, nullptr);
    EXPECT_NE(second, nullptr);
    for (int i = 0; i < 3; ++i) {
        errno = 0;
        EXPECT_EQ(a->allocateNoThrow(8), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_THROW(a->allocateAligned(8, 64), uvt::bad_alloc);
    a->setMalfunctionStartCounter(0);
    void* again = a->allocate(8);
    for (void* p : {first, second, again})
        a->deallocate(p);

    // The bad_alloc names the allocator and the size; an aligned request
    // repeats the size.
    a->setMalfunctionStartCounter(1);
    const auto e = uvt_test::caught<uvt::bad_alloc>([&] { a->allocate(1234); });
    EXPECT_EQ(e.error_no(), 1000002);
    EXPECT_STREQ(e.get_msgarg_by_name("size"), "1234");
    EXPECT_STREQ(e.get_msgarg_by_name("name"), "private");
    EXPECT_STREQ(e.get_msgarg_by_name("type"), "UvtMallocAllocator");
    EXPECT_STREQ(e.file().get(), "uvt/impl/memory");
    EXPECT_EQ(e.line(), 126);
    EXPECT_EQ(e.get_allocation_failure_type(), uvt::UNKNOWN);

    const auto aligned = uvt_test::caught<uvt::bad_alloc>([&] { a->allocateAligned(100, 64, nullptr); });
    EXPECT_EQ(aligned.line(), 203);
    uvt::buffer_stream<2048> out;
    aligned.print_short(out, true, true);
    const std::string text = out.c_str();
    const auto at = text.find("$size$=100");
    EXPECT_NE(at, std::string::npos) << text;
    EXPECT_NE(text.find("$size$=100", at + 1), std::string::npos) << "the size argument appears twice: " << text;

    // Concurrent allocation and references.
    auto shared = private_malloc_allocator();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&shared] {
            for (int i = 0; i < 2000; ++i) {
                uvt::allocator_handle local = shared;
                void* p = local->allocate(16 + i % 64);
                local->deallocate(p);
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(static_cast<uvt_extern::UvtMallocAllocator*>(shared.get())->referenceCount(), 1u);
}

} // namespace
