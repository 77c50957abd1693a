// The defaults of the allocator interface, its fault-injection counter and
// the process-wide allocator accessors.

#include "uvt/base/impl/host_answer.h"

#include <uvt/exception>
#include <uvt/ext/cstring_ptr>
#include <uvt/impl/malloc_allocator>
#include <uvt/impl/memory>
#include <uvt/import>
#include <uvt/new>

#include <cerrno>
#include <cstring>

namespace uvt {

void refcounted::addReferences(unsigned long n)
{
    while (n--)
        addReference();
}

namespace {

allocator_handle self_reference(allocator& a)
{
    a.addReference();
    return allocator_handle::adopt(&a);
}

// The allocator a host answers with, or the malloc allocator.
allocator& host_or_default(allocator* (uvt_extern::UvtImport::*slot)())
{
    uvt_extern::UvtImport* host = uvt_extern::get_import();
    allocator* a = host ? (host->*slot)() : nullptr;
    return a ? *a : uvt_extern::UvtMallocAllocator::instance();
}

} // namespace

allocator_handle allocator::createSubAllocator(const char*, const vela_component&) { return self_reference(*this); }

allocator_handle allocator::createInfrastructureSubAllocator(const char* name, const vela_component& c)
{
    return createSubAllocator(name, c);
}

allocator_handle allocator::createNUMASubAllocator(const char*, int, const vela_component&)
{
    return self_reference(*this);
}

void allocator::dumpStatistics(basic_ostream<char>&, const char*) const {}

cstring_ptr allocator::getName() const { return cstring_ptr::literal("<unnamed>"); }

unsigned long allocator::getRefCount() const { return 1; }

allocator_handle allocator::createCompositeAllocator(const char*, allocator&) { return self_reference(*this); }

allocator& allocator::smallSizeAllocator() { return *this; }

allocator_handle allocator::createBlockAllocator(const char*, unsigned long, const vela_component&)
{
    tThrow(bad_alloc(memory_file, failure_line::create_block_allocator, true));
}

allocator_handle allocator::createExecAllocator(const char*, const vela_component&)
{
    tThrow(bad_alloc(memory_file, failure_line::create_exec_allocator, true));
}

allocator_handle allocator::createTempAllocator(const char* name, bool, bool)
{
    return createSubAllocator(name, vela_component{0});
}

allocator* allocator::getParentAllocator() const { return nullptr; }
allocator* allocator::getSecondParentAllocator() const { return nullptr; }
unsigned long allocator::getBlockSize(void*) const { return 0; }
bool allocator::isBlockAllocator() const { return false; }
bool allocator::isCompositeAllocator() const { return false; }
void allocator::assertEmpty(bool) {}
void allocator::checkIntegrity() const {}
unsigned long allocator::getAlignmentSize() const { return 8; }

void allocator::getAndResetLastAllocationFailureType(allocation_failure_type& type, bool& flag, bool)
{
    type = UNKNOWN;
    flag = false;
}

void allocator::throwBadAlloc(unsigned long size, unsigned long alignment, const char* file, int line,
                              const void* caller)
{
    allocation_failure_type type = UNKNOWN;
    bool flag = false;
    getAndResetLastAllocationFailureType(type, flag, true);
    bad_alloc e(file, line, caller);
    e.set_allocation_failure_type(type);
    addBadAllocInfo(e, size, alignment);
    tThrow(e);
}

void* allocator::reallocImpl(void* p, unsigned long size, const void* caller)
{
    if (size == 0) {
        deallocateImpl(p, caller);
        return nullptr;
    }
    if (!p)
        return allocateNoThrowImpl(size, caller);
    const unsigned long old = getBlockSize(p);
    if (old == 0)
        return nullptr;
    // Shrinking keeps the block unless it would waste more than half of it.
    if (size <= old && (size > old / 2 || old <= 16))
        return p;
    void* q = allocateNoThrowImpl(size, caller);
    if (!q)
        return nullptr;
    std::memcpy(q, p, size < old ? size : old);
    deallocateImpl(p, caller);
    return q;
}

bool allocator::isTempAllocator() const { return false; }
bool allocator::mayProvokeMalfunctionsInAllocationInterface() const { return true; }
bool allocator::changeCallerForAllocatedBlock(const void*) { return false; }
bool allocator::takeOwnershipOfAllocatedBlock(const void*) { return false; }
bool allocator::forbidOrAllowDeallocationOfBlock(const void*, bool) { return false; }
bool allocator::changeParentFromCompositeAllocator(allocator&) { return false; }

void* allocator::allocateViaReservationsNoThrow(unsigned long size, const void*)
{
    notifyOOM(size, false);
    errno = ENOMEM;
    return nullptr;
}

void* allocator::allocateAlignedViaReservationsNoThrow(unsigned long size, unsigned long, const void*)
{
    notifyOOM(size, false);
    errno = ENOMEM;
    return nullptr;
}

void allocator::notifyOOMMalf(unsigned long size, bool) const { notifyOOM(size, false); }
void allocator::notifyOOM(unsigned long, bool) const {}

void allocator::setMalfunctionStartCounter(unsigned int n)
{
    __atomic_store_n(&malfunction_counter_, n, __ATOMIC_RELAXED);
}

bool allocator::countDownMalfunction()
{
    unsigned int n = __atomic_load_n(&malfunction_counter_, __ATOMIC_RELAXED);
    for (;;) {
        if (n == 0)
            return false;
        if (n == 1) {
            errno = ENOMEM;
            return true;
        }
        if (__atomic_compare_exchange_n(&malfunction_counter_, &n, n - 1, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED))
            return false;
    }
}

void allocator::throwBadAllocProvokedByMalFunction(unsigned long size, unsigned long alignment, int line,
                                                   const void* caller)
{
    throwBadAlloc(size, alignment, memory_file, line, caller);
    // Overriders are [[noreturn]] too, but the compiler cannot see through
    // the virtual call.
    __builtin_unreachable();
}

allocator* allocator::getNonTempParentAllocator()
{
    allocator* a = this;
    while (a && a->isTempAllocator())
        a = a->getParentAllocator();
    return a;
}

namespace {

// The answer of one host slot, asked once and cached (see host_answer.h).
// While the host is being asked, a call from inside its getter gets the
// malloc allocator.
template <allocator* (uvt_extern::UvtImport::*Slot)()>
allocator& cached_allocator()
{
    static impl::host_answer<allocator*> answer;
    return *answer.get([] { return &host_or_default(Slot); }, &uvt_extern::UvtMallocAllocator::instance());
}

using host = uvt_extern::UvtImport;

} // namespace

allocator& get_emergency_allocator() { return cached_allocator<&host::get_emergency_allocator>(); }
allocator& allocator::internal_global_allocator() { return cached_allocator<&host::get_global_allocator>(); }
allocator& allocator::composite_allocator() { return cached_allocator<&host::get_composite_allocator>(); }
allocator& allocator::allocate_only_allocator() { return cached_allocator<&host::get_allocate_only_allocator>(); }
allocator& allocator::null_allocator() { return cached_allocator<&host::get_null_allocator>(); }
allocator& allocator::adaptor_allocator() { return cached_allocator<&host::get_adaptor_allocator>(); }
// The allocator of exceptions built without one (host slot 5).
allocator& exception::default_allocator() { return cached_allocator<&host::get_exception_allocator>(); }

} // namespace uvt

uvt::allocator* uvt_extern::import::get_out_of_memory_allocator()
{
    return &uvt::cached_allocator<&uvt_extern::UvtImport::get_out_of_memory_allocator>();
}
