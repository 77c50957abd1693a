// Library-internal: the definitions that go with the declaration macros of
// uvt/stdexcept, and the small helpers the exception classes share.
#pragma once

#include <uvt/exception>
#include <uvt/import>
#include <uvt/stdexcept>

#include <cstdint>

namespace uvt::impl {

// The type tag of the serialised form: 0xFACE0000 + type number.
inline void write_type_tag(basic_ostream<char>& os, unsigned short type_number)
{
    uvt::exception::write_int(os, 0xFACE0000u + type_number);
}
// The plain type header: the type tag and the class marker 0xFACADE01.
inline void write_type_header(basic_ostream<char>& os, unsigned short type_number)
{
    write_type_tag(os, type_number);
    uvt::exception::write_int(os, 0xFACADE01u);
}

// Runs `define` (which streams message arguments into an exception). The
// argument operators do not fail for lack of memory, but should one throw
// anyway, the exception under construction cannot be thrown any more: the
// host is told through debugCrash with `what` and the error number instead.
template <class Define>
void define_or_crash(const exception& e, const char* what, Define define) noexcept
{
    try {
        define();
    } catch (...) {
        debugCrash(e.file().get(), e.line(), what, e.error_no());
    }
}

} // namespace uvt::impl

// The destructor and do_throw of a class declared with UVT_EXCEPTION_CLASS.
#define UVT_DEFINE_EXCEPTION_THROW(CLS) \
    CLS::~CLS() = default; \
    void CLS::do_throw() const { throw *this; }

// All three members of UVT_EXCEPTION_CLASS with the plain type header.
#define UVT_DEFINE_EXCEPTION_CLASS(CLS) \
    UVT_DEFINE_EXCEPTION_THROW(CLS) \
    void CLS::store_type(basic_ostream<char>& os) const { impl::write_type_header(os, type_number); }

// The forms of UVT_GENERAL_EXCEPTION_CONSTRUCTORS; BASE is the direct base
// (it has the (file, line, int, text, caller) and (file, line, ec, caller)
// forms), OWN_ERROR the accessor of the class's own error.
#define UVT_DEFINE_GENERAL_CONSTRUCTORS(CLS, BASE, OWN_ERROR) \
    CLS::CLS(const char* file, int line, int error_no, const char* text) \
        : CLS(file, line, error_no, text, __builtin_return_address(0)) \
    {} \
    CLS::CLS(const char* file, int line, int error_no, const char* text, const void* caller) \
        : BASE(file, line, error_no, text, caller) \
    {} \
    CLS::CLS(const char* file, int line, const error_code& ec) : CLS(file, line, ec, __builtin_return_address(0)) {} \
    CLS::CLS(const char* file, int line, const error_code& ec, const void* caller) : BASE(file, line, ec, caller) {} \
    CLS::CLS(const char* file, int line, const char* text) : CLS(file, line, text, __builtin_return_address(0)) {} \
    CLS::CLS(const char* file, int line, const char* text, const void* caller) \
        : BASE(file, line, OWN_ERROR().number(), text ? text : OWN_ERROR().message(), caller) \
    {}

// The forms of UVT_SHORT_EXCEPTION_CONSTRUCTORS: the class's own error.
#define UVT_DEFINE_SHORT_CONSTRUCTORS(CLS, BASE, OWN_ERROR) \
    CLS::CLS(const char* file, int line) : CLS(file, line, __builtin_return_address(0)) {} \
    CLS::CLS(const char* file, int line, const void* caller) : BASE(file, line, OWN_ERROR(), caller) {}
