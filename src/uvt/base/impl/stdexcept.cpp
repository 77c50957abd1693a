// The exception classes that mirror the standard hierarchy (bad_cast,
// bad_typeid, bad_exception, the logic_error and runtime_error families) and
// their throw helpers.
#include "exception_class.h"

namespace uvt {

// --- bad_cast, bad_typeid, bad_exception ---

// Inside these classes the bare name `exception` would be ambiguous with the
// standard base's own base, hence uvt::exception throughout.
#define UVT_DEFINE_STD_MIRROR(CLS, OWN_ERROR) \
    UVT_DEFINE_EXCEPTION_CLASS(CLS) \
    CLS::CLS(const char* file, int line) : CLS(file, line, __builtin_return_address(0)) {} \
    CLS::CLS(const char* file, int line, const void* caller) : uvt::exception(file, line, OWN_ERROR(), caller) \
    { \
        *this << msgarg_text("REASON", ""); \
    } \
    CLS::CLS(const char* file, int line, const std::CLS& e) \
        : uvt::exception(file, line, OWN_ERROR(), __builtin_return_address(0)) \
    { \
        *this << msgarg_text("REASON", e.what()); \
    } \
    CLS::CLS(const uvt::exception& base, const std::CLS&) noexcept : uvt::exception(base) {} \
    const char* CLS::what() const noexcept { return uvt::exception::what(); }

UVT_DEFINE_STD_MIRROR(bad_cast, uvt__ERR_UVT_BAD_CAST)
UVT_DEFINE_STD_MIRROR(bad_typeid, uvt__ERR_UVT_BAD_TYPEID)
UVT_DEFINE_STD_MIRROR(bad_exception, uvt__ERR_UVT_BAD_EXCEPTION)

#undef UVT_DEFINE_STD_MIRROR

// --- logic_error family ---

UVT_DEFINE_EXCEPTION_CLASS(logic_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(logic_error, exception, uvt__ERR_UVT_LOGIC)

UVT_DEFINE_EXCEPTION_CLASS(domain_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(domain_error, logic_error, uvt__ERR_UVT_DOMAIN)

UVT_DEFINE_EXCEPTION_CLASS(invalid_argument)
UVT_DEFINE_GENERAL_CONSTRUCTORS(invalid_argument, logic_error, uvt__ERR_UVT_BAD_ARGUMENT)
UVT_DEFINE_SHORT_CONSTRUCTORS(invalid_argument, logic_error, uvt__ERR_UVT_BAD_ARGUMENT)

UVT_DEFINE_EXCEPTION_CLASS(length_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(length_error, logic_error, uvt__ERR_UVT_LENGTH)

UVT_DEFINE_EXCEPTION_CLASS(out_of_range)
UVT_DEFINE_GENERAL_CONSTRUCTORS(out_of_range, logic_error, uvt__ERR_UVT_OUTOFRANGE)

out_of_range::out_of_range(const char* file, int line, long idx, long beg, long end)
    : out_of_range(file, line, idx, beg, end, __builtin_return_address(0))
{}

out_of_range::out_of_range(const char* file, int line, long idx, long beg, long end, const void* caller)
    : logic_error(file, line, uvt__ERR_UVT_OUTOFRANGE(), caller)
{
    init_(idx, beg, end);
}

out_of_range::out_of_range(const char* file, int line, const std::true_type&)
    : logic_error(file, line, uvt__ERR_UVT_OUTOFRANGE(), __builtin_return_address(0))
{}

out_of_range::out_of_range(const char* file, int line, const char* text, const std::true_type&)
    : out_of_range(file, line, text, __builtin_return_address(0))
{}

void out_of_range::init_(long idx, long beg, long end) noexcept
{
    impl::define_or_crash(*this, "out of range", [&] {
        *this << message_argument<long>("IDX", idx) << message_argument<long>("BEG", beg)
              << message_argument<long>("END", end);
    });
}

// --- runtime_error family ---

UVT_DEFINE_EXCEPTION_CLASS(runtime_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(runtime_error, exception, uvt__ERR_UVT_RUNTIME)

UVT_DEFINE_EXCEPTION_CLASS(overflow_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(overflow_error, runtime_error, uvt__ERR_UVT_INT_OVERFLOW)
UVT_DEFINE_SHORT_CONSTRUCTORS(overflow_error, runtime_error, uvt__ERR_UVT_INT_OVERFLOW)

UVT_DEFINE_EXCEPTION_CLASS(range_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(range_error, runtime_error, uvt__ERR_UVT_RANGE)
UVT_DEFINE_SHORT_CONSTRUCTORS(range_error, runtime_error, uvt__ERR_UVT_RANGE)

UVT_DEFINE_EXCEPTION_CLASS(underflow_error)
UVT_DEFINE_GENERAL_CONSTRUCTORS(underflow_error, runtime_error, uvt__ERR_UVT_UNDERFLOW)

// --- throw helpers ---
// Each passes its own return address as the caller, so the exception's
// stack trace starts at the code that detected the failure.

void throwOverflow(const char* file, int line) { tThrow(overflow_error(file, line, __builtin_return_address(0))); }

void throwInvalidArgument(const char* file, int line)
{
    tThrow(invalid_argument(file, line, __builtin_return_address(0)));
}

void throwInvalidSorting(const char* file, int line)
{
    tThrow(runtime_error(file, line, uvt__ERR_UVT_INVALID_SORTING(), __builtin_return_address(0)));
}

void throwBadData(const char* file, int line, int value)
{
    runtime_error e(file, line, uvt__ERR_UVT_BAD_DATA(), __builtin_return_address(0));
    tThrow(e << message_argument<int>("BAD_DATA", value));
}

void throwOutOfRange(const char* file, int line, long idx, long beg, long end)
{
    tThrow(out_of_range(file, line, idx, beg, end, __builtin_return_address(0)));
}

void impl::throwOutOfRange(const char* file, int line, const char* text)
{
    tThrow(out_of_range(file, line, text, std::true_type{}));
}

void impl::throwOutOfRange(const char* file, int line, long idx, long beg, long end)
{
    out_of_range e(file, line, std::true_type{});
    e.init_(idx, beg, end);
    tThrow(e);
}

} // namespace uvt
