// The process-wide registries: error definitions with the exported
// accessors of the library's own errors, and the creators of exception
// classes by type number.
//
// The error registry is a singly linked list of static records, newest first.
// The head is only ever swapped atomically (readers may run while another
// accessor registers its record), and a record's `next_` is written before the
// record becomes reachable, so a reader never sees a half-linked record.
#include <uvt/exception>
#include <uvt/impl/error_code>
#include <uvt/import>

#include <atomic>
#include <iterator>

namespace uvt {
namespace impl {

ErrorCodeImpl* ErrorCodeImpl::first_ = nullptr;

ErrorCodeImpl* ErrorCodeImpl::register_error(ErrorCodeImpl& rec) noexcept
{
    std::atomic_ref head(first_);
    rec.next_ = head.load(std::memory_order_acquire);
    while (!head.compare_exchange_weak(rec.next_, &rec, std::memory_order_release, std::memory_order_acquire)) {
    }
    return rec.next_;
}

const ErrorCodeImpl* ErrorCodeImpl::first() noexcept { return std::atomic_ref(first_).load(std::memory_order_acquire); }

} // namespace impl

const char* error_code::error_no_to_text(int n) noexcept
{
    for (const impl::ErrorCodeImpl* rec = impl::ErrorCodeImpl::first(); rec; rec = rec->next())
        if (rec->number() == n)
            return rec->message();
    return "Unknown";
}

void* error_registry::s_instance = nullptr;

// --- exception types ---

namespace {

// One creator per 16-bit type number; zero-initialised before any static
// initialiser runs, so classes may register from theirs in any order.
constinit exception_creator exception_types[1u << 16] = {};

} // namespace

void register_exception_type(unsigned short id, exception_creator c)
{
    exception_creator seen = nullptr;
    if (std::atomic_ref(exception_types[id]).compare_exchange_strong(seen, c, std::memory_order_acq_rel) || seen == c)
        return;
    uvt_extern::import::abort(__FILE__, 42, "Exception type is already registered", id);
}

exception_creator exception_by_type(unsigned short id) noexcept
{
    return std::atomic_ref(exception_types[id]).load(std::memory_order_acquire);
}

} // namespace uvt

namespace {

// A library error definition that pushes itself onto the registry when it is
// constructed. Constructed as the function-local static of its accessor, it is
// therefore built and linked exactly once, under that accessor's
// static-initialisation guard.
class self_registering_error : public uvt::impl::ErrorCodeImpl {
public:
    self_registering_error(int number, const char* message, const char* name) noexcept
        : ErrorCodeImpl(number, message, &uvt::generic_category(), name)
    {
        link(*this);
    }
};

// What the table must satisfy, checked when the library is compiled: 43
// errors; numbers ascending (so each is unique), 0 or within 1000000 to
// 1000093 and outside the ranges left to other components; every "$" that
// opens a placeholder in a template closed.
struct error_row {
    int number;
    const char* text;
};

constexpr error_row error_rows[] = {
#define UVT_ERROR(NAME, NUMBER, TEXT) {NUMBER, TEXT},
#include <uvt/impl/error_list>
#undef UVT_ERROR
};

constexpr bool isLibraryNumber(int n)
{
    const bool leftToOthers = (n >= 1000029 && n <= 1000031) || (n >= 1000038 && n <= 1000086);
    return n == 0 || (n >= 1000000 && n <= 1000093 && !leftToOthers);
}

constexpr bool placeholdersClosed(const char* text)
{
    int dollars = 0;
    for (; *text; ++text)
        dollars += *text == '$';
    return dollars % 2 == 0;
}

constexpr bool tableIsConsistent()
{
    for (std::size_t i = 0; i < std::size(error_rows); ++i) {
        const error_row& row = error_rows[i];
        if ((i > 0 && row.number <= error_rows[i - 1].number) || !isLibraryNumber(row.number) ||
            !placeholdersClosed(row.text))
            return false;
    }
    return true;
}

static_assert(std::size(error_rows) == 43, "one exported accessor per error");
static_assert(tableIsConsistent());

} // namespace

#define UVT_ERROR(NAME, NUMBER, TEXT) \
    const uvt::impl::ErrorCodeImpl& uvt__##NAME() \
    { \
        static self_registering_error def_##NAME(NUMBER, TEXT, #NAME); \
        return def_##NAME; \
    }
#include <uvt/impl/error_list>
#undef UVT_ERROR
