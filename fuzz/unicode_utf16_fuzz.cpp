// Encodes arbitrary input as UTF-8: read as UTF-16 (native units and both
// byte-pair orders), as UCS-4 and as 8-bit text, each into a target large
// enough for everything and into a small one. Checks the stops and result
// codes, that the UTF-8 written decodes to the code points the input holds
// (surrogate pairs by this library's rule, unpaired surrogates as
// themselves), and the trips back to UTF-16, UCS-4 and 8-bit text.
#include "unicode_fuzz.h"

#include <uvt/impl/unicode>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

namespace UC = uvt::UC;
using uvt_fuzz::convert;
using uvt_fuzz::Converted;
using uvt_fuzz::expectPrefixOf;

// The most UTF-8 bytes one character needs, by source unit.
constexpr std::size_t kLongestFromUTF16 = 4, kLongestFromUCS4 = 6, kLongestFromEightBit = 2;

bool isHigh(unsigned u) { return u >= 0xD800 && u <= 0xDBFF; }
bool isLow(unsigned u) { return u >= 0xDC00 && u <= 0xDFFF; }

// The code points the units stand for; a high surrogate as the last unit is
// left out (the converter stops in front of it).
std::vector<unsigned int> codePointsOf(const std::vector<unsigned short>& units)
{
    std::vector<unsigned int> points;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (isHigh(units[i]) && i + 1 == units.size())
            break;
        if (isHigh(units[i]) && isLow(units[i + 1])) {
            points.push_back((units[i] - 0xD800u) * 1024 + units[i + 1] + 0x2401);
            ++i;
        } else {
            points.push_back(units[i]);
        }
    }
    return points;
}

std::vector<unsigned int> decodeAll(const std::vector<unsigned char>& bytes, std::size_t count)
{
    const auto decoded = convert<unsigned int>(UC::convertToUCS4, bytes.data(), bytes.size(), count);
    FUZZ_CHECK(decoded.rc == 0);
    return decoded.out;
}

void checkUTF16(const std::uint8_t* data, std::size_t size, std::size_t room)
{
    std::vector<unsigned short> units(size / 2);
    if (!units.empty())
        std::memcpy(units.data(), data, units.size() * 2);
    const auto whole = convert<unsigned char>(UC::convertFromUTF16, units.data(), units.size(), 3 * units.size());
    const bool endsInHigh = !units.empty() && isHigh(units.back());
    FUZZ_CHECK(whole.rc == (endsInHigh ? 1 : 0) && whole.read == units.size() - endsInHigh);
    const auto points = codePointsOf(units);
    FUZZ_CHECK(decodeAll(whole.out, points.size()) == points);
    const auto small = convert<unsigned char>(UC::convertFromUTF16, units.data(), units.size(), room);
    expectPrefixOf(small, whole, room, kLongestFromUTF16);

    // The same bytes as pairs: in the processor's (little-endian) order they
    // are these units; in the other order they are the units byte-swapped.
    const auto* pairs = reinterpret_cast<const UC::usc2_bytes*>(data);
    std::vector<unsigned short> swapped(units);
    for (auto& u : swapped)
        u = static_cast<unsigned short>(u << 8 | u >> 8);
    for (bool bigEndian : {false, true}) {
        const auto kernel = [bigEndian](const UC::usc2_bytes* s, const UC::usc2_bytes* e, const UC::usc2_bytes*& stop,
                                        unsigned char* t, unsigned char* te, unsigned char*& tstop) {
            return UC::kernelConvertFromUTF16(s, e, stop, bigEndian, t, te, tstop);
        };
        const auto& same = bigEndian ? swapped : units;
        FUZZ_CHECK(convert<unsigned char>(kernel, pairs, units.size(), room) ==
                   convert<unsigned char>(UC::convertFromUTF16, same.data(), same.size(), room));
    }

    // Back to UTF-16: textbook pairs, U+FFFD above U+10FFFF.
    std::vector<unsigned short> expected;
    for (unsigned int cp : points) {
        if (cp <= 0xFFFF || cp > 0x10FFFF) {
            expected.push_back(static_cast<unsigned short>(cp <= 0xFFFF ? cp : 0xFFFD));
        } else {
            expected.push_back(static_cast<unsigned short>(((cp - 0x10000) >> 10) + 0xD800));
            expected.push_back(static_cast<unsigned short>((cp & 0x3FF) + 0xDC00));
        }
    }
    const auto back = convert<unsigned short>(UC::convertToUTF16, whole.out.data(), whole.out.size(), units.size());
    FUZZ_CHECK(back.rc == 0 && back.out == expected);
}

void checkUCS4(const std::uint8_t* data, std::size_t size, std::size_t room)
{
    std::vector<unsigned int> values(size / 4);
    if (!values.empty())
        std::memcpy(values.data(), data, values.size() * 4);
    const auto whole = convert<unsigned char>(UC::convertFromUCS4, values.data(), values.size(), 6 * values.size());
    FUZZ_CHECK(whole.rc == 0);
    auto expected = values;
    for (auto& v : expected)
        v = v > 0x7FFFFFFF ? 0xFFFD : v;
    FUZZ_CHECK(decodeAll(whole.out, values.size()) == expected);
    expectPrefixOf(convert<unsigned char>(UC::convertFromUCS4, values.data(), values.size(), room), whole, room,
                   kLongestFromUCS4);
}

void checkEightBit(const std::uint8_t* data, std::size_t size, std::size_t room)
{
    const auto* text = reinterpret_cast<const signed char*>(data);
    const auto whole = convert<unsigned char>(UC::convertFromASCII, text, size, 2 * size);
    FUZZ_CHECK(whole.rc == 0);
    const auto points = decodeAll(whole.out, size);
    FUZZ_CHECK(std::equal(points.begin(), points.end(), data, data + size));
    expectPrefixOf(convert<unsigned char>(UC::convertFromASCII, text, size, room), whole, room, kLongestFromEightBit);

    unsigned long replaced = 1;
    std::vector<signed char> back(size);
    const unsigned char* bytesStop;
    signed char* backStop;
    FUZZ_CHECK(UC::convertToASCII(whole.out.data(), whole.out.data() + whole.out.size(), bytesStop, back.data(),
                                  back.data() + size, backStop, 0, replaced) == 0);
    FUZZ_CHECK(replaced == 0 && std::equal(back.begin(), back.end(), text));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::size_t room = size == 0 ? 0 : data[size - 1] % 16;
    checkUTF16(data, size, room);
    checkUCS4(data, size, room);
    checkEightBit(data, size, room);
    return 0;
}
