// The malloc-based allocator: the only code of the library that calls the C
// heap.

#include <uvt/exception>
#include <uvt/impl/malloc_allocator>
#include <uvt/import>

#include <cstdlib>
#include <new>

namespace uvt_extern {

UvtMallocAllocator::UvtMallocAllocator(uvt::cstring_ptr name, uvt::allocator* parent, std::uint64_t alignment) noexcept
    : name_(std::move(name)), parent_(parent), refcount_(1), alignment_(alignment)
{}

UvtMallocAllocator::~UvtMallocAllocator() = default;

UvtMallocAllocator& UvtMallocAllocator::instance() noexcept
{
    // Built in place and never destroyed, so it serves until the very end of
    // the process and never needs the heap.
    alignas(UvtMallocAllocator) static unsigned char storage[sizeof(UvtMallocAllocator)];
    static UvtMallocAllocator* const self =
        new (storage) UvtMallocAllocator(uvt::cstring_ptr::literal("UvtMallocAllocator"), nullptr, 0);
    return *self;
}

void UvtMallocAllocator::addReference() { __atomic_add_fetch(&refcount_, 1, __ATOMIC_RELAXED); }

void UvtMallocAllocator::release()
{
    if (__atomic_load_n(&refcount_, __ATOMIC_ACQUIRE) > 1) {
        __atomic_sub_fetch(&refcount_, 1, __ATOMIC_ACQ_REL);
        return;
    }
    if (!parent_)
        return; // the process-wide instance is never destroyed
    uvt::allocator* parent = parent_;
    this->~UvtMallocAllocator();
    parent->deallocate(this);
}

std::uint64_t UvtMallocAllocator::referenceCount() const noexcept
{
    return __atomic_load_n(&refcount_, __ATOMIC_RELAXED);
}

uvt::CA_statistics UvtMallocAllocator::getStatistics() const { std::abort(); }

uvt::cstring_ptr UvtMallocAllocator::getName() const { return name_; }

uvt::allocator_handle UvtMallocAllocator::createBlockAllocator(const char* name, unsigned long blockSize,
                                                               const uvt::vela_component&)
{
    const bool power_of_two = blockSize && !(blockSize & (blockSize - 1));
    const std::uint64_t alignment = blockSize == 0 ? 4096 : power_of_two ? blockSize : 0;
    void* mem = allocate(sizeof(UvtMallocAllocator));
    return uvt::allocator_handle::adopt(new (mem) UvtMallocAllocator(uvt::cstring_ptr::literal(name), this, alignment));
}

uvt::allocator* UvtMallocAllocator::getParentAllocator() const { return parent_; }

unsigned long UvtMallocAllocator::getAlignmentSize() const { return alignment_; }

void* UvtMallocAllocator::allocateNoThrowImpl(unsigned long size, const void* caller)
{
    if (__builtin_expect(alignment_ != 0 || malfunctionCounterSet(), 0))
        return allocateSlowly(size, caller);
    return std::malloc(size);
}

__attribute__((noinline)) void* UvtMallocAllocator::allocateSlowly(unsigned long size, const void* caller)
{
    if (alignment_)
        return allocateAlignedNoThrowImpl(size, alignment_, caller);
    if (reportAllocationAndHandleFailingModeDueToMalfunctionStartCounter())
        return nullptr;
    return std::malloc(size);
}

void* UvtMallocAllocator::allocateAlignedNoThrowImpl(unsigned long size, unsigned long alignment, const void*)
{
    if (reportAllocationAndHandleFailingModeDueToMalfunctionStartCounter())
        return nullptr;
    // posix_memalign refuses alignments below the size of a pointer; those
    // are met by the pointer alignment anyway.
    if (alignment < sizeof(void*))
        alignment = sizeof(void*);
    void* p = nullptr;
    return posix_memalign(&p, alignment, size) == 0 ? p : nullptr;
}

void UvtMallocAllocator::deallocateImpl(void* p, const void*) { std::free(p); }

void UvtMallocAllocator::addBadAllocInfo(uvt::exception& e, unsigned long size, unsigned long alignment)
{
    e << uvt::message_argument<unsigned long>("size", size) << uvt::msgarg_text("name", name_.c_str())
      << uvt::msgarg_text("type", "UvtMallocAllocator");
    // The size is repeated (not the alignment) for aligned requests: consumers
    // of the arguments rely on seeing two "size" entries.
    if (alignment != 1)
        e << uvt::message_argument<unsigned long>("size", size);
}

} // namespace uvt_extern
