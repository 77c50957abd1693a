// Decodes arbitrary bytes as UTF-8 into UCS-4, UTF-16 (native units and both
// byte-pair orders) and 8-bit text, each into a target large enough for
// everything and into a small one, and checks the stops and result codes,
// that the decoders agree with each other and with bytelen, and that what
// was decoded survives the trip back wherever the conversions promise it.
#include "unicode_fuzz.h"

#include <uvt/impl/unicode>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

namespace UC = uvt::UC;
using uvt_fuzz::convert;
using uvt_fuzz::Converted;
using uvt_fuzz::expectPrefixOf;

using Text = const unsigned char*;

// Code 1 leaves the stop at a sequence the source end cuts off; code 2 at a
// byte that cannot start a sequence (for the converters that take every lead
// byte).
template <class T>
void expectStopExplained(const Converted<T>& result, Text data, std::size_t size)
{
    const unsigned length = result.read < size ? UC::impl::UTF8_element_size[data[result.read]] : 0;
    if (result.rc == 1)
        FUZZ_CHECK(length > size - result.read);
    if (result.rc == 2)
        FUZZ_CHECK(length == 0);
}

Converted<unsigned int> checkUCS4(Text data, std::size_t size, std::size_t room)
{
    const auto whole = convert<unsigned int>(UC::convertToUCS4, data, size, size);
    expectStopExplained(whole, data, size);
    expectPrefixOf(convert<unsigned int>(UC::convertToUCS4, data, size, room), whole, room, 1);

    std::vector<unsigned char> bytes(6 * whole.out.size());
    const unsigned int* valuesStop;
    unsigned char* bytesStop;
    FUZZ_CHECK(UC::convertFromUCS4(whole.out.data(), whole.out.data() + whole.out.size(), valuesStop, bytes.data(),
                                   bytes.data() + bytes.size(), bytesStop) == 0);
    const auto again =
        convert<unsigned int>(UC::convertToUCS4, bytes.data(), bytesStop - bytes.data(), whole.out.size());
    FUZZ_CHECK(again.rc == 0 && again.out == whole.out);

    const unsigned char* stop;
    unsigned long characters, measured;
    FUZZ_CHECK(UC::bytelen(data, data + size, stop, characters, measured) == whole.rc);
    FUZZ_CHECK(stop == data + whole.read && measured == whole.read && characters == whole.out.size());
    return whole;
}

// UTF-16 is the UCS-4 result with values above U+FFFF written as pairs
// (above U+10FFFF as U+FFFD); the kernels write the same units as pairs of
// bytes; without surrogates the units round-trip through UTF-8.
void checkUTF16(Text data, std::size_t size, std::size_t room, const Converted<unsigned int>& ucs4)
{
    const auto whole = convert<unsigned short>(UC::convertToUTF16, data, size, 2 * size);
    FUZZ_CHECK(whole.rc == ucs4.rc && whole.read == ucs4.read);
    std::vector<unsigned short> expected;
    for (unsigned int v : ucs4.out) {
        if (v <= 0xFFFF || v > 0x10FFFF) {
            expected.push_back(static_cast<unsigned short>(v <= 0xFFFF ? v : 0xFFFD));
        } else {
            expected.push_back(static_cast<unsigned short>(((v - 0x10000) >> 10) + 0xD800));
            expected.push_back(static_cast<unsigned short>((v & 0x3FF) + 0xDC00));
        }
    }
    FUZZ_CHECK(whole.out == expected);
    const auto small = convert<unsigned short>(UC::convertToUTF16, data, size, room);
    expectPrefixOf(small, whole, room, 2);

    for (bool bigEndian : {false, true}) {
        const auto kernel = [bigEndian](Text s, Text e, Text& stop, UC::usc2_bytes* t, UC::usc2_bytes* te,
                                        UC::usc2_bytes*& tstop) {
            return UC::kernelConvertToUTF16(s, e, stop, t, te, tstop, bigEndian);
        };
        const auto pairs = convert<UC::usc2_bytes>(kernel, data, size, room);
        FUZZ_CHECK(pairs.rc == small.rc && pairs.read == small.read && pairs.out.size() == small.out.size());
        for (std::size_t i = 0; i < pairs.out.size(); ++i) {
            const auto& p = pairs.out[i];
            FUZZ_CHECK((bigEndian ? p.byte[0] << 8 | p.byte[1] : p.byte[1] << 8 | p.byte[0]) == small.out[i]);
        }
    }

    const bool hasSurrogates =
        std::any_of(whole.out.begin(), whole.out.end(), [](unsigned short u) { return u >= 0xD800 && u <= 0xDFFF; });
    if (hasSurrogates)
        return;
    const auto bytes =
        convert<unsigned char>(UC::convertFromUTF16, whole.out.data(), whole.out.size(), 3 * whole.out.size());
    FUZZ_CHECK(bytes.rc == 0);
    const auto again =
        convert<unsigned short>(UC::convertToUTF16, bytes.out.data(), bytes.out.size(), whole.out.size());
    FUZZ_CHECK(again.rc == 0 && again.out == whole.out);
}

// Without a replacement: stops exactly where the UCS-4 result leaves U+00FF
// or meets a two-byte sequence this converter rejects, and what it wrote
// comes back unchanged through UTF-8. With one: every character is written.
void checkEightBit(Text data, std::size_t size, std::size_t room, const Converted<unsigned int>& ucs4)
{
    for (char replacement : {'\0', '?'}) {
        unsigned long replaced = 0;
        const auto toEightBit = [replacement, &replaced](Text s, Text e, Text& stop, signed char* t, signed char* te,
                                                         signed char*& tstop) {
            return UC::convertToASCII(s, e, stop, t, te, tstop, replacement, replaced);
        };
        const auto whole = convert<signed char>(toEightBit, data, size, size);
        FUZZ_CHECK(whole.read <= ucs4.read);
        FUZZ_CHECK(replaced <= whole.out.size() && (replacement != 0 || replaced == 0));
        // Sequences led by 0xC4 and above are replaced whatever they decode to.
        for (std::size_t i = 0, at = 0; i < whole.out.size(); at += UC::impl::UTF8_element_size[data[at]], ++i) {
            if (data[at] > 0xC3)
                FUZZ_CHECK(whole.out[i] == replacement);
            else
                FUZZ_CHECK(static_cast<unsigned char>(whole.out[i]) == ucs4.out[i]);
        }
        expectPrefixOf(convert<signed char>(toEightBit, data, size, room), whole, room, 1);

        if (replacement != 0)
            continue;
        std::vector<unsigned char> bytes(2 * whole.out.size());
        const signed char* textStop;
        unsigned char* bytesStop;
        FUZZ_CHECK(UC::convertFromASCII(whole.out.data(), whole.out.data() + whole.out.size(), textStop, bytes.data(),
                                        bytes.data() + bytes.size(), bytesStop) == 0);
        const auto again = convert<signed char>(toEightBit, bytes.data(), bytesStop - bytes.data(), whole.out.size());
        FUZZ_CHECK(again.rc == 0 && again.out == whole.out);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::size_t room = size == 0 ? 0 : data[0] % 8;
    const auto ucs4 = checkUCS4(data, size, room);
    checkUTF16(data, size, room, ucs4);
    checkEightBit(data, size, room, ucs4);
    return 0;
}
