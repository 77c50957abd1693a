// The number readers of the input streams: each reads one number from a
// stream buffer as the standard streams' num_get does, with the classic
// conventions, and returns the state bits to add (eofbit when the input
// ended while reading, failbit for malformed or out-of-range text). The
// value is always stored: 0 for malformed text, the saturated limit for
// out-of-range text. Characters that cannot continue the number stay in
// the buffer.
#pragma once

#include <uvt/ios>

namespace uvt::impl {

// An integer in the base of basefield in `flags` (0: by its prefix). T is
// one of long, long long and the unsigned integer types.
template <class C, class T>
ios_base::iostate read_integer(basic_streambuf<C>& sb, ios_base::fmtflags flags, T& v);

// "true"/"false" (the conventions' names) with boolalpha, else 0 or 1.
template <class C>
ios_base::iostate read_bool(basic_streambuf<C>& sb, const ios_base& s, bool& v);

// Decimal floating point; F is float, double or long double.
template <class C, class F>
ios_base::iostate read_floating(basic_streambuf<C>& sb, const ios_base& s, F& v);

} // namespace uvt::impl
