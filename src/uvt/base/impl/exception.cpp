// uvt::exception: construction, sharing of the payload, adding messages,
// arguments and appended exceptions, the readers, and the registration of
// exceptions in flight on the current thread. The fixed positions reported
// from here (aborts, the not-registered report) name this unit.

#include <uvt/exception>
#include <uvt/impl/message_list>
#include <uvt/import>
#include <uvt/ios>
#include <uvt/stdexcept>

#include <atomic>
#include <cstring>

namespace uvt {

namespace {
// The lines reported with this unit's file name for its fixed failures.
// Hosts see and match on them, so they are part of the observable
// behaviour and do not follow the lines of this file.
constexpr int returning_throw_line = 262;
constexpr int infinite_recursion_line = 821;
constexpr int not_registered_line = 867;
} // namespace

const void* const exception::CALLER_SUPPRESS_STACK_TRACE = reinterpret_cast<const void*>(~std::uintptr_t(0));

error_message::error_message(const char* f, int l, int n, const char* t) noexcept
    : file(f), line(l), error_no(n), text(t)
{}

// --- creators ---

exception::exception() noexcept = default;

exception::exception(const char* file, int line, int error_no, const char* text, const void* caller) noexcept
{
    init_(default_allocator(), file, line, error_no, text, caller);
}

exception::exception(const char* file, int line, const error_code& ec) noexcept
{
    init_(default_allocator(), file, line, ec.value(), ec.text(), __builtin_return_address(0));
}

exception::exception(const char* file, int line, const error_code& ec, const void* caller) noexcept
{
    init_(default_allocator(), file, line, ec.value(), ec.text(), caller);
}

exception::exception(allocator& a, const char* file, int line, const error_code& ec, const void* caller) noexcept
{
    init_(a, file, line, ec.value(), ec.text(), caller);
}

exception::exception(volatile exception_data* d) noexcept
{
    exception_data* p = const_cast<exception_data*>(d);
    if (!p)
        return;
    p->increment();
    data_ = d;
    current_ = p->last_node();
    file_ = p->first.file;
    line_ = p->first.line;
    error_no_ = p->first.error_no;
}

exception::exception(const exception& o) noexcept { share_(o); }

exception& exception::operator=(const exception& o) noexcept
{
    if (this != &o) {
        release_();
        share_(o);
    }
    return *this;
}

exception::~exception()
{
    unregister_on_thread();
    current_ = nullptr;
    release_();
}

void exception::init_(allocator& a, const char* file, int line, int error_no, const char* text,
                      const void* caller) noexcept
{
    file_ = uvt_extern::import::stdFileName(file);
    line_ = line;
    error_no_ = error_no;
    exception_data* d = exception_data::create(a, file_, line, error_no, text);
    data_ = d;
    current_ = nullptr;
    if (!d)
        return;
    d->capture_stack(caller);
    current_ = &d->first;
}

void exception::share_(const exception& o) noexcept
{
    if (exception_data* d = o.payload_())
        d->increment();
    data_ = o.data_;
    current_ = o.current_;
    file_ = o.file_;
    line_ = o.line_;
    error_no_ = o.error_no_;
    printer_ = o.printer_;
}

void exception::release_() noexcept
{
    exception_data* d = payload_();
    if (!d || d->decrement() != 0) {
        data_ = nullptr;
        return;
    }
    if (!d->is_processed()) {
        // The host may look at (and even keep a copy of) the exception.
        d->reset_count();
        uvt_extern::import::forgotten_exception(*this);
        if (d->decrement() != 0) {
            data_ = nullptr;
            return;
        }
    }
    data_ = nullptr;
    exception_data::destroy_chain(d);
}

// --- manipulators ---

void exception::append_message(const char* file, int line, int error_no, const char* text) noexcept
{
    exception_data* d = payload_();
    if (!d)
        return;
    d->clear_processed();
    if (!current_ || current_->lost_information())
        return;
    void* block = d->alloc->allocateNoThrow(exception_node::block_size(text));
    if (!block) {
        current_->status = exception_node::message_lost;
        return;
    }
    exception_node* n = exception_node::construct(block, uvt_extern::import::stdFileName(file), line, error_no, text);
    // Inserted behind the current node: copies of this exception may have
    // appended behind it already.
    n->next = current_->next;
    current_->next = n;
    current_ = n;
}

void exception::define_argument(const char* name, const char* value, bool replace) noexcept
{
    exception_data* d = payload_();
    if (!d)
        return;
    d->clear_processed();
    if (!name || !current_ || current_->lost_information() || !current_->has_message)
        return;
    const std::size_t length = value ? std::strlen(value) : 0;
    void* block = d->alloc->allocateNoThrow(msg_parameter::block_size(length));
    if (!block) {
        current_->status = exception_node::parameter_lost;
        return;
    }
    current_->message.add(msg_parameter::construct(block, name, value, length, replace));
}

void exception::append_exp(const exception& other) noexcept
{
    if (&other == this)
        return;
    other.unregister_on_thread();
    exception_data* d = payload_();
    exception_data* o = other.payload_();
    if (!d || !o || d == o)
        return;
    // Appending a chain that holds this payload would close a cycle; a
    // payload that is already appended elsewhere is refused by lock_chain.
    if (o->chain_contains(d) || !o->lock_chain())
        return;
    o->update_pred(d->link_at_tail(o));
    d->clear_processed();
    std::atomic_thread_fence(std::memory_order_release);
}

exception& operator<<(exception& e, const error_message& m)
{
    e.append_message(m.file, m.line, m.error_no, m.text);
    return e;
}

// --- accessors ---

const exception_node* exception::first_node_() const noexcept
{
    exception_data* d = payload_();
    return d ? &d->first : nullptr;
}

int exception::error_no() const noexcept
{
    const exception_node* n = first_node_();
    return n ? n->error_no : error_no_;
}

int exception::line() const noexcept
{
    const exception_node* n = first_node_();
    return n ? n->line : line_;
}

faultprot_cstring exception::file() const noexcept
{
    const exception_node* n = first_node_();
    return faultprot_cstring(n ? n->file : file_);
}

const char* exception::get_msgarg_by_name(const char* name) const noexcept
{
    if (!name || !*name)
        return "";
    const std::size_t length = std::strlen(name);
    for (const exception_data* d = payload_(); d; d = d->successor()) {
        if (!d->first.has_message)
            continue;
        if (const msg_parameter* p = d->first.message.find(name, length))
            return p->value();
    }
    return "";
}

bool exception::operator==(const exception& o) const noexcept { return data_ && data_ == o.data_; }

const exception_node* exception::begin() const noexcept
{
    mark_processed();
    return first_node_();
}

exception exception::get_next() const noexcept
{
    mark_processed();
    exception_data* d = payload_();
    return exception(d ? d->successor() : nullptr);
}

bool exception::is_processed() const noexcept
{
    exception_data* d = payload_();
    return d && d->is_processed();
}

void exception::mark_processed() const noexcept
{
    if (exception_data* d = payload_())
        d->set_processed();
}

void exception::dump() const
{
    uvt_extern::import::caught_exception(*this);
    mark_processed();
}

int exception::stack_trace(void*** frames) const noexcept
{
    exception_data* d = payload_();
    const bool captured = d && d->has_local_stack() && d->frame_count > 0;
    if (frames)
        *frames = captured ? static_cast<void**>(d->stack) : nullptr;
    return captured ? d->frame_count : 0;
}

// --- throwing and serialising ---

void exception::do_throw() const { throw *this; }

void exception::write_int(basic_ostream<char>& os, std::uint32_t v)
{
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                           static_cast<char>(v)};
    os.write(bytes, 4);
}

