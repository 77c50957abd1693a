// The converters of uvt/impl/unicode. Two loops do all the work: one decodes
// UTF-8 sequence by sequence into a sink (UTF-16, UCS-4, 8-bit text or a mere
// counter), the other reads characters from UTF-16, UCS-4 or 8-bit text and
// encodes them as UTF-8. What differs per direction lives in small policy
// structs that the compiler inlines into those loops.
#include <uvt/impl/unicode>

#include <cstddef>
#include <cstdint>

namespace uvt::UC {
namespace {

constexpr std::uint32_t replacement_character = 0xFFFD;
constexpr std::uint32_t high_surrogate_first = 0xD800, high_surrogate_last = 0xDBFF;
constexpr std::uint32_t low_surrogate_first = 0xDC00, low_surrogate_last = 0xDFFF;
// Added to (high - 0xD800) * 1024 + low when a surrogate pair is decoded. The
// textbook constant is 0x2400 (0x10000 - 0xDC00); this converter decodes
// pairs one code point higher, and that mapping is part of its contract, so
// the constant must not be "corrected". Encoding into UTF-16 uses the
// textbook rule.
constexpr std::uint32_t surrogate_pair_offset = 0x2401;
constexpr std::uint32_t last_utf16_code_point = 0x10FFFF;
constexpr std::uint32_t last_ucs4_code_point = 0x7FFFFFFF;

// Where the next output unit goes and where the target ends. A reversed
// range has no room.
template <class Unit>
struct TargetRange {
    using unit = Unit;
    Unit* next;
    Unit* end;

    bool hasRoomFor(std::ptrdiff_t units) const { return end - next >= units; }
    // Stores a character below U+0080 as one unit; false when full.
    bool putSingle(unsigned char c)
    {
        if (!hasRoomFor(1))
            return false;
        *next++ = static_cast<Unit>(c);
        return true;
    }
};

// How a UTF-16 unit is stored: as a native 16-bit value, or as a byte pair
// whose high-order byte comes first when `bigEndian` is set.
struct NativeUnits {
    using unit = unsigned short;
    std::uint32_t read(const unit* p) const { return *p; }
    void write(unit* p, std::uint32_t value) const { *p = static_cast<unit>(value); }
};

struct BytePairUnits {
    using unit = usc2_bytes;
    bool bigEndian;

    int highIndex() const { return bigEndian ? 0 : 1; }
    std::uint32_t read(const unit* p) const
    {
        return std::uint32_t{p->byte[highIndex()]} << 8 | p->byte[1 - highIndex()];
    }
    void write(unit* p, std::uint32_t value) const
    {
        p->byte[highIndex()] = static_cast<unsigned char>(value >> 8);
        p->byte[1 - highIndex()] = static_cast<unsigned char>(value);
    }
};

// ---- UTF-8 decoding -------------------------------------------------------

// The value of the `length`-byte sequence at `s`: the bytes summed with a
// shift of 6 bits before each further byte, less the offset that cancels
// the lead mark and the continuation prefixes. Computed modulo 2^32 and read
// as a signed number, so that malformed continuation bytes and the largest
// leads can make it negative.
inline std::int32_t decodeSequence(const unsigned char* s, unsigned length)
{
    std::uint32_t sum = 0;
    for (unsigned i = 0; i < length; ++i)
        sum = (sum << 6) + s[i];
    return static_cast<std::int32_t>(sum - impl::UTF8_offsets[length]);
}

// The length of the sequence `lead` starts, 0 if it cannot start one.
inline unsigned leadLength(unsigned char lead) { return impl::UTF8_element_size[lead]; }

// Decodes [source, sourceEnd) into `sink`, which provides
//   bool putSingle(unsigned char c): takes a byte below 0x80, which every
//       sink reads as the character of that value; false when full;
//   unsigned sequenceLength(unsigned char lead): the length of the sequence
//       `lead` (0x80 or above) starts, 0 when it may not start one here;
//   int put(const unsigned char* sequence, unsigned length): takes a whole
//       sequence; returns converted, illegal or target_full.
// Single bytes take a path of their own: it keeps the table look-up out of
// the dependency chain from one character's position to the next, which
// about doubles the speed on mixed-script text.
template <class Sink>
int decodeUTF8(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
               Sink& sink)
{
    int rc = converted;
    const unsigned char* s = source;
    while (s < sourceEnd) {
        if (*s < 0x80) {
            if (!sink.putSingle(*s)) {
                rc = target_full;
                break;
            }
            ++s;
            continue;
        }
        const unsigned length = sink.sequenceLength(*s);
        if (length == 0) {
            rc = illegal;
            break;
        }
        if (length > static_cast<std::size_t>(sourceEnd - s)) {
            rc = incomplete;
            break;
        }
        rc = sink.put(s, length);
        if (rc != converted)
            break;
        s += length;
    }
    sourceStop = s;
    return rc;
}

template <class Sink>
int decodeToTarget(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
                   Sink sink, typename Sink::unit*& targetStop)
{
    const int rc = decodeUTF8(source, sourceEnd, sourceStop, sink);
    targetStop = sink.next;
    return rc;
}

template <class Units>
struct UTF16Sink : TargetRange<typename Units::unit> {
    Units units;

