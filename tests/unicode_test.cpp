// UTF converters: decoding and encoding tables for the edge cases and the
// deliberate leniencies, stops at every target size, the surrogate-pair rule,
// the 8-bit converters, the byte-pair kernels beside the unit converters and
// bytelen. Every conversion runs with its source and its target each ending
// right at an inaccessible page, so a read or write past either end crashes
// the test. Random text and round trips are left to the fuzz targets.

#include <uvt/impl/unicode>

#include "support/guarded_memory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <utility>
#include <vector>

namespace {

namespace UC = uvt::UC;
using Bytes = std::vector<unsigned char>;
using Units = std::vector<unsigned short>;
using Ucs4 = std::vector<unsigned int>;
using Chars = std::vector<signed char>;

using uvt_test::guarded;

template <class T>
struct Outcome {
    int rc;
    std::size_t read;
    std::vector<T> written;
    bool operator==(const Outcome&) const = default;
};

template <class T>
void PrintTo(const Outcome<T>& o, std::ostream* os)
{
    *os << "rc " << o.rc << ", read " << o.read << ", written " << testing::PrintToString(o.written);
}

// Runs `convert` (source, end, stop, target, end, stop) over `in` into a
// target of `room` units.
template <class T, class S, class Convert>
Outcome<T> run(Convert convert, const std::vector<S>& in, std::size_t room)
{
    const guarded<S> source(in.data(), in.size());
    const guarded<T> target(room);
    const S* sourceStop = nullptr;
    T* targetStop = nullptr;
    const int rc = convert(source.begin(), source.end(), sourceStop, target.begin(), target.end(), targetStop);
    return {rc, static_cast<std::size_t>(sourceStop - source.begin()), std::vector<T>(target.begin(), targetStop)};
}

// Byte pairs in the order the kernels' flag selects, and back.
std::vector<UC::usc2_bytes> pairsOf(const Units& units, bool bigEndian)
{
    std::vector<UC::usc2_bytes> pairs;
    for (unsigned short u : units) {
        const auto hi = static_cast<unsigned char>(u >> 8), lo = static_cast<unsigned char>(u);
        pairs.push_back(bigEndian ? UC::usc2_bytes{{hi, lo}} : UC::usc2_bytes{{lo, hi}});
    }
    return pairs;
}

Units unitsOf(const std::vector<UC::usc2_bytes>& pairs, bool bigEndian)
{
    Units units;
    for (const auto& p : pairs)
        units.push_back(
            static_cast<unsigned short>(bigEndian ? p.byte[0] << 8 | p.byte[1] : p.byte[1] << 8 | p.byte[0]));
    return units;
}

// Reference encoders for valid code points (UTF-16 by the textbook rule).
Bytes utf8(unsigned int cp)
{
    if (cp < 0x80)
        return {static_cast<unsigned char>(cp)};
    const unsigned int limits[] = {0x800, 0x10000, 0x200000, 0x4000000, 0x80000000};
    std::size_t length = 2;
    while (cp >= limits[length - 2])
        ++length;
    Bytes out(length);
    for (std::size_t i = length - 1; i > 0; --i, cp >>= 6)
        out[i] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    out[0] = static_cast<unsigned char>(cp | (0xFF00 >> length));
    return out;
}

Units utf16(unsigned int cp)
{
    if (cp < 0x10000)
        return {static_cast<unsigned short>(cp)};
    cp -= 0x10000;
    return {static_cast<unsigned short>(0xD800 + (cp >> 10)), static_cast<unsigned short>(0xDC00 + (cp & 0x3FF))};
}

// The kernels and convertToASCII with their extra arguments bound, in the
// six-argument shape of the other converters.
auto kernelFrom(bool bigEndian)
{
    return [bigEndian](auto s, auto e, auto& stop, auto t, auto te, auto& tstop) {
        return UC::kernelConvertFromUTF16(s, e, stop, bigEndian, t, te, tstop);
    };
}

auto kernelTo(bool bigEndian)
{
    return [bigEndian](auto s, auto e, auto& stop, auto t, auto te, auto& tstop) {
        return UC::kernelConvertToUTF16(s, e, stop, t, te, tstop, bigEndian);
    };
}

auto toEightBit(char replacement, unsigned long& replaced)
{
    return [replacement, &replaced](auto s, auto e, auto& stop, auto t, auto te, auto& tstop) {
        return UC::convertToASCII(s, e, stop, t, te, tstop, replacement, replaced);
    };
}

struct DecodeCase {
    const char* what;
    Bytes in;
    int rc;
    std::size_t read;
    Ucs4 ucs4;
    Units utf16;
};

const DecodeCase kDecodeCases[] = {
    {"empty", {}, 0, 0, {}, {}},
    {"one of each length 1-4",
     {0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80},
     0,
     10,
     {0x41, 0xE9, 0x20AC, 0x1F600},
     {0x41, 0xE9, 0x20AC, 0xD83D, 0xDE00}},
    {"first and last supplementary",
     {0xF0, 0x90, 0x80, 0x80, 0xF4, 0x8F, 0xBF, 0xBF},
     0,
     8,
     {0x10000, 0x10FFFF},
     {0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
    {"above U+10FFFF", {0xF4, 0x90, 0x80, 0x80}, 0, 4, {0x110000}, {0xFFFD}},
    {"overlong forms accepted", {0xC0, 0x80, 0xC1, 0xBF, 0xE0, 0x80, 0x80}, 0, 7, {0, 0x7F, 0}, {0, 0x7F, 0}},
    {"continuation bytes unchecked", {0xC3, 0x41}, 0, 2, {0x81}, {0x81}},
    {"encoded surrogate kept", {0xED, 0xA0, 0x80}, 0, 3, {0xD800}, {0xD800}},
    {"five bytes", {0xF8, 0x88, 0x80, 0x80, 0x80}, 0, 5, {0x200000}, {0xFFFD}},
    {"largest six bytes", {0xFD, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}, 0, 6, {0x7FFFFFFF}, {0xFFFD}},
    {"negative six bytes",
     {0xFE, 0x80, 0x80, 0x80, 0x80, 0x80, 0xFF, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF},
     0,
     12,
     {0xFFFD, 0xFFFD},
     {0xFFFD, 0xFFFD}},
    {"negative two bytes", {0xC0, 0x00}, 0, 2, {0xFFFD}, {0xFFFD}},
    {"continuation byte as lead", {0x80}, 2, 0, {}, {}},
    {"illegal after text", {0x41, 0xBF, 0x42}, 2, 1, {0x41}, {0x41}},
    {"cut off after text", {0x41, 0x42, 0xE2, 0x82}, 1, 2, {0x41, 0x42}, {0x41, 0x42}},
};

// Converts `text`, each character given as its source units by source(cp)
// and its expected output by output(cp), into targets of every size up to
// the whole output: each run must stop with code 3 right before the first
// character that does not fit.
template <class Convert, class Source, class Output>
void expectStopsAtEveryTargetSize(Convert convert, const Ucs4& text, Source source, Output output)
{
    decltype(source(0)) in;
    decltype(output(0)) all;
    for (unsigned int cp : text) {
        const auto units = source(cp), out = output(cp);
        in.insert(in.end(), units.begin(), units.end());
        all.insert(all.end(), out.begin(), out.end());
    }
    for (std::size_t room = 0; room <= all.size(); ++room) {
        std::size_t read = 0, written = 0;
        for (unsigned int cp : text) {
            if (written + output(cp).size() > room)
                break;
            read += source(cp).size();
            written += output(cp).size();
        }
        using T = typename decltype(all)::value_type;
        EXPECT_EQ(run<T>(convert, in, room),
                  (Outcome<T>{read == in.size() ? 0 : 3, read, std::vector<T>(all.begin(), all.begin() + written)}))
            << "room " << room;
    }
}

struct EncodeCase {
    const char* what;
    Units in;
    int rc;
    std::size_t read;
    Bytes out;
};

const EncodeCase kUTF16Cases[] = {
    {"empty", {}, 0, 0, {}},
    {"one to three bytes", {0x41, 0xE9, 0x20AC}, 0, 3, {0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC}},
    {"pair decodes one higher", {0xD800, 0xDC00}, 0, 2, {0xF0, 0x90, 0x80, 0x81}},
    {"last pair passes U+10FFFF", {0xDBFF, 0xDFFF}, 0, 2, {0xF4, 0x90, 0x80, 0x80}},
    {"lone high then text", {0xD800, 0x41}, 0, 2, {0xED, 0xA0, 0x80, 0x41}},
    {"lone low", {0xDC00}, 0, 1, {0xED, 0xB0, 0x80}},
    {"high before a pair", {0xD800, 0xD800, 0xDC00}, 0, 3, {0xED, 0xA0, 0x80, 0xF0, 0x90, 0x80, 0x81}},
    {"high as last unit", {0x41, 0xD800}, 1, 1, {0x41}},
};

// A text converted with a replacement character (0: refuse), the outcome and
// the number of characters replaced.
struct EightBitCase {
    const char* what;
    Bytes in;
    char with;
    int rc;
    std::size_t read;
    Chars out;
    unsigned long replaced;
};

const EightBitCase kEightBitCases[] = {
    {"latin-1 pair", {0xC3, 0xA9}, 0, 0, 2, {-0x17}, 0},
    {"euro replaced", {0xE2, 0x82, 0xAC}, '?', 0, 3, {'?'}, 1},
    {"euro refused", {0x61, 0xE2, 0x82, 0xAC}, 0, 2, 1, {'a'}, 0},
    {"refused even when cut off", {0xE2, 0x82}, 0, 2, 0, {}, 0},
    {"replaced sequence cut off", {0xE2, 0x82}, '?', 1, 0, {}, 0},
    {"pair cut off", {0x41, 0xC3}, '?', 1, 1, {'A'}, 0},
    {"mixed",
     {0x61, 0xE2, 0x82, 0xAC, 0x62, 0xF0, 0x9F, 0x98, 0x80, 0xC3, 0xA9},
     '?',
     0,
     11,
     {'a', '?', 'b', '?', -0x17},
     2},
    {"six bytes replaced unchecked", {0xFC, 0x00, 0x00, 0x00, 0x00, 0x00}, '#', 0, 6, {'#'}, 1},
    {"lead C0 illegal", {0xC0, 0x80}, '?', 2, 0, {}, 0},
    {"lead C0 illegal at the end", {0xC0}, '?', 2, 0, {}, 0},
    {"second byte checked", {0xC2, 0x41}, '?', 2, 0, {}, 0},
    {"second byte not a lead", {0xC3, 0xC3, 0xA9}, '?', 2, 0, {}, 0},
    {"overlong C1 accepted", {0xC1, 0x81}, 0, 0, 2, {0x41}, 0},
    {"continuation as lead", {0x80}, '?', 2, 0, {}, 0},
};

TEST(UnicodeConverters, DecodingEncodingStopsWhenTheTargetIsFullEightBitsAndBytelen)
{
    for (const auto& c : kDecodeCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(run<unsigned int>(UC::convertToUCS4, c.in, 16), (Outcome<unsigned int>{c.rc, c.read, c.ucs4}));
        EXPECT_EQ(run<unsigned short>(UC::convertToUTF16, c.in, 16), (Outcome<unsigned short>{c.rc, c.read, c.utf16}));
        for (bool bigEndian : {false, true}) {
            const auto k = run<UC::usc2_bytes>(kernelTo(bigEndian), c.in, 16);
            EXPECT_EQ((Outcome<unsigned short>{k.rc, k.read, unitsOf(k.written, bigEndian)}),
                      (Outcome<unsigned short>{c.rc, c.read, c.utf16}))
                << bigEndian;
        }
    }

    // A sequence cut short stops before it with code 1; a byte 0x80-0xBF where a
    // sequence should start is illegal (code 2).
    const Bytes longest = {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80};
    for (std::size_t length = 2; length <= 6; ++length) {
        Bytes sequence(longest.begin(), longest.begin() + length);
        sequence[0] = UC::impl::UTF8_leading_byte_mark[length];
        for (std::size_t cut = 1; cut < length; ++cut) {
            SCOPED_TRACE(testing::Message() << length << " bytes cut to " << cut);
            Bytes in = {0x41};
            in.insert(in.end(), sequence.begin(), sequence.begin() + cut);
            EXPECT_EQ(run<unsigned int>(UC::convertToUCS4, in, 4), (Outcome<unsigned int>{1, 1, {0x41}}));
            EXPECT_EQ(run<unsigned short>(UC::convertToUTF16, in, 4).rc, 1);
        }
    }
    for (unsigned b = 0x80; b < 0xC0; ++b)
        EXPECT_EQ(run<unsigned int>(UC::convertToUCS4, Bytes{static_cast<unsigned char>(b)}, 4),
                  (Outcome<unsigned int>{2, 0, {}}))
            << b;

    // Encoding UTF-16 (through both kernel orders) and UCS-4.
    for (const auto& c : kUTF16Cases) {
        SCOPED_TRACE(c.what);
        const Outcome<unsigned char> expected{c.rc, c.read, c.out};
        EXPECT_EQ(run<unsigned char>(UC::convertFromUTF16, c.in, 16), expected);
        for (bool bigEndian : {false, true})
            EXPECT_EQ(run<unsigned char>(kernelFrom(bigEndian), pairsOf(c.in, bigEndian), 16), expected) << bigEndian;
    }

    // UCS-4 takes up to six bytes and replaces the rest.
    const std::pair<unsigned int, Bytes> cases[] = {
        {0x7F, {0x7F}},
        {0x80, {0xC2, 0x80}},
        {0x7FF, {0xDF, 0xBF}},
        {0x800, {0xE0, 0xA0, 0x80}},
        {0xD800, {0xED, 0xA0, 0x80}},
        {0xFFFF, {0xEF, 0xBF, 0xBF}},
        {0x10000, {0xF0, 0x90, 0x80, 0x80}},
        {0x1FFFFF, {0xF7, 0xBF, 0xBF, 0xBF}},
        {0x200000, {0xF8, 0x88, 0x80, 0x80, 0x80}},
        {0x3FFFFFF, {0xFB, 0xBF, 0xBF, 0xBF, 0xBF}},
        {0x4000000, {0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}},
        {0x7FFFFFFF, {0xFD, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}},
        {0x80000000, {0xEF, 0xBF, 0xBD}},
        {0xFFFFFFFF, {0xEF, 0xBF, 0xBD}},
    };
    for (const auto& [value, bytes] : cases)
        EXPECT_EQ(run<unsigned char>(UC::convertFromUCS4, Ucs4{value}, 8), (Outcome<unsigned char>{0, 1, bytes}))
            << std::hex << value;

    // Every converter stops before the character that does not fit.
    const Ucs4 text = {0x41, 0xE9, 0x3A9, 0x416, 0x20AC, 0x4E2D, 0x1F600, 0x7A};
    const auto one = [](unsigned int cp) { return Ucs4{cp}; };
    const auto sourceByte = [](unsigned int cp) { return Chars{static_cast<signed char>(cp)}; };
    const auto pairDecoded = [](unsigned int cp) { return utf8(cp > 0xFFFF ? cp + 1 : cp); };
    const auto latin1 = [](unsigned int cp) { return Chars{static_cast<signed char>(cp <= 0xFF ? cp : '?')}; };
    unsigned long replaced = 0;

    expectStopsAtEveryTargetSize(UC::convertToUTF16, text, utf8, utf16);
    expectStopsAtEveryTargetSize(UC::convertFromUTF16, text, utf16, pairDecoded);
    auto wide = text;
    wide.insert(wide.end(), {0x200000, 0x7FFFFFFF});
    expectStopsAtEveryTargetSize(UC::convertToUCS4, wide, utf8, one);
    expectStopsAtEveryTargetSize(UC::convertFromUCS4, wide, one, utf8);
    expectStopsAtEveryTargetSize(UC::convertFromASCII, {0x41, 0xE9, 0x7F, 0x80, 0xFF}, sourceByte, utf8);
    expectStopsAtEveryTargetSize(toEightBit('?', replaced), text, utf8, latin1);

    // Converting to 8 bits, and bytelen.
    for (const auto& c : kEightBitCases) {
        SCOPED_TRACE(c.what);
        unsigned long replaced = 99;
        EXPECT_EQ(run<signed char>(toEightBit(c.with, replaced), c.in, 16),
                  (Outcome<signed char>{c.rc, c.read, c.out}));
        EXPECT_EQ(replaced, c.replaced);
    }

    // bytelen measures up to the stop.
    const struct {
        Bytes in;
        int rc;
        unsigned long characters, bytes;
    } measured[] = {
        {{}, 0, 0, 0},
        {{0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}, 0, 4, 12},
        {{0x41, 0xC3, 0xA9, 0xF0, 0x9F}, 1, 2, 3},
        {{0x41, 0xBF, 0x41}, 2, 1, 1},
    };
    for (const auto& c : measured) {
        SCOPED_TRACE(testing::Message() << "stop at " << c.bytes);
        const guarded<unsigned char> text(c.in.data(), c.in.size());
        const unsigned char* stop = nullptr;
        unsigned long characters = 99, bytes = 99;
        EXPECT_EQ(UC::bytelen(text.begin(), text.end(), stop, characters, bytes), c.rc);
        EXPECT_EQ(stop, text.begin() + c.bytes);
        EXPECT_EQ(characters, c.characters);
        EXPECT_EQ(bytes, c.bytes);
    }
}

} // namespace
