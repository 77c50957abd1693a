// The bytes an exception writes as the header of its serialised form, and
// the big-endian bytes of expected header words, for comparing the two.
#pragma once

#include <uvt/exception>
#include <uvt/strstream>

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace uvt_test {

inline std::vector<unsigned char> type_header(const uvt::exception& e)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    e.store_type(os);
    return {os.c_str(), os.c_str() + os.size()};
}

inline std::vector<unsigned char> words(std::initializer_list<std::uint32_t> ws)
{
    std::vector<unsigned char> bytes;
    for (std::uint32_t w : ws)
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<unsigned char>(w >> shift));
    return bytes;
}

} // namespace uvt_test
