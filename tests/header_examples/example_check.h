// The checks that extract_example writes into a header's example program:
// a value against the one its comment states, and an expected throw. A
// failed check is reported with the header's line and makes the program
// exit with 1; so does an exception that escapes the example.
#pragma once

#include <uvt/all>

#include <cstdio>
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
void print(const T& value)
{
    if constexpr (requires { std::cerr << value; })
        std::cerr << value;
    else
        std::cerr << "(not printable)";
}

template <class A, class E>
bool equal(const A& actual, const E& expected)
{
    using Char = std::remove_cv_t<std::remove_extent_t<E>>;
    if constexpr (std::is_array_v<E>) // a string literal
        return std::basic_string_view<Char>(actual) == std::basic_string_view<Char>(expected);
    else if constexpr (std::is_integral_v<A> && std::is_integral_v<E> && !std::is_same_v<A, bool> &&
                       !std::is_same_v<A, char>)
        return std::cmp_equal(actual, expected);
    else
        return actual == expected;
}

// Strings compare by their characters (objects with c_str() included).
template <class A, class E>
void expect(const A& actual, const E& expected, const char* file, int line)
{
    if constexpr (requires { actual.c_str(); }) {
        expect(actual.c_str(), expected, file, line);
    } else if (!equal(actual, expected)) {
        report(file, line, "the example's value differs from its comment");
        std::cerr << "  value:   ";
        print(actual);
        std::cerr << "\n  comment: ";
        print(expected);
        std::cerr << '\n';
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

inline int run(void (*example)())
{
    try {
        example();
    } catch (const uvt::exception& e) {
        uvt::buffer_stream<1024> os;
        e.print(os);
        std::cerr << "the example threw:\n" << os.c_str();
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "the example threw: " << e.what() << '\n';
        return 1;
    }
    return failures ? 1 : 0;
}

} // namespace uvt_example
