// The common contract of the throwing number wrappers (stoi, stod and their
// siblings) over parsers that report like the C library: a stop position and
// errno.
#pragma once

#include <uvt/stdexcept>

#include <cerrno>
#include <cstddef>

namespace uvt::impl {

// parse(text, &stop), then: a null text throws null_pointer, a stop at the
// beginning (nothing used) invalid_argument, errno ERANGE overflow_error;
// otherwise the offset of the stop is stored through `pos` unless it is null
// and the value returned.
template <class C, class Parse>
auto parse_checked(Parse parse, const C* text, std::size_t* pos)
{
    if (!text)
        throwNullPointer(__FILE__, __LINE__);
    const C* stop;
    const auto value = parse(text, &stop);
    if (stop == text)
        throwInvalidArgument(__FILE__, __LINE__);
    if (errno == ERANGE)
        throwOverflow(__FILE__, __LINE__);
    if (pos)
        *pos = static_cast<std::size_t>(stop - text);
    return value;
}

} // namespace uvt::impl
