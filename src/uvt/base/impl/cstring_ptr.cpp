// The counted blocks behind basic_cstring_ptr.

#include <uvt/ext/cstring_ptr>
#include <uvt/impl/memory>
#include <uvt/import>
#include <uvt/stdexcept>

#include <cstring>

namespace uvt::impl {

namespace {

struct BlockHeader {
    allocator* owner;
    std::uint64_t counter; // tag in the top 24 bits, reference count in the low 40
};

BlockHeader* header_of(const void* chars)
{
    return const_cast<BlockHeader*>(static_cast<const BlockHeader*>(chars) - 1);
}

bool tagged(std::uint64_t counter) { return (counter & ~((std::uint64_t(1) << 40) - 1)) == CStringBlock::tag; }

} // namespace

const void* CStringBlock::create(allocator& a, const void* text, std::size_t bytes)
{
    if (!text)
        throwNullPointer(__FILE__, __LINE__);
    auto* h = static_cast<BlockHeader*>(a.allocate(sizeof(BlockHeader) + bytes));
    h->owner = &a;
    h->counter = tag | 1;
    std::memcpy(h + 1, text, bytes);
    return h + 1;
}

void CStringBlock::increment(const void* chars) noexcept
{
    std::uint64_t* counter = &header_of(chars)->counter;
    std::uint64_t old = __atomic_load_n(counter, __ATOMIC_RELAXED);
    std::uint64_t next;
    do {
        next = old + 1;
        if (!tagged(next))
            uvt_extern::import::abort(__FILE__, __LINE__, "Counter value overflow \"basic_cstring_ptr::increment\"");
    } while (!__atomic_compare_exchange_n(counter, &old, next, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED));
}

void CStringBlock::decrement(const void* chars) noexcept
{
    BlockHeader* h = header_of(chars);
    const std::uint64_t left = __atomic_sub_fetch(&h->counter, 1, __ATOMIC_ACQ_REL);
    if (left == tag)
        h->owner->deallocate(h);
    else if (!tagged(left))
        uvt_extern::import::abort(__FILE__, __LINE__, "Corrupted counter value \"basic_cstring_ptr::decrement\"");
}

std::uint64_t CStringBlock::count(const void* chars) noexcept
{
    return __atomic_load_n(&header_of(chars)->counter, __ATOMIC_RELAXED) & ((std::uint64_t(1) << 40) - 1);
}

} // namespace uvt::impl
