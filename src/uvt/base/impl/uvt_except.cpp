// The library-specific exception classes (null pointers, iterators, strings,
// regular expressions, enums, time values, GUIDs, smart pointers and function
// objects) and their throw helpers.
#include "exception_class.h"

namespace uvt {

// --- runtime_error derivatives ---

UVT_DEFINE_EXCEPTION_CLASS(null_pointer)
UVT_DEFINE_GENERAL_CONSTRUCTORS(null_pointer, runtime_error, uvt__ERR_UVT_NULL_POINTER)
UVT_DEFINE_SHORT_CONSTRUCTORS(null_pointer, runtime_error, uvt__ERR_UVT_NULL_POINTER)

UVT_DEFINE_EXCEPTION_CLASS(invalid_unicode_symbol)
invalid_unicode_symbol::invalid_unicode_symbol(const char* file, int line)
    : runtime_error(file, line, uvt__ERR_UVT_INVALID_SYMBOL(), __builtin_return_address(0))
{}

UVT_DEFINE_EXCEPTION_THROW(regex_error)

void regex_error::store_type(basic_ostream<char>& os) const
{
    impl::write_type_tag(os, type_number);
    exception::write_int(os, static_cast<std::uint32_t>(code_));
    exception::write_int(os, 0xFACADE01u);
}

regex_error::regex_error(const char* file, int line, regex_constants::error_type code, const char* text)
    : runtime_error(file, line, uvt__ERR_UVT_REGEXP(), __builtin_return_address(0)), code_(code)
{
    *this << message_argument<int>("ERR_NO", code) << msgarg_text("ERR_MSG", error_message(code));
    if (text && *text)
        *this << msgarg_text("", text);
}

const char* regex_error::error_message(int code) noexcept
{
    static const char* const texts[] = {
        "regex_error(error_collate): The expression contained an invalid collating element name.",
        "regex_error(error_ctype): The expression contained an invalid character class name.",
        "regex_error(error_escape): The expression contained an invalid escaped character, or a trailing escape.",
        "regex_error(error_backref): The expression contained an invalid back reference.",
        "regex_error(error_brack): The expression contained mismatched [ and ].",
        "regex_error(error_paren): The expression contained mismatched ( and ).",
        "regex_error(error_brace): The expression contained mismatched { and }.",
        "regex_error(error_badbrace): The expression contained an invalid range in a { expression }.",
        "regex_error(error_range): The expression contained an invalid character range, such as [b-a] in most "
        "encodings.",
        "regex_error(error_space): There was insufficient memory to convert the expression into a finite state "
        "machine.",
        "regex_error(error_badrepeat): One of *?+{ was not preceded by a valid regular expression.",
        "regex_error(error_complexity): The complexity of an attempted match against a regular expression "
        "exceeded a pre-set level.",
        "regex_error(error_stack): There was insufficient memory to determine whether the regular expression "
        "could match the specified character sequence.",
        "regex_error(error_parse)",
        "regex_error(error_syntax)",
    };
    constexpr int count = sizeof texts / sizeof texts[0];
    return code >= 0 && code < count ? texts[code] : "regex_error";
}

void regex_error::doThrow(const char* file, int line, regex_constants::error_type code, const char* text)
{
    tThrow(regex_error(file, line, code, text));
}

void regex_error::doThrowUserInterrupt(const char* file, int line)
{
    doThrow(file, line, regex_constants::error_user_interrupt, "Matching interrupted by the user");
}

UVT_DEFINE_EXCEPTION_CLASS(time_overflow_error)
time_overflow_error::time_overflow_error(const char* file, int line, const char* text, long value)
    : overflow_error(file, line, uvt__ERR_UVT_TIME_OVERFLOW(), __builtin_return_address(0))
{
    *this << msgarg_text("MSG", text) << message_argument<long>("VAL", value);
}

UVT_DEFINE_EXCEPTION_CLASS(time_conversion_error)
time_conversion_error::time_conversion_error(const char* file, int line, const char* text, long value)
    : runtime_error(file, line, uvt__ERR_UVT_TIME_CONVERSION().number(), "Time conversion \"$MSG$\": $VAL$",
                    __builtin_return_address(0))
{
    *this << msgarg_text("MSG", text) << message_argument<long>("VAL", value);
}

time_conversion_error::time_conversion_error(const char* file, int line, unsigned sec, unsigned min, unsigned hrs,
                                             unsigned day, unsigned mnt, unsigned yrs)
    : runtime_error(file, line, uvt__ERR_UVT_TIME_CONVERSION(), __builtin_return_address(0))
{
    *this << message_argument<unsigned>("SEC", sec) << message_argument<unsigned>("MIN", min)
          << message_argument<unsigned>("HRS", hrs) << message_argument<unsigned>("DAY", day)
          << message_argument<unsigned>("MNT", mnt) << message_argument<unsigned>("YRS", yrs);
}

UVT_DEFINE_EXCEPTION_CLASS(invalid_guid_symbol)
invalid_guid_symbol::invalid_guid_symbol(int line, unsigned char symbol)
    : runtime_error("uvt/base/impl/guid", line, uvt__ERR_UVT_INVALID_SYMBOL().number(),
                    "Unexpected GUID symbol: $SYMB$", __builtin_return_address(0))
{
    const bool printable = symbol > ' ' && symbol < 0x7F;
    if (printable) {
        const char text[2] = {static_cast<char>(symbol), '\0'};
        *this << msgarg_text("SYMB", text);
    } else {
        *this << message_argument<unsigned char>("SYMB", symbol, true);
    }
}

// --- logic_error derivatives ---

UVT_DEFINE_EXCEPTION_CLASS(wrong_enum_type)
wrong_enum_type::wrong_enum_type(const char* file, int line, int value, const char* description)
    : logic_error(file, line, uvt__ERR_UVT_INVALID_TYPE(), __builtin_return_address(0))
{
    *this << message_argument<int>("TYP", value) << msgarg_text("DESRC", description);
}

// --- direct uvt::exception derivatives ---

UVT_DEFINE_EXCEPTION_CLASS(invalid_iterator_error)
invalid_iterator_error::invalid_iterator_error(const char* file, int line)
    : exception(file, line, uvt__ERR_UVT_ITER_INVALID(), __builtin_return_address(0))
{}

UVT_DEFINE_EXCEPTION_CLASS(rvalue_error)
rvalue_error::rvalue_error(const char* file, int line, const char* text)
    : exception(file, line, uvt__ERR_UVT_RVALUE_CAST(), __builtin_return_address(0))
{
    impl::define_or_crash(*this, "rvalue assignment", [&] { *this << msgarg_text("STR", text); });
}

UVT_DEFINE_EXCEPTION_CLASS(incomparable_iterators)
incomparable_iterators::incomparable_iterators(const char* file, int line, const char* container)
    : exception(file, line, uvt__ERR_UVT_ITER_MISMATCH(), __builtin_return_address(0))
{
    impl::define_or_crash(*this, "incomparable iterators", [&] { *this << msgarg_text("CLS", container); });
}

UVT_DEFINE_EXCEPTION_CLASS(bad_weak_ptr)
bad_weak_ptr::bad_weak_ptr(const char* file, int line)
    : exception(file, line, uvt__ERR_UVT_BAD_WEAK_PTR(), __builtin_return_address(0))
{}

UVT_DEFINE_EXCEPTION_CLASS(bad_function_call)
bad_function_call::bad_function_call(const char* file, int line)
    : exception(file, line, uvt__ERR_UVT_BAD_CALL(), __builtin_return_address(0))
{}

// --- throw helpers ---

void throwNullPointer(const char* file, int line) { tThrow(null_pointer(file, line, __builtin_return_address(0))); }

} // namespace uvt

void throw_uvt_bad_weak_ptr(const char* file, int line) { uvt::tThrow(uvt::bad_weak_ptr(file, line)); }

void throw_uvt_bad_function_call(const char* file, int line) { uvt::tThrow(uvt::bad_function_call(file, line)); }
