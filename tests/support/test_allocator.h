// Test allocators: a counting allocator that can fail chosen allocations, and
// a sweep that reruns an operation failing each allocation point in turn.
#pragma once

#include <uvt/impl/memory>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <unordered_map>

namespace uvt_test {

// Counts live blocks and bytes; fails allocations on request. Its blocks
// report their size (getBlockSize), so reallocation works through it.
class counting_allocator : public uvt::allocator {
public:
    explicit counting_allocator(const char* name = "counting_allocator") : name_(name) {}
    ~counting_allocator() override;

    // Fail the n-th allocation attempt from now (1-based) and, when `and_later`
    // is set, every attempt after it. n = 0 switches failing off.
    void fail_at(unsigned long n, bool and_later = false);

    unsigned long live_blocks() const;
    unsigned long live_bytes() const { return bytes_; }
    unsigned long attempts() const { return attempts_; }  // allocation attempts so far, failed ones included
    unsigned long failures() const { return failures_; }
    // Size and alignment (0 for unaligned requests) of the last request.
    unsigned long last_size() const { return last_size_; }
    unsigned long last_alignment() const { return last_alignment_; }

    void release() override {}
    void addReference() override {}
    uvt::CA_statistics getStatistics() const override;
    unsigned long getBlockSize(void* p) const override;
    void* allocateNoThrowImpl(unsigned long size, const void* caller) override;
    void* allocateAlignedNoThrowImpl(unsigned long size, unsigned long alignment, const void* caller) override;
    void deallocateImpl(void* p, const void* caller) override;
    void addBadAllocInfo(uvt::exception& e, unsigned long size, unsigned long alignment) override;

private:
    bool should_fail(unsigned long size, unsigned long alignment);
    void* record(void* p, unsigned long size);

    const char* name_;
    mutable std::mutex mutex_;  // guards every change; the counters are also read without it
    std::unordered_map<void*, unsigned long> blocks_;
    std::atomic<unsigned long> bytes_{0}, attempts_{0}, failures_{0}, last_size_{0}, last_alignment_{0};
    unsigned long fail_at_ = 0;
    bool fail_later_ = false;
};

// Runs `op(alloc)` with the 1st, 2nd, ... allocation failing until a run
// completes without reaching the failing point. After every run all blocks
// must be back. `op` returns normally or throws; `check(threw)` runs after
// each failing run for extra assertions. Returns the number of allocation
// points found.
template <class Op, class Check>
unsigned long sweep_allocation_failures(Op op, Check check)
{
    for (unsigned long n = 1;; ++n) {
        counting_allocator alloc("sweep");
        alloc.fail_at(n);
        bool threw = false;
        try {
            op(alloc);
        } catch (...) {
            threw = true;
        }
        EXPECT_EQ(alloc.live_blocks(), 0u) << "leak when allocation " << n << " failed";
        if (alloc.failures() == 0)
            return n - 1;
        check(threw);
        if (::testing::Test::HasFatalFailure() || n > 100000)
            return n;
    }
}

template <class Op>
unsigned long sweep_allocation_failures(Op op)
{
    return sweep_allocation_failures(op, [](bool) {});
}

} // namespace uvt_test
