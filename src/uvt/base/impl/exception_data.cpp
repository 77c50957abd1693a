// The shared payload of exceptions: its block, stack capture, reference
// count and the chain of appended payloads.

#include <uvt/exception>
#include <uvt/impl/memory>
#include <uvt/impl/message_list>
#include <uvt/import>

#include <cstring>
#include <new>

namespace uvt {

namespace {

// The link of a payload that is being appended (lock_chain done,
// update_pred not yet).
constexpr std::uintptr_t chain_lock = 1;
// The payload header, the first node's header and the worst alignment gap.
constexpr std::size_t header_space = sizeof(exception_data) + 15;
static_assert(header_space == 127);

[[noreturn]] void corrupted(int line, const char* text) { uvt_extern::import::abort(__FILE__, line, text); }

} // namespace

exception_data* exception_data::create(allocator& a, const char* file, int line, int error_no,
                                       const char* text) noexcept
{
    const std::size_t length = text ? std::strlen(text) : 0;
    void* block = a.allocateNoThrow(header_space + message_node::text_space(length));
    if (!block)
        return nullptr;
    const std::uintptr_t offset = (16 - reinterpret_cast<std::uintptr_t>(block) % 16) % 16;
    auto* d = reinterpret_cast<exception_data*>(static_cast<char*>(block) + offset);
    d->next = nullptr;
    d->alloc = &a;
    new (&d->link_count) impl::atomic_pair(0, 1);
    d->error_no = error_no;
    d->frame_count = 0;
    d->flags = static_cast<std::uint32_t>(offset << offset_shift) | local_stack;
    d->stack = nullptr;
    exception_node::construct(&d->first, file, line, error_no, text);
    return d;
}

void exception_data::capture_stack(const void* caller) noexcept
{
    if (caller == exception::CALLER_SUPPRESS_STACK_TRACE) {
        first.status = exception_node::stack_suppressed;
        return;
    }
    auto* frames = static_cast<void**>(alloc->allocateNoThrow(max_frames * sizeof(void*)));
    if (!frames) {
        first.status = exception_node::stack_lost;
        return;
    }
    const unsigned count = uvt_extern::import::save_stack_trace(frames, max_frames, caller);
    if (!count) {
        alloc->deallocate(frames);
        first.status = exception_node::stack_empty;
        return;
    }
    stack = frames;
    frame_count = static_cast<int>(count < max_frames ? count : max_frames);
}

void exception_data::destroy() noexcept
{
    allocator& a = *alloc;
    for (exception_node* n = &first; n;) {
        exception_node* next = n->next;
        n->release_contents(a);
        if (n != &first)
            a.deallocate(n);
        n = next;
    }
    if (stack)
        a.deallocate(stack);
    const std::uint32_t offset = (flags & offset_mask) >> offset_shift;
    a.deallocate(reinterpret_cast<char*>(this) - offset);
}

void exception_data::destroy_chain(exception_data* head) noexcept
{
    for (exception_data* d = head; d;) {
        exception_data* next = d->successor();
        const bool chain_was_last_holder = next && next->unlink_pred(d);
        d->destroy();
        d = chain_was_last_holder ? next : nullptr;
    }
}

// --- reference count and chain link ---

std::uint64_t exception_data::increment() noexcept
{
    impl::pair_value seen = link_count.load();
    while (!link_count.compare_exchange(seen, {seen.first, seen.second + 1})) {
    }
    return seen.second + 1;
}

std::uint64_t exception_data::decrement() noexcept
{
    impl::pair_value seen = link_count.load();
    do {
        if (seen.second == 0)
            corrupted(__LINE__, "Exception reference count underflow");
    } while (!link_count.compare_exchange(seen, {seen.first, seen.second - 1}));
    return seen.second - 1;
}

void exception_data::reset_count() noexcept { link_count.store({0, 1}); }

bool exception_data::lock_chain() noexcept
{
    impl::pair_value seen = link_count.load();
    do {
        if (seen.first != 0)
            return false; // appended elsewhere, or being appended right now
    } while (!link_count.compare_exchange(seen, {chain_lock, seen.second + 1}));
    return true;
}

void exception_data::update_pred(exception_data* pred) noexcept
{
    impl::pair_value seen = link_count.load();
    do {
        if (seen.first != chain_lock)
            corrupted(__LINE__, "Exception chain link not locked");
    } while (!link_count.compare_exchange(seen, {reinterpret_cast<std::uintptr_t>(pred), seen.second}));
}

bool exception_data::unlink_pred(exception_data* pred) noexcept
{
    impl::pair_value seen = link_count.load();
    do {
        if (seen.first != reinterpret_cast<std::uintptr_t>(pred) || seen.second == 0)
            corrupted(__LINE__, "Corrupted exception chain");
    } while (!link_count.compare_exchange(seen, {0, seen.second - 1}));
    return seen.second == 1;
}

// --- chain ---

exception_data* exception_data::successor() const noexcept { return __atomic_load_n(&next, __ATOMIC_ACQUIRE); }

bool exception_data::chain_contains(const exception_data* d) const noexcept
{
    for (const exception_data* p = this; p; p = p->successor()) {
        if (p == d)
            return true;
    }
    return false;
}

exception_data* exception_data::link_at_tail(exception_data* other) noexcept
{
    for (;;) {
        exception_data* tail = this;
        while (exception_data* n = tail->successor())
            tail = n;
        exception_data* expected = nullptr;
        if (__atomic_compare_exchange_n(&tail->next, &expected, other, false, __ATOMIC_SEQ_CST, __ATOMIC_ACQUIRE))
            return tail;
    }
}

exception_node* exception_data::last_node() noexcept
{
    exception_node* n = &first;
    while (n->next)
        n = n->next;
    return n;
}

} // namespace uvt
