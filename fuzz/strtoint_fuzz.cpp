// Parses arbitrary bytes as integer text in the base the first byte picks
// (0..37, so also the invalid ones), with strtoint for long and unsigned
// long, char and wchar_t, and checks: the stop lies within the text and after
// the last digit used, the char and wchar_t parsers agree, errno says only
// ERANGE or EINVAL and only when due, and the results match glibc's strtol and
// strtoul wherever both parsers accept the same syntax and glibc reports no
// overflow.
#include "fuzz_check.h"

#include <uvt/impl/itoa>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

struct Parsed {
    unsigned long value;
    std::size_t stop; // offset of the first character not used
    int error;
};

template <class T, class C>
Parsed parse(const std::basic_string<C>& text, int base)
{
    const C* stop = nullptr;
    errno = -1;
    const T value = uvt::strtoint<T, C>(text.c_str(), &stop, base);
    FUZZ_CHECK(stop >= text.c_str() && stop <= text.c_str() + text.size());
    return {static_cast<unsigned long>(value), static_cast<std::size_t>(stop - text.c_str()), errno};
}

unsigned digitValue(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    if (u - '0' < 10u)
        return u - '0';
    const unsigned letter = (u | 0x20u) - 'a';
    return letter < 26 ? letter + 10 : 99;
}

template <class T>
Parsed parseGlibc(const std::string& text, int base)
{
    char* stop;
    errno = 0;
    const T value =
        std::is_signed_v<T> ? T(std::strtol(text.c_str(), &stop, base)) : T(std::strtoul(text.c_str(), &stop, base));
    return {static_cast<unsigned long>(value), static_cast<std::size_t>(stop - text.c_str()), errno};
}

// glibc also skips vertical tabs and form feeds and takes "0X"; it stops
// after the "0" of a "0x" without digits where strtoint uses nothing.
bool sameSyntax(const std::string& text) { return text.find_first_of("\v\fX") == std::string::npos; }

template <class T>
void check(const std::string& text, int base)
{
    const Parsed narrow = parse<T, char>(text, base);
    std::wstring wide(text.begin(), text.end());
    for (std::size_t i = 0; i < text.size(); ++i)
        wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(text[i]));
    const Parsed widened = parse<T, wchar_t>(wide, base);
    FUZZ_CHECK(narrow.value == widened.value && narrow.stop == widened.stop && narrow.error == widened.error);

    const bool validBase = base == 0 || (base >= 2 && base <= 36);
    FUZZ_CHECK(validBase ? narrow.error == 0 || narrow.error == ERANGE : narrow.error == EINVAL && narrow.stop == 0);
    if (narrow.error == 0 && narrow.stop > 0 && base > 1) // every digit is used
        FUZZ_CHECK(digitValue(text[narrow.stop]) >= unsigned(base));
    if (!validBase || !sameSyntax(text))
        return;
    const Parsed glibc = parseGlibc<T>(text, base);
    if (narrow.error == ERANGE) { // the wrap test never raises a false alarm but at the negative limit
        FUZZ_CHECK(glibc.error == ERANGE || (std::is_signed_v<T> && long(glibc.value) == LONG_MIN));
        return;
    }
    if (glibc.error != 0)
        return;
    FUZZ_CHECK(narrow.value == glibc.value);
    const bool bareHexPrefix =
        narrow.stop == 0 && glibc.stop > 0 && text[glibc.stop - 1] == '0' && text[glibc.stop] == 'x';
    FUZZ_CHECK(narrow.stop == glibc.stop || bareHexPrefix);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const int base = data[0] % 38;
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    const std::string text(bytes, strnlen(bytes, size - 1));
    check<long>(text, base);
    check<unsigned long>(text, base);
    return 0;
}
