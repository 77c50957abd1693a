// ios_base (format state, user storage, callbacks), ios_base::failure and
// basic_ios.
#include <uvt/impl/memory>
#include <uvt/ios>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

namespace uvt {

namespace {

const impl::ErrorCodeImpl& stream_failure_error() { return uvt__ERR_UVT_STREAM_FAILURE(); }

// A copy of the n elements at `src` from the ios_base allocator (null for
// n = 0) into `copy`. Returns false when the copy cannot be allocated.
template <class T>
bool copy_table(const T* src, std::uint64_t n, T*& copy) noexcept
{
    if (n == 0)
        return true;
    copy = static_cast<T*>(ios_base::ios_allocator().allocateNoThrow(n * sizeof(T)));
    if (copy)
        std::memcpy(copy, src, n * sizeof(T));
    return copy != nullptr;
}

} // namespace

// ---------------------------------------------------------------- failure

ios_base::failure::failure() noexcept = default;

ios_base::failure::failure(const char* file, int line) noexcept
    : exception(file, line, stream_failure_error(), __builtin_return_address(0))
{}

ios_base::failure::failure(const char* file, int line, const char* text) noexcept
    : exception(file, line, stream_failure_error().value(), text ? text : stream_failure_error().text(),
                __builtin_return_address(0))
{}

ios_base::failure::failure(const failure& o) noexcept = default;
ios_base::failure& ios_base::failure::operator=(const failure& o) noexcept = default;
ios_base::failure::~failure() = default;

void ios_base::failure::do_throw() const { throw failure(*this); }

void ios_base::failure::store_type(basic_ostream<char>& os) const
{
    write_int(os, 0xFACE0000u + type_number);
    write_int(os, 0xFACADE01u);
}

void ios_base::throwIOSFailure(const char* file, int line, const char* message)
{
    const failure f(file, line, message);
    // The failure trace (native stack and the exception, appended to a
    // retrieval file) is written at this point, between building the
    // failure and throwing it, once file streams are available.
    tThrow(f);
}

// --------------------------------------------------------------- ios_base

allocator& ios_base::ios_allocator()
{
    static const allocator_handle ios_alloc =
        allocator::global_allocator().createSubAllocator("uvt::ios base", vela_component{0});
    return *ios_alloc;
}

ios_base::ios_base() : flags_(skipws | dec), precision_(6), width_(0), exceptions_(goodbit), state_(goodbit)
{
    // Streams in static storage are destroyed before the allocator only if
    // the allocator was created first.
    ios_allocator();
}

ios_base::~ios_base()
{
    call_callbacks(erase_event);
    free_tables_();
}

ios_base::fmtflags ios_base::flags(fmtflags f) noexcept { return std::exchange(flags_, f); }

streamsize ios_base::precision(streamsize p) noexcept { return std::exchange(precision_, p); }

streamsize ios_base::width(streamsize w) noexcept { return std::exchange(width_, w); }

void ios_base::clear(iostate s)
{
    state_ = s;
    if (state_ & exceptions_)
        throwIOSFailure(__FILE__, __LINE__, "basic_ios::clear");
}

void ios_base::exceptions(iostate mask)
{
    exceptions_ = mask;
    clear(state_);
}

int ios_base::xalloc() noexcept
{
    static std::atomic<int> next_index{0};
    return next_index.fetch_add(1, std::memory_order_relaxed);
}

long& ios_base::iword(int index) { return word_(index).iword; }

void*& ios_base::pword(int index) { return word_(index).pword; }

impl::ios_word& ios_base::word_(int index)
{
    if (index >= 0 && (static_cast<std::uint64_t>(index) < word_count_ || grow_words_(index)))
        return words_[index];
    word_scratch_ = {0, nullptr};
    setstate(badbit);
    return word_scratch_;
}

bool ios_base::grow_words_(std::uint64_t index) noexcept
{
    const std::uint64_t count = std::max<std::uint64_t>({2 * word_count_, index + 1, 8});
    auto* words = static_cast<impl::ios_word*>(ios_allocator().allocateNoThrow(count * sizeof(impl::ios_word)));
    if (!words)
        return false;
    std::fill(words, words + count, impl::ios_word{0, nullptr});
    std::copy(words_, words_ + word_count_, words);
    ios_allocator().deallocate(words_);
    words_ = words;
    word_count_ = count;
    return true;
}

void ios_base::register_callback(event_callback fn, int index)
{
    if (callback_count_ + 1 > callback_capacity_)
        grow_callbacks_();
    callback_fns_[callback_count_] = fn;
    callback_indices_[callback_count_] = index;
    ++callback_count_;
}

void ios_base::grow_callbacks_()
{
    allocator& a = ios_allocator();
    const std::uint64_t capacity = std::max(2 * callback_capacity_, callback_count_ + 1);
    auto* fns = static_cast<event_callback*>(a.allocateNoThrow(capacity * sizeof(event_callback)));
    if (!fns) {
        add_state_(badbit);
        throwIOSFailure(__FILE__, __LINE__, "ios_base::register_callback bad_alloc");
    }
    auto* indices = static_cast<std::int32_t*>(a.allocateNoThrow(capacity * sizeof(std::int32_t)));
    if (!indices) {
        add_state_(badbit);
        a.deallocate(fns);
        throwIOSFailure(__FILE__, __LINE__, "ios_base::register_callback");
    }
    std::copy(callback_fns_, callback_fns_ + callback_count_, fns);
    std::copy(callback_indices_, callback_indices_ + callback_count_, indices);
    a.deallocate(callback_fns_);
    a.deallocate(callback_indices_);
    callback_fns_ = fns;
    callback_indices_ = indices;
    callback_capacity_ = capacity;
}

void ios_base::call_callbacks(event e)
{
    for (std::uint64_t i = callback_count_; i-- > 0;)
        callback_fns_[i](e, *this, callback_indices_[i]);
}

bool ios_base::copy_format_(const ios_base& rhs)
{
    impl::ios_word* words = nullptr;
    event_callback* fns = nullptr;
    std::int32_t* indices = nullptr;
    const bool copied = copy_table(rhs.words_, rhs.word_count_, words) &&
                        copy_table(rhs.callback_fns_, rhs.callback_count_, fns) &&
                        copy_table(rhs.callback_indices_, rhs.callback_count_, indices);
    if (!copied) {
        ios_allocator().deallocate(words);
        ios_allocator().deallocate(fns);
        setstate(badbit);
        return false;
    }
    call_callbacks(erase_event);
    free_tables_();
    words_ = words;
    word_count_ = rhs.word_count_;
    callback_fns_ = fns;
    callback_indices_ = indices;
    callback_count_ = callback_capacity_ = rhs.callback_count_;
    flags_ = rhs.flags_;
    precision_ = rhs.precision_;
    width_ = rhs.width_;
    return true;
}

void ios_base::free_tables_() noexcept
{
    allocator& a = ios_allocator();
    a.deallocate(words_);
    a.deallocate(callback_fns_);
    a.deallocate(callback_indices_);
    words_ = nullptr;
    callback_fns_ = nullptr;
    callback_indices_ = nullptr;
    word_count_ = callback_count_ = callback_capacity_ = 0;
}

// --------------------------------------------------------------- basic_ios

template <class C>
void basic_ios<C>::init(basic_streambuf<C>* sb)
{
    rdbuf_ = sb;
    tie_ = nullptr;
    fill_ = C(' ');
    clear(sb ? goodbit : badbit);
}

template <class C>
basic_streambuf<C>* basic_ios<C>::rdbuf(basic_streambuf<C>* sb)
{
    basic_streambuf<C>* old = std::exchange(rdbuf_, sb);
    clear(sb ? goodbit : badbit);
    return old;
}

template <class C>
basic_ostream<C>* basic_ios<C>::tie(basic_ostream<C>* os) noexcept
{
    return std::exchange(tie_, os);
}

template <class C>
C basic_ios<C>::fill(C c) noexcept
{
    return std::exchange(fill_, c);
}

template <class C>
basic_ios<C>& basic_ios<C>::copyfmt(const basic_ios& rhs)
{
    if (this == &rhs || !copy_format_(rhs))
        return *this;
    tie_ = rhs.tie_;
    fill_ = rhs.fill_;
    call_callbacks(copyfmt_event);
    exceptions(rhs.exceptions());
    return *this;
}

template class basic_ios<char>;

} // namespace uvt