void exception::store_type(basic_ostream<char>& os) const
{
    write_int(os, 0xFACE0000u);
    write_int(os, 0xFACADE01u);
}

void impl::throw_check_base::throw_returned()
{
    uvt_extern::import::abort(__FILE__, returning_throw_line, "Throwing an exception returned, aborting");
}

// --- registration on the current thread ---
//
// The registration word is 1 while the exception is not registered, 0 when
// it is the last of the thread's list and otherwise the next exception of
// the list. The list head is kept by the host's unhandled callback; the
// library's built-in callback keeps no list, so with it registration only
// marks the object.

namespace {

constexpr std::uintptr_t not_registered = 1;
constexpr std::uintptr_t registered_last = 0;

// Set while a thread reports an exception missing from its list, so that a
// host whose list is broken cannot make the report recurse.
thread_local bool reporting_unregistered = false;

bool keeps_list(uvt_extern::UnhandledCallback* cb)
{
    return cb != static_cast<uvt_extern::UnhandledCallback*>(&uvt_extern::UvtCrashHandlers::instance());
}

const exception* list_head(uvt_extern::UnhandledCallback* cb)
{
    const exception* head = cb->get_registered_exception();
    return head == uvt_extern::UnhandledCallback::no_registered_exception() ? nullptr : head;
}

} // namespace

