// Allocation failures: bad_alloc, bad_numa_alloc and the texts of the
// failure types.
#include "exception_class.h"

#include <uvt/import>
#include <uvt/ios>
#include <uvt/new>

namespace uvt {

namespace {

constexpr const char* failure_type_names[] = {
    "UNKNOWN",
    "MALFUNCTION",
    "ILLEGAL_ALLOCATION",
    "OPERATING_SYSTEM_LIMIT",
    "GLOBAL_ALLOCATION_LIMIT",
    "PROCESS_ALLOCATION_LIMIT",
    "GENERIC_LIMIT",
    "USER_LIMIT",
    "GENERIC_COMPOSITE_LIMIT",
    "STATEMENT_MEMORY_LIMIT",
    "USER_COMPOSITE_LIMIT",
    "INTERNAL_ERROR",
    "NO_COMPACTIONS_ALLOWED",
    "RECURSION_DETECTED",
    "IPMM_DEACTIVATED",
    "TIME_OUT",
    "FORBIDDEN",
};
static_assert(sizeof failure_type_names / sizeof failure_type_names[0] == FORBIDDEN + 1);

bool is_known(allocation_failure_type t) noexcept { return t <= FORBIDDEN; }

// A bad_alloc keeps its message in the out-of-memory allocator, never in the
// allocator that has just failed.
allocator& exception_allocator() noexcept { return *uvt_extern::import::get_out_of_memory_allocator(); }

} // namespace

const char* get_allocation_failure_type_string(allocation_failure_type t) noexcept
{
    return is_known(t) ? failure_type_names[t] : "<Unexpected allocation failure limit type>";
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, allocation_failure_type t)
{
    if (is_known(t))
        return os << failure_type_names[t];
    return os << "<Unexpected allocation failure type " << static_cast<long>(t) << '>';
}

// --- bad_alloc ---

bad_alloc::bad_alloc(const char* file, int line, const void* caller) : bad_alloc(file, line, "", false, caller) {}

bad_alloc::bad_alloc(const char* file, int line, bool silent)
    : bad_alloc(file, line, "", silent, __builtin_return_address(0))
{}

bad_alloc::bad_alloc(const char* file, int line, const char* reason, bool silent)
    : bad_alloc(file, line, reason, silent, __builtin_return_address(0))
{}

bad_alloc::bad_alloc(const char* file, int line, const std::bad_alloc& e)
    : bad_alloc(file, line, e.what(), false, __builtin_return_address(0))
{}

bad_alloc::bad_alloc(const char* file, int line, const char* reason, bool silent, const void* caller)
    : uvt::exception(exception_allocator(), file, line, uvt__ERR_UVT_NOMEMORY(), caller)
{
    *this << msgarg_text("REASON", reason);
    if (!silent)
        uvt_extern::import::out_of_memory_exception(*this);
}

bad_alloc::bad_alloc(const uvt::exception& base, const std::bad_alloc&) noexcept : uvt::exception(base) {}

const char* bad_alloc::what() const noexcept { return uvt::exception::what(); }

UVT_DEFINE_EXCEPTION_THROW(bad_alloc)

void bad_alloc::store_type(basic_ostream<char>& os) const
{
    impl::write_type_tag(os, type_number);
    uvt::exception::write_int(os, 0xFACADE34u);
    uvt::exception::write_int(os, failure_type_);
}

// --- bad_numa_alloc ---

UVT_DEFINE_EXCEPTION_CLASS(bad_numa_alloc)

// --- throw helpers ---

void impl::throwBadAllocation(unsigned long items)
{
    bad_alloc e(allocator::memory_file, allocator::failure_line::operator_new, __builtin_return_address(0));
    e << msgarg_text("", "trying to allocate ") << message_argument<unsigned long>("items: ", items);
    tThrow(e);
}

} // namespace uvt

void throw_uvt_bad_allocation(const char* file, int line) { uvt::tThrow(uvt::bad_alloc(file, line, false)); }
