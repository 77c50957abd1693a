// The storage workers of the strings, the refusal of changes to read-only
// views, and the members of uvt::basic_string that are not inline.
#include <uvt/exception>
#include <uvt/new>
#include <uvt/stdexcept>
#include <uvt/string>

#include <algorithm>
#include <atomic>
#include <new>
#include <type_traits>

namespace uvt {

namespace {

// Units above this count have no block size in 64 bits.
constexpr std::size_t wide_unit_limit = 0x3FFFFFFFFFFFFFFCull;

[[noreturn]] void throw_underflow() { tThrow(underflow_error(__FILE__, __LINE__, "uvt::string integer underflow")); }

[[noreturn]] void throw_overflow() { tThrow(overflow_error(__FILE__, __LINE__, "uvt::string integer overflow")); }

} // namespace

// --- refusals and checks ---

template <class B>
template <class C>
void impl::StringRvalueException<B>::doThrow(int line, const C* text)
{
    char shown[128];
    std::size_t n = 0;
    for (; n < sizeof(shown) - 1 && text[n]; ++n) {
        const auto unit = static_cast<std::make_unsigned_t<C>>(text[n]);
        shown[n] = unit > 0xFF ? '?' : static_cast<char>(unit);
    }
    shown[n] = '\0';
    tThrow(rvalue_error(__FILE__, line, shown));
}

template <class C, class T, class N>
void string_base<C, T, N>::check_mutable_(int line) const
{
    if (is_rvalue())
        impl::StringRvalueException<bool>::doThrow<C>(line, data());
}

template <class C, class T, class N>
auto string_base<C, T, N>::checked_sum_(size_type a, size_type b) -> size_type
{
    if (static_cast<std::ptrdiff_t>(b) < 0)
        throw_underflow();
    if (b > max_size() - a)
        throw_overflow();
    return a + b;
}

template <class C, class T, class N>
void string_base<C, T, N>::position_error_(long value, long begin, long end)
{
    throwOutOfRange(__FILE__, __LINE__, value, begin, end);
}

// --- construction ---

template <class C, class T, class N>
string_base<C, T, N>::string_base(const string_base& o) noexcept
    : buffer_(o.buffer_), capacity_(o.capacity_), size_(o.size_), alloc_(o.alloc_)
{
    if (is_heap_())
        count_of_(buffer_.ref.ptr).fetch_add(1);
    repoint_empty_view_(o);
}

template <class C, class T, class N>
string_base<C, T, N>::string_base(string_base&& o) noexcept
    : buffer_(o.buffer_), capacity_(o.capacity_), size_(o.size_), alloc_(o.alloc_)
{
    if (is_heap_()) {
        o.capacity_ = inline_capacity;
        o.set_size_(0);
    }
    repoint_empty_view_(o);
}

template <class C, class T, class N>
string_base<C, T, N>::~string_base()
{
    if (is_heap_())
        release_block_(buffer_.ref.ptr, *alloc_);
}

template <class C, class T, class N>
void string_base<C, T, N>::repoint_empty_view_(const string_base& from) noexcept
{
    if (is_rvalue() && from.buffer_.ref.ptr == &from.buffer_.ref.zero)
        buffer_.ref.ptr = &buffer_.ref.zero;
}

// --- storage primitives ---

template <class C, class T, class N>
bool string_base<C, T, N>::is_shared() const noexcept
{
    return is_heap_() && shared_block_(buffer_.ref.ptr);
}

template <class C, class T, class N>
void string_base<C, T, N>::release_block_(C* chars, allocator& a) noexcept
{
    if (count_of_(chars).fetch_sub(1) == 1)
        a.deallocate(reinterpret_cast<char*>(chars) - sizeof(block_count));
}

template <class C, class T, class N>
bool string_base<C, T, N>::aliases_(const C* s) const noexcept
{
    const auto p = reinterpret_cast<std::uintptr_t>(s);
    const auto first = reinterpret_cast<std::uintptr_t>(data());
    return p >= first && p < first + size_ * sizeof(C);
}

template <class C, class T, class N>
C* string_base<C, T, N>::new_block_(size_type capacity) const
{
    if constexpr (sizeof(C) > 1) {
        if (capacity > wide_unit_limit)
            impl::throwBadAllocation(capacity);
    } else if (capacity > max_size()) {
        throw_overflow();
    }
    void* block = alloc_->allocate(sizeof(block_count) + (capacity + 1) * sizeof(C));
    new (block) block_count(1);
    return reinterpret_cast<C*>(static_cast<char*>(block) + sizeof(block_count));
}

template <class C, class T, class N>
void string_base<C, T, N>::adopt_block_(C* block, size_type capacity) noexcept
{
    if (is_heap_())
        release_block_(buffer_.ref.ptr, *alloc_);
    buffer_.ref.ptr = block;
    capacity_ = capacity;
}

template <class C, class T, class N>
void string_base<C, T, N>::become_inline_(const C* s, size_type n)
{
    C* const old_block = is_heap_() ? buffer_.ref.ptr : nullptr;
    T::move(buffer_.chars, s, n);
    capacity_ = inline_capacity;
    set_size_(n);
    if (old_block)
        release_block_(old_block, *alloc_);
}

template <class C, class T, class N>
void string_base<C, T, N>::share_(const string_base& src) noexcept
{
    count_of_(src.buffer_.ref.ptr).fetch_add(1);
    adopt_block_(src.buffer_.ref.ptr, src.capacity_);
    size_ = src.size_;
}

template <class C, class T, class N>
void string_base<C, T, N>::set_size_(size_type n) noexcept
{
    size_ = n;
    chars_()[n] = C();
}

// --- growth ---

template <class C, class T, class N>
void string_base<C, T, N>::reserve_(size_type n)
{
    const size_type need = std::max(size_, checked_sum_(0, n));
    make_room_(need, need);
}

template <class C, class T, class N>
C* string_base<C, T, N>::extend_(size_type n)
{
    const size_type new_size = checked_sum_(size_, n);
    make_room_(new_size, new_size);
    C* const gap = chars_() + size_;
    set_size_(new_size);
    return gap;
}

template <class C, class T, class N>
void string_base<C, T, N>::grow_(size_type n)
{
    const size_type need = std::max(size_, n);
    using wide = unsigned __int128;
    const bool jump = wide(2) * need > wide(3) * capacity_;
    make_room_(need, jump ? need : capacity_ + capacity_ / 2 + 1);
}

template <class C, class T, class N>
void string_base<C, T, N>::make_room_(size_type need, size_type proposal)
{
    check_mutable_(__LINE__);
    if (capacity_ < need)
        enlarge_(proposal);
    else if (!is_shared())
        return;
    else if (need <= inline_capacity)
        become_inline_(buffer_.ref.ptr, size_);
    else
        enlarge_(need);
}

template <class C, class T, class N>
void string_base<C, T, N>::enlarge_(size_type n)
{
    C* const block = new_block_(n);
    T::copy(block, data(), size_ + 1);
    adopt_block_(block, n);
}

template <class C, class T, class N>
void string_base<C, T, N>::trim_()
{
    if (!is_heap_())
        return;
    if (size_ <= inline_capacity)
        become_inline_(buffer_.ref.ptr, size_);
    else if (capacity_ > size_)
        enlarge_(size_);
}

// --- removal ---

template <class C, class T, class N>
void string_base<C, T, N>::move_(size_type pos, size_type count)
{
    check_mutable_(__LINE__);
    if (count == 0)
        return;
    const size_type new_size = size_ - count;
    const size_type tail = size_ - pos - count;
    if (!is_shared()) {
        C* const chars = chars_();
        T::move(chars + pos, chars + pos + count, tail);
        set_size_(new_size);
        return;
    }
    // A shared block stays untouched: the rest goes to private storage of
    // exactly the new length, inline when it fits.
    C* const shared = buffer_.ref.ptr;
    const bool to_inline = new_size <= inline_capacity;
    C* const target = to_inline ? buffer_.chars : new_block_(new_size);
    T::copy(target, shared, pos);
    T::copy(target + pos, shared + pos + count, tail);
    if (to_inline) {
        capacity_ = inline_capacity;
        release_block_(shared, *alloc_);
    } else {
        adopt_block_(target, new_size);
    }
    set_size_(new_size);
}

// --- assignment ---

template <class C, class T, class N>
void string_base<C, T, N>::assign_(const string_base& src)
{
    if (&src == this)
        return;
    if (src.size_ <= inline_capacity || &src.get_allocator() != &get_allocator()) {
        assign_(src.data(), src.size_);
    } else if (src.is_heap_()) {
        check_mutable_(__LINE__);
        share_(src);
    } else if (is_rvalue()) {
        // A view takes a longer view's text as it is.
        buffer_.ref.ptr = src.buffer_.ref.ptr;
        size_ = src.size_;
    } else {
        assign_(src.data(), src.size_);
    }
}

template <class C, class T, class N>
void string_base<C, T, N>::assign_(const string_base& src, size_type pos, size_type n)
{
    src.check_position_(pos);
    n = std::min(n, src.size_ - pos);
    if (pos == 0 && n == src.size_)
        assign_(src);
    else
        assign_(src.data() + pos, n);
}

template <class C, class T, class N>
void string_base<C, T, N>::assign_(const C* s, size_type n)
{
    check_mutable_(__LINE__);
    if (!s && n)
        throwNullPointer(__FILE__, __LINE__);
    checked_sum_(0, n);
    if (n <= inline_capacity) {
        become_inline_(s, n);
    } else if (is_heap_() && capacity_ >= n && !is_shared()) {
        T::move(buffer_.ref.ptr, s, n);
        set_size_(n);
    } else {
        C* const block = new_block_(n);
        T::copy(block, s, n);
        adopt_block_(block, n);
        set_size_(n);
    }
}

// --- insertion ---

template <class C, class T, class N>
C* string_base<C, T, N>::make_gap_(size_type pos, size_type len, size_type n)
{
    if (n < len) {
        // Shortening: removing the excess leaves the storage private and no
        // larger than the result; the caller overwrites the n characters.
        move_(pos + n, len - n);
        return chars_() + pos;
    }
    const size_type new_size = checked_sum_(size_ - len, n);
    grow_(new_size);
    C* const chars = chars_();
    T::move(chars + pos + n, chars + pos + len, size_ - pos - len);
    set_size_(new_size);
    return chars + pos;
}

template <class C, class T, class N>
void string_base<C, T, N>::splice_(size_type pos, size_type len, const C* s, size_type n)
{
    if (!s && n)
        throwNullPointer(__FILE__, __LINE__);
    if (n && aliases_(s))
        splice_own_(pos, len, static_cast<size_type>(s - data()), n);
    else
        T::copy(make_gap_(pos, len, n), s, n);
}

template <class C, class T, class N>
void string_base<C, T, N>::splice_own_(size_type pos, size_type len, size_type offset, size_type n)
{
    // The copy keeps the source characters alive and unchanged: sharing
    // them makes make_gap_ move this string to new storage.
    const string_base keep(*this);
    T::copy(make_gap_(pos, len, n), keep.data() + offset, n);
}

template <class C, class T, class N>
void string_base<C, T, N>::splice_(size_type pos, size_type len, size_type count, C c)
{
    T::fill(make_gap_(pos, len, count), count, c);
}

template <class C, class T, class N>
void string_base<C, T, N>::append_(const C* s, size_type n)
{
    splice_(size_, 0, s, n);
}

template <class C, class T, class N>
void string_base<C, T, N>::append_(size_type count, C c)
{
    splice_(size_, 0, count, c);
}

template <class C, class T, class N>
void string_base<C, T, N>::append_(const string_base& src, size_type pos, size_type n)
{
    src.check_position_(pos);
    append_(src.data() + pos, std::min(n, src.size_ - pos));
}

template <class C, class T, class N>
void string_base<C, T, N>::swap_(string_base& o)
{
    check_mutable_(__LINE__);
    o.check_mutable_(__LINE__);
    std::swap(buffer_, o.buffer_);
    std::swap(capacity_, o.capacity_);
    std::swap(size_, o.size_);
    std::swap(alloc_, o.alloc_);
}

// --- basic_string ---

template <class C, class T, class N>
basic_string<C, T, N>& basic_string<C, T, N>::assign(const sum_type& sum)
{
    this->check_mutable_(__LINE__);
    const basic_string result(sum, this->get_allocator());
    this->assign_(result);
    return *this;
}

template <class C, class T, class N>
basic_string<C, T, N>& basic_string<C, T, N>::append(const sum_type& sum)
{
    this->check_mutable_(__LINE__);
    if (sum.refers_to(*this))
        return append(basic_string(sum, this->get_allocator()));
    this->grow_(this->checked_sum_(this->size(), sum.size()));
    sum.concatenate(*this);
    return *this;
}

template <class C, class T, class N>
basic_string<C, T, N>& basic_string<C, T, N>::replace_(size_type pos, size_type len, const C* s, size_type n)
{
    this->check_position_(pos);
    this->splice_(pos, std::min(len, this->size() - pos), s, n);
    return *this;
}

template <class C, class T, class N>
basic_string<C, T, N>& basic_string<C, T, N>::replace(size_type pos, size_type len, size_type n, C c)
{
    this->check_position_(pos);
    this->splice_(pos, std::min(len, this->size() - pos), n, c);
    return *this;
}

template <class C, class T, class N>
auto basic_string<C, T, N>::find(const C* s, size_type pos, size_type n) const noexcept -> size_type
{
    const size_type size = this->size();
    if (pos > size || n > size - pos)
        return npos;
    if (n == 0)
        return pos;
    const C* const first = this->data();
    const C* const last = first + (size - n); // the last possible start
    for (const C* p = first + pos; p <= last; ++p) {
        p = T::find(p, static_cast<size_type>(last - p) + 1, s[0]);
        if (!p)
            break;
        if (T::compare(p + 1, s + 1, n - 1) == 0)
            return static_cast<size_type>(p - first);
    }
    return npos;
}

template <class C, class T, class N>
auto basic_string<C, T, N>::find(C c, size_type pos) const noexcept -> size_type
{
    if (pos >= this->size())
        return npos;
    const C* const p = T::find(this->data() + pos, this->size() - pos, c);
    return p ? static_cast<size_type>(p - this->data()) : npos;
}

template <class C, class T, class N>
int basic_string<C, T, N>::compare_(const C* a, size_type n, const C* b, size_type m) noexcept
{
    const int r = T::compare(a, b, std::min(n, m));
    if (r != 0)
        return r;
    return n < m ? -1 : n > m ? 1 : 0;
}

// --- the instantiations the library exports ---

template class string_base<char>;
template class string_base<wchar_t>;
template class basic_string<char>;
template class basic_string<wchar_t>;
template void impl::StringRvalueException<bool>::doThrow<char>(int, const char*);
template void impl::StringRvalueException<bool>::doThrow<wchar_t>(int, const wchar_t*);

} // namespace uvt