bool exception::register_on_thread_() const
{
    if (registration_ != not_registered)
        return false;
    uvt_extern::UnhandledCallback* cb = uvt_extern::import::get_unhandled_callback();
    const exception* head = list_head(cb);
    if (head == this)
        uvt_extern::import::abort(__FILE__, infinite_recursion_line, "Infinite recursion on exc");
    registration_ = head ? reinterpret_cast<std::uintptr_t>(head) : registered_last;
    cb->register_exception(*this);
    return true;
}

void exception::register_on_thread() const
{
    if (register_on_thread_())
        uvt_extern::import::get_unhandled_callback()->add_recent_exception(*this);
}

uvt_extern::UnhandledCallback* exception::unregister_on_thread_() const
{
    if (registration_ == not_registered)
        return nullptr;
    uvt_extern::UnhandledCallback* cb = uvt_extern::import::get_unhandled_callback();
    if (!keeps_list(cb)) {
        registration_ = not_registered;
        return nullptr;
    }
    const exception* head = list_head(cb);
    if (head == this) {
        if (const exception* next = get_next_registered())
            cb->register_exception(*next);
        else
            cb->unregister_exception(*this);
        registration_ = not_registered;
        return nullptr;
    }
    for (const exception* e = head; e; e = e->get_next_registered()) {
        if (e->registration_ == reinterpret_cast<std::uintptr_t>(this)) {
            e->registration_ = registration_;
            registration_ = not_registered;
            return nullptr;
        }
    }
    if (reporting_unregistered) {
        registration_ = not_registered;
        return nullptr;
    }
    return report_not_registered_();
}

uvt_extern::UnhandledCallback* exception::report_not_registered_() const
{
    reporting_unregistered = true;
    {
        // The host learns of the problem through the registration of this
        // report; it is not reported a second time as forgotten.
        logic_error report(__FILE__, not_registered_line, uvt__ERR_UVT_NOT_REGISTERED());
        report.register_on_thread();
        report.mark_processed();
    }
    reporting_unregistered = false;
    return uvt_extern::import::get_unhandled_callback();
}

void exception::unregister_on_thread() const
{
    if (uvt_extern::UnhandledCallback* cb = unregister_on_thread_())
        cb->unhandled_exception(*this);
    registration_ = not_registered;
}

const exception* exception::get_first_registered()
{
    uvt_extern::UnhandledCallback* cb = uvt_extern::import::get_unhandled_callback();
    return keeps_list(cb) ? list_head(cb) : nullptr;
}

const exception* exception::get_next_registered() const
{
    if (registration_ == not_registered || registration_ == registered_last)
        return nullptr;
    return reinterpret_cast<const exception*>(registration_);
}

// --- faultprot_cstring ---

std::size_t faultprot_cstring::len() const noexcept { return s_ ? std::strlen(s_) : 0; }

void faultprot_cstring::ncpy(char* buffer, std::size_t size) const noexcept
{
    if (!size)
        return;
    const std::size_t n = s_ ? strnlen(s_, size - 1) : 0;
    std::memcpy(buffer, s_ ? s_ : "", n);
    buffer[n] = '\0';
}

void faultprot_cstring::print(basic_ostream<char>& os) const
{
    if (s_)
        os.write(s_, static_cast<streamsize>(len()));
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, const faultprot_cstring& s)
{
    s.print(os);
    return os;
}

} // namespace uvt
