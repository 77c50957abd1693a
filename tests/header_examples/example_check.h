// The checks that extract_example writes into a header's example program:
// a value against the one its comment states, and an expected throw. A
// failed check is reported with the header's line and makes the program
// exit with 1; so does an exception that escapes the example.
#pragma once

#include <uvt/all>

#include <iostream>
#include <string_view>
#include <type_traits>
#include <utility>

namespace uvt_example {

inline int failures = 0;

inline void report(const char* file, int line, const char* what)
{
    std::cerr << file << ':' << line << ": " << what << '\n';
    ++failures;
}

template <class T>
decltype(auto) printable(const T& value)
{
    if constexpr (requires { std::cerr << value; })
        return (value);
    else
        return "(not printable)";
}

// Strings compare by their characters (objects with c_str() included),
// integers by value whatever their types.
template <class A, class E>
void expect(const A& actual, const E& expected, const char* file, int line)
{
    bool equal;
    if constexpr (requires { actual.c_str(); })
        return expect(actual.c_str(), expected, file, line);
    else if constexpr (std::is_array_v<E>) // a string literal
        equal = std::basic_string_view<std::remove_cv_t<std::remove_extent_t<E>>>(actual) == expected;
    else if constexpr (std::is_integral_v<A> && std::is_integral_v<E> && !std::is_same_v<A, bool> &&
                       !std::is_same_v<A, char>)
        equal = std::cmp_equal(actual, expected);
    else
        equal = actual == expected;
    if (!equal) {
        report(file, line, "the example's value differs from its comment");
        std::cerr << "  value:   " << printable(actual) << "\n  comment: " << printable(expected) << '\n';
    }
}

template <class Thrown, class Statement>
void expect_throw(Statement statement, const char* file, int line)
{
    try {
        statement();
    } catch (const Thrown&) {
        return;
    }
    report(file, line, "the example does not throw what its comment says");
}

// Other exceptions escape to the terminate handler, which shows their what().
inline int run(void (*example)())
{
    try {
        example();
    } catch (const uvt::exception& e) {
        uvt::buffer_stream<1024> os;
        e.print(os);
        std::cerr << "the example threw:\n" << os.c_str();
        return 1;
    }
    return failures ? 1 : 0;
}

} // namespace uvt_example
