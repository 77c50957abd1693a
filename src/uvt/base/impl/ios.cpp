// ios_base (format state, user storage, callbacks), ios_base::failure with
// its failure trace, basic_ios and the numeric conventions.
#include "exception_class.h"
#include "stream_guard.h"
#include "uvt/impl/checksum/crc32.h"

#include <uvt/fstream>
#include <uvt/impl/memory>
#include <uvt/import>
#include <uvt/ios>
#include <uvt/stdexcept>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <typeinfo>
#include <utility>

#include <execinfo.h>

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

// ------------------------------------------------------- failure trace
//
// A stream failure may leave a trace for later retrieval: the native stack
// and the exception, appended to $KRD_RETRIEVAL_PATH/trace/ios_failure.txt.
// The trace is best effort and never changes the failure being thrown. One
// thread writes at a time; a thread that finds the writer busy writes
// nothing rather than wait. Each stack is written once per process: its
// first frames pick one of a fixed set of slots, and a slot once used stays
// used (stacks that share a slot are deliberately suppressed as well).

// A retrieval directory is used when its length plus 24 (room for
// "/trace/ios_failure.txt" and the terminating zero) stays within 511.
constexpr std::size_t trace_path_capacity = 512;
constexpr std::size_t trace_path_extra = 24;
constexpr int trace_max_frames = 256;
constexpr int trace_hashed_frames = 10;
constexpr std::uint32_t trace_slot_count = 1543;

std::atomic<int> trace_writers{0};
// Written only by the thread that holds trace_writers.
bool trace_slot_used[trace_slot_count];

// Holds the process-wide writer count for one attempt to write a trace.
class trace_writer_guard {
public:
    trace_writer_guard() noexcept : only_writer_(trace_writers.fetch_add(1, std::memory_order_acquire) == 0) {}
    ~trace_writer_guard() { trace_writers.fetch_sub(1, std::memory_order_release); }
    trace_writer_guard(const trace_writer_guard&) = delete;
    trace_writer_guard& operator=(const trace_writer_guard&) = delete;
    explicit operator bool() const noexcept { return only_writer_; }

private:
    bool only_writer_;
};

// The trace file's path in `path`, or false when the retrieval directory
// is not set or too long.
bool trace_file_path(char (&path)[trace_path_capacity]) noexcept
{
    const char* directory = std::getenv("KRD_RETRIEVAL_PATH");
    if (!directory)
        return false;
    const std::size_t length = std::strlen(directory);
    if (length + trace_path_extra > trace_path_capacity - 1)
        return false;
    std::memcpy(path, directory, length);
    std::memcpy(path + length, "/trace/ios_failure.txt", sizeof "/trace/ios_failure.txt");
    return true;
}

// Writes the symbolised stack unless a stack with the same slot was
// written before; false when nothing more is to be written.
bool write_stack_once(basic_ofstream<char>& os)
{
    // One frame more than the limit tells a deeper stack from one that
    // just fits.
    void* frames[trace_max_frames + 1];
    const int count = ::backtrace(frames, trace_max_frames + 1);
    if (count > trace_max_frames) {
        if (os.good())
            os << "Stack generation failure\n";
        return true;
    }
    std::uint64_t addresses[trace_hashed_frames];
    const int hashed = std::min(count, trace_hashed_frames);
    std::memcpy(addresses, frames, hashed * sizeof(void*));
    const std::uint32_t crc = crc32_u64(0xFFFFFFFFu, addresses, addresses + hashed);
    bool& used = trace_slot_used[crc % trace_slot_count];
    if (used)
        return false;
    ::backtrace_symbols_fd(frames, count, os.rdbuf()->fd());
    used = true;
    return true;
}

void write_failure_trace(const ios_base::failure& f) noexcept
{
    if (!uvt_extern::import::create_trace_file())
        return;
    const trace_writer_guard writer;
    char path[trace_path_capacity];
    if (!writer || !trace_file_path(path))
        return;
    try {
        basic_ofstream<char> os(path, ios_base::app, ios_base::goodbit, ios_base::ios_allocator());
        if (write_stack_once(os) && !os.fail())
            os << "IOS exception:\n" << f << '\n';
        os.close();
    } catch (...) {
        impl::absorb_current_exception();
    }
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

void ios_base::failure::store_type(basic_ostream<char>& os) const { impl::write_type_header(os, type_number); }

auto_ptr<exception> ios_base::failure::creator(basic_istream<char>& is, allocator& a)
{
    return impl::plain_creator<failure>(is, a);
}

UVT_DEFINE_EXCEPTION_REGISTRATION(ios_base::failure)

void ios_base::throwIOSFailure(const char* file, int line, const char* message)
{
    const failure f(file, line, message);
    write_failure_trace(f);
    tThrow(f);
}

void ios_base::throwNullFacetPointer(const char* file, int line)
{
    struct null_facet : std::bad_cast {
        const char* what() const noexcept override { return "null facet pointer"; }
    };
    tThrow(bad_cast(file, line, null_facet()));
}

// -------------------------------------------------- numeric conventions

template <class C>
const impl::numeric_conventions<C>& impl::conventions_of(const ios_base&) noexcept
{
    static constexpr C truename[] = {C('t'), C('r'), C('u'), C('e'), C()};
    static constexpr C falsename[] = {C('f'), C('a'), C('l'), C('s'), C('e'), C()};
    static constexpr numeric_conventions<C> classic{C('.'), truename, falsename, 4, 5};
    return classic;
}

template const impl::numeric_conventions<char>& impl::conventions_of(const ios_base&) noexcept;
template const impl::numeric_conventions<wchar_t>& impl::conventions_of(const ios_base&) noexcept;

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

void ios_base::init() noexcept
{
    flags_ = skipws | dec;
    precision_ = 6;
    width_ = 0;
    exceptions_ = goodbit;
    state_ = goodbit;
}

void ios_base::move(ios_base& rhs) noexcept
{
    call_callbacks(erase_event);
    free_tables_();
    swap_(rhs);
    rhs.init();
}

void ios_base::swap_(ios_base& rhs) noexcept
{
    std::swap(flags_, rhs.flags_);
    std::swap(precision_, rhs.precision_);
    std::swap(width_, rhs.width_);
    std::swap(exceptions_, rhs.exceptions_);
    std::swap(state_, rhs.state_);
    std::swap(words_, rhs.words_);
    std::swap(word_count_, rhs.word_count_);
    std::swap(callback_fns_, rhs.callback_fns_);
    std::swap(callback_indices_, rhs.callback_indices_);
    std::swap(callback_count_, rhs.callback_count_);
    std::swap(callback_capacity_, rhs.callback_capacity_);
    std::swap(locale_, rhs.locale_);
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
    ios_base::init();
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

template <class C>
void basic_ios<C>::move(basic_ios& rhs) noexcept
{
    ios_base::move(rhs);
    tie_ = std::exchange(rhs.tie_, nullptr);
    fill_ = rhs.fill_;
}

template <class C>
void basic_ios<C>::swap(basic_ios& rhs) noexcept
{
    swap_(rhs);
    std::swap(tie_, rhs.tie_);
    std::swap(fill_, rhs.fill_);
}

template class basic_ios<char>;
template class basic_ios<wchar_t>;

} // namespace uvt
