// Critical exception scopes: detecting a new exception registered while
// another one is in flight.

#include <uvt/exception>
#include <uvt/exception_scope>
#include <uvt/impl/error_code>
#include <uvt/import>

#include <exception>

namespace uvt {

namespace {

// The line reported with this unit's file name for a forced unhandled
// exception report. Hosts see and match on it, so it is part of the
// observable behaviour and does not follow the lines of this file.
constexpr int forced_report_line = 51;

// The newest registered exception as a state word; 1 when there is none.
std::uintptr_t registered_state()
{
    const exception* head = exception::get_first_registered();
    return head ? reinterpret_cast<std::uintptr_t>(head) : 1;
}

} // namespace

bool uncaught_exception() noexcept { return std::uncaught_exceptions() > 0; }

void uncaught_exception_check(bool force)
{
    if (!force && !uncaught_exception())
        return;
    if (const exception* registered = exception::get_first_registered()) {
        uvt_extern::import::unhandled_exception(*registered);
        return;
    }
    if (force) {
        exception report(__FILE__, forced_report_line, uvt__ERR_UVT_UNHANDLED_EXC());
        uvt_extern::import::unhandled_exception(report);
        report.mark_processed();
    }
}

void impl::exception_scope_helper<true>::save_state() noexcept
{
    state_ = uncaught_exception() ? registered_state() : 0;
}

bool impl::exception_scope_helper<true>::is_new_exception_pending() const noexcept
{
    return uncaught_exception() && registered_state() != state_;
}

void impl::exception_scope_helper<true>::check_state()
{
    if (is_new_exception_pending())
        uncaught_exception_check(true);
}

} // namespace uvt
