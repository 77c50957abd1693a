// Strings written to narrow streams, and the conversions between narrow
// (UTF-8) and wide (UTF-16 units) text.
#include <uvt/impl/unicode>
#include <uvt/ios>
#include <uvt/stdexcept>
#include <uvt/string>

namespace uvt {

namespace {

// "@HH HH@": the unit's four hexadecimal digits, upper case, split by a blank.
void append_unconverted(basic_string<char>& target, unsigned unit)
{
    static const char digits[] = "0123456789ABCDEF";
    const char shown[] = {'@', digits[(unit >> 12) & 0xF], digits[(unit >> 8) & 0xF],
                          ' ', digits[(unit >> 4) & 0xF],  digits[unit & 0xF],
                          '@'};
    target.append(shown, sizeof(shown));
}

void append_unit(basic_string<char>& target, wchar_t w)
{
    const auto unit = static_cast<unsigned short>(w);
    const unsigned short* read;
    unsigned char bytes[4];
    unsigned char* written;
    if (UC::convertFromUTF16(&unit, &unit + 1, read, bytes, bytes + sizeof(bytes), written) == UC::converted)
        target.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(written - bytes));
    else
        append_unconverted(target, unit);
}

// Adds the converted text to `target`: taken over (shared) when `target`
// is empty, so that converting into a new string copies nothing twice.
template <class C>
void take_converted(basic_string<C>& target, const basic_string<C>& converted)
{
    if (target.empty())
        target.assign(converted);
    else
        target.append(converted);
}

basic_ostream<char>& write_wide(basic_ostream<char>& os, const wchar_t* text, std::size_t n)
{
    basic_string<char> narrow(impl::StringAddAllocator::get_allocator());
    impl::append_converted(narrow, text, n);
    return os << narrow;
}

} // namespace

void impl::append_converted(basic_string<char>& target, const wchar_t* text, std::size_t n)
{
    basic_string<char> converted(target.get_allocator());
    converted.reserve(n);
    for (std::size_t i = 0; i < n; ++i)
        append_unit(converted, text[i]);
    take_converted(target, converted);
}

void impl::append_converted(basic_string<wchar_t>& target, const char* text, std::size_t n)
{
    basic_string<wchar_t> converted(target.get_allocator());
    converted.reserve(n);
    const auto* source = reinterpret_cast<const unsigned char*>(text);
    const auto* const source_end = source + n;
    unsigned short units[64];
    for (;;) {
        unsigned short* written;
        const int rc = UC::convertToUTF16(source, source_end, source, units, units + 64, written);
        for (const unsigned short* u = units; u < written; ++u)
            converted.push_back(static_cast<wchar_t>(*u));
        if (rc == UC::converted)
            break;
        if (rc != UC::target_full)
            tThrow(invalid_unicode_symbol(__FILE__, __LINE__));
    }
    take_converted(target, converted);
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, const basic_string<char>& s)
{
    return os.insert_field_(s.data(), static_cast<streamsize>(s.size()));
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, const basic_string<wchar_t>& s)
{
    return write_wide(os, s.data(), s.size());
}

basic_ostream<char>& operator<<(basic_ostream<char>& os,
                                const impl::StringAdd<char, char_traits<char>, integer_constant<64>>& sum)
{
    return os << basic_string<char>(sum, impl::StringAddAllocator::get_allocator());
}

basic_ostream<char>& operator<<(basic_ostream<char>& os,
                                const impl::StringAdd<wchar_t, char_traits<wchar_t>, integer_constant<64>>& sum)
{
    return os << basic_string<wchar_t>(sum, impl::StringAddAllocator::get_allocator());
}

basic_ostream<char>& operator<<(basic_ostream<char>& os, const basic_cstring_ptr<char>& p) { return os << p.c_str(); }

basic_ostream<char>& operator<<(basic_ostream<char>& os, const basic_cstring_ptr<wchar_t>& p)
{
    if (!p) {
        os.setstate(ios_base::badbit);
        return os;
    }
    return write_wide(os, p.c_str(), char_traits<wchar_t>::length(p.c_str()));
}

} // namespace uvt
