// The error categories, error_code and error_condition, and system_error.
#include "exception_class.h"

#include <uvt/impl/error_code>
#include <uvt/ios>
#include <uvt/string>
#include <uvt/system_error>

#include <cstring>

namespace uvt {

namespace {

// The three categories and their names: objects in static storage, built
// before any code runs (constant initialisation), so an error code may name
// them from any static initialiser. The names are read-only views of the
// literals.

constinit const string generic_name(string_retval("generic"));
constinit const string system_name(string_retval("system"));
constinit const string iostream_name(string_retval("iostream"));

// The platform's text for n, viewed where the C library keeps it.
string platform_message(int n) { return string(string_retval(std::strerror(n))); }

class GenericErrorCategory final : public error_category {
public:
    constexpr GenericErrorCategory() = default;
    const char* name() const noexcept override { return generic_name.c_str(); }
    string message(int n) const override { return platform_message(n); }
};

class SystemErrorCategory final : public error_category {
public:
    constexpr SystemErrorCategory() = default;
    const char* name() const noexcept override { return system_name.c_str(); }
    string message(int n) const override { return platform_message(n); }
};

class IostreamErrorCategory final : public error_category {
public:
    constexpr IostreamErrorCategory() = default;
    const char* name() const noexcept override { return iostream_name.c_str(); }
    string message(int n) const override
    {
        return n == static_cast<int>(io_errc::stream) ? string(string_retval("iostream stream error"))
                                                      : platform_message(n);
    }
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

string error_category::message(int) const { return string(string_retval(nullptr)); }

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

string error_condition::message() const { return category_->message(value_); }

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

system_error::system_error(const char* file, int line, const error_code& ec, const string& what)
    : runtime_error(file, line, ec.value(), what.c_str(), __builtin_return_address(0))
{}

// The number alone identifies the failure; the category adds nothing that
// `what` does not say.
system_error::system_error(const char* file, int line, int value, const error_category&, const string& what)
    : runtime_error(file, line, value, what.c_str(), __builtin_return_address(0))
{}

} // namespace uvt