    static unsigned sequenceLength(unsigned char lead) { return leadLength(lead); }
    bool putSingle(unsigned char c)
    {
        if (!this->hasRoomFor(1))
            return false;
        units.write(this->next++, c);
        return true;
    }
    int put(const unsigned char* sequence, unsigned length)
    {
        const std::int32_t decoded = decodeSequence(sequence, length);
        const std::uint32_t value = decoded < 0 || static_cast<std::uint32_t>(decoded) > last_utf16_code_point
                                        ? replacement_character
                                        : static_cast<std::uint32_t>(decoded);
        if (value <= 0xFFFF) {
            if (!this->hasRoomFor(1))
                return target_full;
            units.write(this->next++, value);
            return converted;
        }
        if (!this->hasRoomFor(2))
            return target_full;
        units.write(this->next++, ((value - 0x10000) >> 10) + high_surrogate_first);
        units.write(this->next++, (value & 0x3FF) + low_surrogate_first);
        return converted;
    }
};

struct UCS4Sink : TargetRange<unsigned int> {
    static unsigned sequenceLength(unsigned char lead) { return leadLength(lead); }
    int put(const unsigned char* sequence, unsigned length)
    {
        if (!hasRoomFor(1))
            return target_full;
        const std::int32_t decoded = decodeSequence(sequence, length);
        *next++ = decoded < 0 ? replacement_character : static_cast<unsigned int>(decoded);
        return converted;
    }
};

// UTF-8 into U+0000-U+00FF; see convertToASCII in the header for the rules.
struct EightBitSink : TargetRange<signed char> {
    char replacement;
    unsigned long& replaced;

    static constexpr unsigned char last_latin1_lead = 0xC3;
    static constexpr unsigned char overlong_ascii_lead = 0xC0;

    unsigned sequenceLength(unsigned char lead) const
    {
        if (lead == overlong_ascii_lead || (lead > last_latin1_lead && replacement == 0))
            return 0;
        return leadLength(lead);
    }
    // A sequence led by 0xC1-0xC3 is a pair whose second byte must have the
    // 10xxxxxx form; any longer lead stands for a replaced character.
    int put(const unsigned char* sequence, unsigned)
    {
        const bool isLatin1Pair = sequence[0] <= last_latin1_lead;
        if (isLatin1Pair && (sequence[1] & 0xC0) != 0x80)
            return illegal;
        if (!hasRoomFor(1))
            return target_full;
        if (isLatin1Pair) {
            *next++ = static_cast<signed char>(sequence[0] << 6 | (sequence[1] & 0x3F));
        } else {
            *next++ = static_cast<signed char>(replacement);
            ++replaced;
        }
        return converted;
    }
};

struct CountingSink {
    unsigned long characters = 0;

