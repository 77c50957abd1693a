// Test allocators: a counting allocator that can fail chosen allocations, and
// a sweep that reruns an operation failing each allocation point in turn.
#pragma once

#include <uvt/exception>
#include <uvt/impl/memory>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace uvt_test {

// Counts live blocks and bytes; fails allocations on request. Its blocks
// report their size (getBlockSize), so reallocation works through it.
class counting_allocator : public uvt::allocator {
public:
    explicit counting_allocator(const char* name = "counting_allocator") : name_(name) {}
    ~counting_allocator() override
    {
        for (auto& [p, size] : blocks_)
            std::free(p);
    }

    // Fail the n-th allocation attempt from now (1-based) and, when `and_later`
    // is set, every attempt after it. n = 0 switches failing off.
    void fail_at(unsigned long n, bool and_later = false)
    {
        std::lock_guard lock(mutex_);
        fail_at_ = n ? attempts_ + n : 0;
        fail_later_ = and_later;
    }

    unsigned long live_blocks() const
    {
        std::lock_guard lock(mutex_);
        return blocks_.size();
    }
    unsigned long live_bytes() const { return bytes_; }
    unsigned long attempts() const { return attempts_; } // allocation attempts so far, failed ones included
    unsigned long failures() const { return failures_; }
    // Size and alignment (0 for unaligned requests) of the last request.
    unsigned long last_size() const { return last_size_; }
    unsigned long last_alignment() const { return last_alignment_; }

    void release() override {}
    void addReference() override {}
    uvt::CA_statistics getStatistics() const override
    {
        uvt::CA_statistics s;
        s.current_bytes = bytes_;
        s.alloc_count = attempts_ - failures_;
        return s;
    }
    unsigned long getBlockSize(void* p) const override
    {
        std::lock_guard lock(mutex_);
        auto it = blocks_.find(p);
        return it == blocks_.end() ? 0 : it->second;
    }
    void* allocateNoThrowImpl(unsigned long size, const void*) override
    {
        std::lock_guard lock(mutex_);
        return should_fail(size, 0) ? nullptr : record(std::malloc(size), size);
    }
    void* allocateAlignedNoThrowImpl(unsigned long size, unsigned long alignment, const void*) override
    {
        std::lock_guard lock(mutex_);
        void* p = nullptr;
        return should_fail(size, alignment) || posix_memalign(&p, alignment, size) ? nullptr : record(p, size);
    }
    void deallocateImpl(void* p, const void*) override
    {
        if (!p)
            return;
        std::lock_guard lock(mutex_);
        auto it = blocks_.find(p);
        ASSERT_NE(it, blocks_.end()) << "block " << p << " does not belong to " << name_;
        bytes_ -= it->second;
        blocks_.erase(it);
        std::free(p);
    }
    void addBadAllocInfo(uvt::exception& e, unsigned long size, unsigned long) override
    {
        e << uvt::message_argument<unsigned long>("size", size) << uvt::msgarg_text("name", name_);
    }

private:
    bool should_fail(unsigned long size, unsigned long alignment)
    {
        ++attempts_;
        last_size_ = size;
        last_alignment_ = alignment;
        const bool fail = fail_at_ && (attempts_ == fail_at_ || (fail_later_ && attempts_ > fail_at_));
        if (fail) {
            ++failures_;
            errno = ENOMEM;
        }
        return fail;
    }
    void* record(void* p, unsigned long size)
    {
        if (p) {
            blocks_.emplace(p, size);
            bytes_ += size;
        }
        return p;
    }

    const char* name_;
    mutable std::mutex mutex_; // guards every change; the counters are also read without it
    std::unordered_map<void*, unsigned long> blocks_;
    std::atomic<unsigned long> bytes_{0}, attempts_{0}, failures_{0}, last_size_{0}, last_alignment_{0};
    unsigned long fail_at_ = 0;
    bool fail_later_ = false;
};

// Runs `op(alloc)` with the 1st, 2nd, ... allocation failing until a run
// completes without reaching the failing point; `alloc` is `shared`, or a
// fresh allocator for every run. After every run all blocks must be back.
// `op` returns normally or throws; `check(threw)` runs after each failing
// run for extra assertions. Returns the number of allocation points found.
template <class Op, class Check>
unsigned long sweep_allocation_failures_in(counting_allocator* shared, Op op, Check check)
{
    for (unsigned long n = 1;; ++n) {
        std::optional<counting_allocator> own;
        counting_allocator& alloc = shared ? *shared : own.emplace("sweep");
        const unsigned long live = alloc.live_blocks(), failures = alloc.failures();
        alloc.fail_at(n);
        bool threw = false;
        try {
            op(alloc);
        } catch (...) {
            threw = true;
        }
        alloc.fail_at(0);
        EXPECT_EQ(alloc.live_blocks(), live) << "leak when allocation " << n << " failed";
        if (alloc.failures() == failures)
            return n - 1;
        check(threw);
        if (::testing::Test::HasFatalFailure() || n > 100000)
            return n;
    }
}

template <class Op, class Check = void (*)(bool)>
unsigned long sweep_allocation_failures(
    Op op, Check check = [](bool) {})
{
    return sweep_allocation_failures_in(nullptr, op, check);
}

// The same with an allocator that lives on, such as the host's; `op` takes
// no argument.
template <class Op>
unsigned long sweep_allocation_failures(counting_allocator& alloc, Op op)
{
    return sweep_allocation_failures_in(
        &alloc, [&](counting_allocator&) { op(); }, [](bool) {});
}

} // namespace uvt_test
