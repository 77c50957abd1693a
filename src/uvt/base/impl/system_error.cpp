// The error categories, error_code and error_condition, and system_error.
#include "exception_class.h"

#include <uvt/impl/error_code>
#include <uvt/ios>
#include <uvt/system_error>

namespace uvt {

namespace {

// The three categories: single objects in static storage, built before any
// code runs (constant initialisation), so an error code may name them from
// any static initialiser.

class GenericErrorCategory final : public error_category {
public:
    constexpr GenericErrorCategory() = default;
    const char* name() const noexcept override { return "generic"; }
};

class SystemErrorCategory final : public error_category {
public:
    constexpr SystemErrorCategory() = default;
    const char* name() const noexcept override { return "system"; }
};

class IostreamErrorCategory final : public error_category {
public:
    constexpr IostreamErrorCategory() = default;
    const char* name() const noexcept override { return "iostream"; }
};

constinit GenericErrorCategory generic_instance;
constinit SystemErrorCategory system_instance;
constinit IostreamErrorCategory iostream_instance;

} // namespace

const error_category& generic_category() noexcept { return generic_instance; }
const error_category& system_category() noexcept { return system_instance; }
const error_category& iostream_category() noexcept { return iostream_instance; }

// --- error_category ---

error_category::~error_category() = default;

error_condition error_category::default_error_condition(int code) const noexcept
{
    return error_condition(code, *this);
}

bool error_category::equivalent(int code, const error_condition& cond) const noexcept
{
    return default_error_condition(code) == cond;
}

bool error_category::equivalent(const error_code& ec, int cond) const noexcept
{
    return &ec.category() == this && ec.value() == cond;
}

// --- error_code, error_condition ---

error_code::error_code() noexcept : error_code(0, uvt__ERR_UVT_NO_ERROR().message(), &generic_category()) {}

error_condition error_code::default_error_condition() const noexcept
{
    return category_->default_error_condition(value_);
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, const error_code& ec)
{
    if (ec.text())
        os << ec.text();
    else
        os.setstate(ios_base::badbit);
    os << ':';
    const auto base = os.flags() & ios_base::basefield;
    if (base == ios_base::oct || base == ios_base::hex)
        os << static_cast<unsigned>(ec.value());
    else
        os << ec.value();
    return os;
}

error_condition::error_condition() noexcept : value_(0), category_(&generic_category()) {}

error_code make_error_code(errc e) noexcept { return error_code(static_cast<int>(e), generic_category()); }
error_code make_error_code(io_errc e) noexcept { return error_code(static_cast<int>(e), iostream_category()); }

error_condition make_error_condition(errc e) noexcept
{
    return error_condition(static_cast<int>(e), generic_category());
}

error_condition make_error_condition(io_errc e) noexcept
{
    return error_condition(static_cast<int>(e), iostream_category());
}

// --- system_error ---

UVT_DEFINE_EXCEPTION_CLASS(system_error)

system_error::system_error(const char* file, int line, int value, const error_category& category)
    : runtime_error(file, line, error_code(value, category), __builtin_return_address(0))
{}

} // namespace uvt
