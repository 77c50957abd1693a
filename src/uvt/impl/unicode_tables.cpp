// The UTF-8 tables shared by the converters of uvt/impl/unicode.
#include <uvt/impl/unicode>

namespace uvt::UC::impl {

// clang-format off
constexpr unsigned char UTF8_element_size[256] = {
    // 0x00-0x7F: single bytes
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 0x80-0xBF: continuation bytes, never a lead
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
    // 0xC0-0xDF: two bytes
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,
    // 0xE0-0xEF: three bytes; 0xF0-0xF7: four; 0xF8-0xFB: five; 0xFC-0xFF: six
    3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3,
    4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 6, 6, 6, 6,
};
// clang-format on

constexpr unsigned int UTF8_offsets[7] = {
    0x00000000, 0x00000000, 0x00003080, 0x000E2080, 0x03C82080, 0xFA082080, 0x82082080,
};

constexpr unsigned char UTF8_leading_byte_mark[7] = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

namespace {

// The tables against the rules they encode: the sequence length of every
// lead byte; the lead-byte mark of a length-n sequence (its top n bits set,
// none for the lengths 0 and 1);
// and the offset that a decoder, shifting each byte in six bits at a time,
// subtracts to undo the mark and the 0x80 of every continuation byte.
constexpr bool tablesFollowTheirRules()
{
    for (unsigned lead = 0; lead < 256; ++lead) {
        const unsigned length = lead < 0x80   ? 1
                                : lead < 0xC0 ? 0
                                : lead < 0xE0 ? 2
                                : lead < 0xF0 ? 3
                                : lead < 0xF8 ? 4
                                : lead < 0xFC ? 5
                                              : 6;
        if (UTF8_element_size[lead] != length)
            return false;
    }
    for (unsigned length = 0; length <= 6; ++length) {
        const unsigned mark = length < 2 ? 0 : 0xFF00u >> length & 0xFF;
        unsigned offset = mark;
        for (unsigned byte = 1; byte < length; ++byte)
            offset = (offset << 6) + 0x80;
        if (UTF8_leading_byte_mark[length] != mark || UTF8_offsets[length] != offset)
            return false;
    }
    return true;
}
static_assert(tablesFollowTheirRules());

} // namespace

} // namespace uvt::UC::impl
