#include "test_allocator.h"

#include <uvt/exception>

#include <cerrno>
#include <cstdlib>

namespace uvt_test {

counting_allocator::~counting_allocator()
{
    for (auto& [p, size] : blocks_)
        std::free(p);
}

void counting_allocator::fail_at(unsigned long n, bool and_later)
{
    std::lock_guard lock(mutex_);
    fail_at_ = n ? attempts_ + n : 0;
    fail_later_ = and_later;
}

unsigned long counting_allocator::live_blocks() const
{
    std::lock_guard lock(mutex_);
    return blocks_.size();
}

uvt::CA_statistics counting_allocator::getStatistics() const
{
    uvt::CA_statistics s;
    s.current_bytes = bytes_;
    s.alloc_count = attempts_ - failures_;
    return s;
}

unsigned long counting_allocator::getBlockSize(void* p) const
{
    std::lock_guard lock(mutex_);
    auto it = blocks_.find(p);
    return it == blocks_.end() ? 0 : it->second;
}

bool counting_allocator::should_fail(unsigned long size, unsigned long alignment)
{
    ++attempts_;
    last_size_ = size;
    last_alignment_ = alignment;
    bool fail = fail_at_ && (attempts_ == fail_at_ || (fail_later_ && attempts_ > fail_at_));
    if (fail) {
        ++failures_;
        errno = ENOMEM;
    }
    return fail;
}

void* counting_allocator::record(void* p, unsigned long size)
{
    if (p) {
        blocks_.emplace(p, size);
        bytes_ += size;
    }
    return p;
}

void* counting_allocator::allocateNoThrowImpl(unsigned long size, const void*)
{
    std::lock_guard lock(mutex_);
    return should_fail(size, 0) ? nullptr : record(std::malloc(size), size);
}

void* counting_allocator::allocateAlignedNoThrowImpl(unsigned long size, unsigned long alignment, const void*)
{
    std::lock_guard lock(mutex_);
    if (should_fail(size, alignment))
        return nullptr;
    void* p = nullptr;
    return posix_memalign(&p, alignment, size) ? nullptr : record(p, size);
}

void counting_allocator::deallocateImpl(void* p, const void*)
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

void counting_allocator::addBadAllocInfo(uvt::exception& e, unsigned long size, unsigned long)
{
    e << uvt::message_argument<unsigned long>("size", size) << uvt::msgarg_text("name", name_);
}

} // namespace uvt_test