    static unsigned sequenceLength(unsigned char lead) { return leadLength(lead); }
    bool putSingle(unsigned char)
    {
        ++characters;
        return true;
    }
    int put(const unsigned char*, unsigned)
    {
        ++characters;
        return converted;
    }
};

// ---- UTF-8 encoding -------------------------------------------------------

// Bytes needed for `codePoint` (at most 0x7FFFFFFF).
inline unsigned encodedLength(std::uint32_t codePoint)
{
    if (codePoint < 0x80)
        return 1;
    if (codePoint < 0x800)
        return 2;
    if (codePoint < 0x10000)
        return 3;
    if (codePoint < 0x200000)
        return 4;
    return codePoint < 0x4000000 ? 5 : 6;
}

inline void writeSequence(unsigned char* t, std::uint32_t codePoint, unsigned length)
{
    for (unsigned i = length - 1; i > 0; --i) {
        t[i] = static_cast<unsigned char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    t[0] = static_cast<unsigned char>(codePoint | impl::UTF8_leading_byte_mark[length]);
}

// Encodes the characters of [source, sourceEnd) as UTF-8. `reader.take(s,
// end, codePoint)` reads the character at s (s < end) into codePoint and
// returns the number of source units it spans, or 0 when the source ends
// inside it.
template <class Reader>
int encodeUTF8(const typename Reader::unit* source, const typename Reader::unit* sourceEnd,
               const typename Reader::unit*& sourceStop, unsigned char* target, unsigned char* targetEnd,
               unsigned char*& targetStop, Reader reader)
{
    int rc = converted;
    const typename Reader::unit* s = source;
    TargetRange<unsigned char> out{target, targetEnd};
    while (s < sourceEnd) {
        std::uint32_t codePoint;
        const unsigned units = reader.take(s, sourceEnd, codePoint);
        if (units == 0) {
            rc = incomplete;
            break;
        }
        const unsigned length = encodedLength(codePoint);
        if (!out.hasRoomFor(length)) {
            rc = target_full;
            break;
        }
        writeSequence(out.next, codePoint, length);
        out.next += length;
        s += units;
    }
    sourceStop = s;
    targetStop = out.next;
    return rc;
}

template <class Units>
struct UTF16Reader {
    using unit = typename Units::unit;
    Units units;

    unsigned take(const unit* s, const unit* end, std::uint32_t& codePoint) const
    {
        codePoint = units.read(s);
        if (codePoint < high_surrogate_first || codePoint > high_surrogate_last)
            return 1;
        if (s + 1 == end)
            return 0;
        const std::uint32_t low = units.read(s + 1);
        if (low < low_surrogate_first || low > low_surrogate_last)
            return 1;
        codePoint = (codePoint - high_surrogate_first) * 1024 + low + surrogate_pair_offset;
        return 2;
    }
};

struct UCS4Reader {
    using unit = unsigned int;
    static unsigned take(const unit* s, const unit*, std::uint32_t& codePoint)
    {
        codePoint = *s > last_ucs4_code_point ? replacement_character : *s;
        return 1;
    }
};

struct EightBitReader {
    using unit = signed char;
    static unsigned take(const unit* s, const unit*, std::uint32_t& codePoint)
    {
        codePoint = static_cast<unsigned char>(*s);
        return 1;
    }
};

} // namespace

int convertFromUTF16(const unsigned short* source, const unsigned short* sourceEnd, const unsigned short*& sourceStop,
                     unsigned char* target, unsigned char* targetEnd, unsigned char*& targetStop) noexcept
{
    return encodeUTF8(source, sourceEnd, sourceStop, target, targetEnd, targetStop, UTF16Reader<NativeUnits>{});
}

int kernelConvertFromUTF16(const usc2_bytes* source, const usc2_bytes* sourceEnd, const usc2_bytes*& sourceStop,
                           bool bigEndian, unsigned char* target, unsigned char* targetEnd,
                           unsigned char*& targetStop) noexcept
{
    return encodeUTF8(source, sourceEnd, sourceStop, target, targetEnd, targetStop,
                      UTF16Reader<BytePairUnits>{{bigEndian}});
}

int convertToUTF16(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
                   unsigned short* target, unsigned short* targetEnd, unsigned short*& targetStop) noexcept
{
    return decodeToTarget(source, sourceEnd, sourceStop, UTF16Sink<NativeUnits>{{target, targetEnd}, {}}, targetStop);
}

int kernelConvertToUTF16(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
                         usc2_bytes* target, usc2_bytes* targetEnd, usc2_bytes*& targetStop, bool bigEndian) noexcept
{
    return decodeToTarget(source, sourceEnd, sourceStop, UTF16Sink<BytePairUnits>{{target, targetEnd}, {bigEndian}},
                          targetStop);
}

int convertFromUCS4(const unsigned int* source, const unsigned int* sourceEnd, const unsigned int*& sourceStop,
                    unsigned char* target, unsigned char* targetEnd, unsigned char*& targetStop) noexcept
{
    return encodeUTF8(source, sourceEnd, sourceStop, target, targetEnd, targetStop, UCS4Reader{});
}

int convertToUCS4(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
                  unsigned int* target, unsigned int* targetEnd, unsigned int*& targetStop) noexcept
{
    return decodeToTarget(source, sourceEnd, sourceStop, UCS4Sink{{target, targetEnd}}, targetStop);
}

int convertFromASCII(const signed char* source, const signed char* sourceEnd, const signed char*& sourceStop,
                     unsigned char* target, unsigned char* targetEnd, unsigned char*& targetStop) noexcept
{
    return encodeUTF8(source, sourceEnd, sourceStop, target, targetEnd, targetStop, EightBitReader{});
}

int convertToASCII(const unsigned char* source, const unsigned char* sourceEnd, const unsigned char*& sourceStop,
                   signed char* target, signed char* targetEnd, signed char*& targetStop, char replacement,
                   unsigned long& replaced) noexcept
{
    replaced = 0;
    return decodeToTarget(source, sourceEnd, sourceStop, EightBitSink{{target, targetEnd}, replacement, replaced},
                          targetStop);
}

int bytelen(const unsigned char* begin, const unsigned char* end, const unsigned char*& stop, unsigned long& characters,
            unsigned long& bytes) noexcept
{
    CountingSink counter;
    const int rc = decodeUTF8(begin, end, stop, counter);
    characters = counter.characters;
    bytes = static_cast<unsigned long>(stop - begin);
    return rc;
}

} // namespace uvt::UC
