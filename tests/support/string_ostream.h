// A library output stream that collects what is written into a std::string,
// for comparing printed text in tests.
#pragma once

#include <uvt/ios>

#include <string>

namespace uvt_test {

class string_streambuf : public uvt::basic_streambuf<char> {
public:
    std::string text;

protected:
    int_type overflow(int_type c) override
    {
        if (c != traits_type::eof())
            text.push_back(traits_type::to_char_type(c));
        return c;
    }
};

class string_ostream : public uvt::basic_ostream<char> {
public:
    string_ostream() : uvt::basic_ostream<char>(&buf_) {}
    const std::string& str() const { return buf_.text; }
    void clear_text() { buf_.text.clear(); }

private:
    string_streambuf buf_;
};

} // namespace uvt_test
