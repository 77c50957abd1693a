// basic_istream against std::istringstream as oracle: every case runs the
// same script of extractions on both and compares the transcripts (values,
// gcount and state after each step). The library streams read through a
// buffer that serves its text in chunks of 1, 3 or all characters, or
// without any get area, so that every refill path is crossed.

#include "support/test_allocator.h"

#include <uvt/ios>
#include <uvt/new>
#include <uvt/sstream>
#include <uvt/string>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using uvt::ios_base;

// Serves `text` through a get area of `chunk` characters at a time; with
// chunk 0 there is no get area and every character comes through
// underflow/uflow. Supports putting back within the text.
template <class C>
class chunk_buf : public uvt::basic_streambuf<C> {
public:
    using typename uvt::basic_streambuf<C>::int_type;
    using traits = uvt::impl::stream_traits<C>;

    chunk_buf(std::basic_string<C> text, std::size_t chunk) : text_(std::move(text)), chunk_(chunk) {}

protected:
    int_type underflow() override
    {
        if (chunk_ == 0)
            return pos_ < text_.size() ? traits::to_int_type(text_[pos_]) : traits::eof();
        pos_ = static_cast<std::size_t>(this->gptr() ? this->gptr() - text_.data() : 0);
        if (pos_ >= text_.size())
            return traits::eof();
        C* begin = text_.data();
        this->setg(begin, begin + pos_, begin + std::min(text_.size(), pos_ + chunk_));
        return traits::to_int_type(*this->gptr());
    }
    int_type uflow() override
    {
        if (chunk_ != 0)
            return uvt::basic_streambuf<C>::uflow();
        return pos_ < text_.size() ? traits::to_int_type(text_[pos_++]) : traits::eof();
    }
    int_type pbackfail(int_type c) override
    {
        if (chunk_ != 0 || pos_ == 0 || (c != traits::eof() && traits::to_char_type(c) != text_[pos_ - 1]))
            return traits::eof();
        return traits::to_int_type(text_[--pos_]);
    }

private:
    std::basic_string<C> text_;
    std::size_t chunk_;
    std::size_t pos_ = 0;
};

std::ios_base::fmtflags to_std_flags(ios_base::fmtflags f)
{
    static const std::pair<ios_base::fmtflags, std::ios_base::fmtflags> map[] = {
        {ios_base::boolalpha, std::ios_base::boolalpha},
        {ios_base::dec, std::ios_base::dec},
        {ios_base::hex, std::ios_base::hex},
        {ios_base::oct, std::ios_base::oct},
        {ios_base::skipws, std::ios_base::skipws},
    };
    std::ios_base::fmtflags out{};
    for (auto [mine, theirs] : map)
        if (f & mine)
            out |= theirs;
    return out;
}

template <class Stream>
std::string state_of(const Stream& s)
{
    return std::string(s.good() ? "g" : "") + (s.eof() ? "e" : "") + (s.fail() ? "f" : "") + (s.bad() ? "b" : "");
}

// A transcript entry: what the step produced, gcount and the state.
template <class Stream>
void note(std::string& log, const std::string& what, const Stream& s)
{
    log += what + " #" + std::to_string(s.gcount()) + " " + state_of(s) + "; ";
}

struct script_case {
    int line;
    std::string input;
    // Runs the same steps on either stream type, appending to the log.
    void (*run_uvt)(uvt::istream& is, std::string& log);
    void (*run_std)(std::istream& is, std::string& log);
};

// One generic lambda gives both instantiations.
#define SCRIPT(line, input, body) \
    script_case \
    { \
        line, input, [](uvt::istream& is, std::string& log) { body; }, \
            [](std::istream& is, std::string& log) { body; } \
    }

// Words and lines into the library's string and into the standard one.
std::string read_word(uvt::istream& is)
{
    uvt::string s("previous", uvt::allocator::global_allocator());
    is >> s;
    return std::string(s.data(), s.size());
}
std::string read_word(std::istream& is)
{
    std::string s = "previous";
    is >> s;
    return s;
}
// A text of either character type as a narrow one (the tests use ASCII).
template <class C>
std::string narrow(const C* s, std::size_t n)
{
    return std::string(s, s + n);
}
template <class C>
std::string narrow(const C* s)
{
    return narrow(s, std::char_traits<C>::length(s));
}

template <class C>
std::string read_line(uvt::basic_istream<C>& is, C delim = C('\n'))
{
    uvt::basic_string<C> s(std::basic_string<C>(8, C('p')).c_str(), uvt::allocator::global_allocator());
    uvt::getline(is, s, delim);
    return narrow(s.data(), s.size());
}
template <class C>
std::string read_line(std::basic_istream<C>& is, C delim = C('\n'))
{
    std::basic_string<C> s(8, C('p'));
    std::getline(is, s, delim);
    return narrow(s.data(), s.size());
}

// get(streambuf&, delim) into a buffer of the same family.
std::string copy_to_buffer(uvt::istream& is, char delim)
{
    uvt::stringbuf sb(uvt::allocator::global_allocator(), ios_base::out);
    is.get(sb, delim);
    return std::string(sb.data(), sb.size());
}
std::string copy_to_buffer(std::istream& is, char delim)
{
    std::stringbuf sb;
    is.get(sb, delim);
    return sb.str();
}

// As note(), without gcount (which the standard string functions leave).
template <class Stream>
void note_state(std::string& log, const std::string& what, const Stream& s)
{
    log += what + " " + state_of(s) + "; ";
}

std::string chars(const char* s, std::streamsize n) { return std::string(s, static_cast<std::size_t>(n)); }

const script_case unformatted_cases[] = {
    SCRIPT(__LINE__, "key=value\nnext",
           {
               for (char delim : {'=', '=', '\n', '\n'}) {
                   note(log, copy_to_buffer(is, delim), is);
                   note(log, std::to_string(is.get()), is);
               }
           }),
    SCRIPT(__LINE__, "xyz",
           {
               char c = '?';
               is.get(c);
               note(log, std::string(1, c), is);
               note(log, std::to_string(is.peek()), is);
               is.get(c).get(c).get(c);
               note(log, std::string(1, c), is);
               note(log, std::to_string(is.peek()), is);
           }),
    SCRIPT(__LINE__, "hello world",
           {
               char buf[8];
               for (int n : {5, 8, 1}) {
                   is.read(buf, n);
                   note(log, chars(buf, is.gcount()), is);
               }
           }),
    SCRIPT(__LINE__, "line one\nline two is long\n\nend",
           {
               char buf[10];
               for (int i = 0; i < 6; ++i) {
                   is.getline(buf, sizeof buf);
                   note(log, buf, is);
                   is.clear(is.rdstate() & ~is.failbit);
               }
           }),
    SCRIPT(__LINE__, "123456789\nx",
           {
               char buf[10];
               for (int i = 0; i < 2; ++i) {
                   is.getline(buf, 10); // first nine characters fit and the delimiter is taken
                   note(log, buf, is);
               }
           }),
    SCRIPT(__LINE__, "a;b;;c",
           {
               char buf[4];
               for (int i = 0; i < 5; ++i) {
                   is.getline(buf, 4, ';');
                   note(log, buf, is);
               }
           }),
    SCRIPT(__LINE__, "first\nsecond line\n",
           {
               char buf[6];
               is.get(buf, 6);
               note(log, buf, is);
               is.get(buf, 6); // stops at the newline: nothing extracted
               note(log, buf, is);
               is.clear();
               note(log, std::to_string(is.get()), is);
               is.get(buf, 6, 'l');
               note(log, buf, is);
               is.get(buf, 0);
               note(log, "", is);
           }),
    SCRIPT(__LINE__, "skip these words|then",
           {
               is.ignore(5);
               note(log, std::string(1, char(is.peek())), is);
               is.ignore(100, '|');
               note(log, std::string(1, char(is.peek())), is);
               is.ignore(std::numeric_limits<std::streamsize>::max());
               note(log, "", is);
           }),
    SCRIPT(__LINE__, "abc",
           {
               note(log, "", is.ignore(2, 'z'));
               note(log, "", is.ignore().ignore());
           }),
    SCRIPT(__LINE__, "",
           {
               char buf[4] = "zz";
               is.getline(buf, 4);
               note(log, buf, is);
               is.clear();
               note(log, std::to_string(is.peek()), is);
               is.clear();
               note(log, "", is.read(buf, 2));
           }),
    SCRIPT(__LINE__, "  alpha beta\tgamma\n\v delta",
           {
               for (int i = 0; i < 5; ++i)
                   note_state(log, read_word(is), is);
           }),
    SCRIPT(__LINE__, "  alpha beta",
           {
               char word[8] = "xx";
               is.width(4);
               is >> word;
               note_state(log, word, is);
               is >> word;
               note_state(log, word, is);
               is.unsetf(is.skipws);
               is >> word; // stops at the blank at once
               note_state(log, word, is);
               is.width(1); // room for the terminating zero only
               is.clear();
               is >> word;
               note_state(log, word, is);
               note_state(log, read_word(is), is);
           }),
    SCRIPT(__LINE__, "wide",
           {
               is.width(3);
               note_state(log, read_word(is), is);
               note_state(log, read_word(is), is);
               note_state(log, std::to_string(is.width()), is);
           }),
    SCRIPT(__LINE__, "first\nsecond is a line longer than the forty characters kept inline\n\nlast",
           {
               for (int i = 0; i < 5; ++i)
                   note_state(log, read_line(is), is);
           }),
    SCRIPT(__LINE__, "a,b,,c",
           {
               for (int i = 0; i < 5; ++i)
                   note_state(log, read_line(is, ','), is);
           }),
    SCRIPT(__LINE__, "pq",
           {
               char c;
               is.get(c);
               is.putback('p');
               note(log, std::string(1, char(is.get())), is);
               is.unget();
               note(log, std::string(1, char(is.get())), is);
               is.get();
               is.get(); // end: eofbit and failbit
               is.clear(is.eofbit);
               is.unget(); // clears eofbit first
               note(log, std::string(1, char(is.get())), is);
           }),
};

template <class C>
std::basic_string<C> widen(const std::string& s)
{
    return std::basic_string<C>(s.begin(), s.end());
}

TEST(IstreamUnformatted, MatchesTheStandardStreamsOnEveryBuffering)
{
    for (const script_case& c : unformatted_cases) {
        std::istringstream ref(c.input);
        std::string expected;
        c.run_std(ref, expected);
        for (std::size_t chunk : {0, 1, 3, 1000}) {
            chunk_buf<char> buf(c.input, chunk);
            uvt::istream is(&buf);
            std::string log;
            c.run_uvt(is, log);
            EXPECT_EQ(log, expected) << "case at line " << c.line << ", chunk " << chunk;
        }
        uvt::istringstream view(c.input.data(), c.input.size(), uvt::allocator::global_allocator());
        std::string log;
        c.run_uvt(view, log);
        EXPECT_EQ(log, expected) << "case at line " << c.line << " on istringstream";
    }
}

// Runs `script` on the standard stream over `input` and on the library's
// over every get area of 1 to 9 characters and none, for both character
// types: each delimiter and each limit of the script then falls on the last
// character of a get area, on the first, and in between.
template <class Script>
void expect_runs_like_standard(int line, const std::string& input, Script script)
{
    auto for_type = [&](auto c) {
        using C = decltype(c);
        const std::basic_string<C> text(input.begin(), input.end());
        std::basic_istringstream<C> ref(text);
        std::string expected;
        script(ref, expected);
        for (std::size_t chunk = 0; chunk < 10; ++chunk) {
            chunk_buf<C> buf(text, chunk);
            uvt::basic_istream<C> is(&buf);
            std::string log;
            script(is, log);
            EXPECT_EQ(log, expected) << "case at line " << line << ", chunk " << chunk << ", width " << sizeof(C);
        }
    };
    for_type(char());
    for_type(wchar_t());
}

TEST(IstreamUnformatted, RunsAcrossRefillsOfBothCharacterTypes)
{
    const char* const text = "ab\ncdefgh\n\nijklmnopq;rs\ntuvwxyz";
    expect_runs_like_standard(__LINE__, text, [](auto& is, std::string& log) {
        typename std::remove_reference_t<decltype(is)>::char_type buf[5];
        for (int i = 0; i < 7; ++i) {
            is.getline(buf, 5); // lines of 4 fit with their delimiter, longer ones fail
            note(log, narrow(buf), is);
            is.clear(is.rdstate() & ~is.failbit);
        }
    });
    expect_runs_like_standard(__LINE__, text, [](auto& is, std::string& log) {
        using C = typename std::remove_reference_t<decltype(is)>::char_type;
        C buf[4];
        note(log, "", is.ignore(4, C('\n')));
        note(log, "", is.ignore(6, C('\n'))); // stops on the limit just before the delimiter
        is.get(buf, 4);
        note(log, narrow(buf), is);
        note(log, "", is.ignore(100, C(';')));
        note(log, read_line(is), is);
        note(log, read_line(is, C('z')), is);
        note(log, std::to_string(is.get()), is);
    });
    expect_runs_like_standard(__LINE__, text, [](auto& is, std::string& log) {
        for (int i = 0; i < 6; ++i)
            note_state(log, read_line(is), is);
    });
}

// ---------------------------------------------------- formatted extraction

template <class T>
std::string value_text(T v)
{
    if constexpr (std::is_floating_point_v<T>) {
        // The library's long double parser keeps 17 digits and may be a
        // few units in the last place off: 16 digits must agree.
        char text[64];
        if constexpr (std::is_same_v<T, long double>)
            std::snprintf(text, sizeof text, "%.16Lg", v);
        else
            std::snprintf(text, sizeof text, "%a", static_cast<double>(v));
        return text;
    } else {
        return std::to_string(v);
    }
}

// The value, the state and the characters left after one extraction.
template <class T, class Stream>
std::string extract_once(Stream& is, typename Stream::fmtflags flags)
{
    is.flags(flags);
    T v{};
    is >> v;
    std::string out = value_text(v) + " " + state_of(is) + " rest:";
    is.clear();
    for (auto c = is.get(); c != std::char_traits<typename Stream::char_type>::eof(); c = is.get())
        out += static_cast<char>(c);
    return out;
}

// Runs the extraction of T from `text` on the standard stream and on the
// library's (narrow through every buffering, wide through a string stream)
// with the same flags and compares.
template <class T>
void expect_extraction_like_standard(const std::string& text, ios_base::fmtflags flags)
{
    std::istringstream ref(text);
    const std::string expected = extract_once<T>(ref, to_std_flags(flags));
    for (std::size_t chunk : {0, 1, 3, 1000}) {
        chunk_buf<char> buf(text, chunk);
        uvt::istream is(&buf);
        ASSERT_EQ(extract_once<T>(is, flags), expected)
            << "text \"" << text << "\" flags 0x" << std::hex << flags << std::dec << " chunk " << chunk;
    }
    const std::wstring wide = widen<wchar_t>(text);
    uvt::wistringstream wis(wide.data(), wide.size(), uvt::allocator::global_allocator());
    ASSERT_EQ(extract_once<T>(wis, flags), expected) << "wide text \"" << text << "\"";
}

const char* const integer_texts[] = {"0",
                                     "42",
                                     "-42",
                                     "+7 ",
                                     " \t\n\v\f\r12",
                                     "0x1f",
                                     "0X1Fg",
                                     "017",
                                     "08",
                                     "0x",
                                     "0xz",
                                     "x1",
                                     "-",
                                     "+",
                                     "",
                                     "   ",
                                     "-1",
                                     "-0",
                                     "0000",
                                     "00012",
                                     "ff",
                                     "FFg",
                                     "12abc",
                                     "1 2",
                                     "1e5",
                                     "- 5",
                                     "-0x10",
                                     "1.5",
                                     "127",
                                     "128",
                                     "-129",
                                     "255",
                                     "32767",
                                     "32768",
                                     "-32768",
                                     "-32769",
                                     "65535",
                                     "65536",
                                     "-65535",
                                     "-65536",
                                     "2147483647",
                                     "2147483648",
                                     "-2147483648",
                                     "-2147483649",
                                     "4294967295",
                                     "4294967296",
                                     "-4294967295",
                                     "-4294967296",
                                     "9223372036854775807",
                                     "9223372036854775808",
                                     "-9223372036854775808",
                                     "-9223372036854775809",
                                     "18446744073709551615",
                                     "18446744073709551616",
                                     "-18446744073709551615",
                                     "-18446744073709551616",
                                     "99999999999999999999999999999x",
                                     "0xffffffffffffffff",
                                     "0x10000000000000000",
                                     "0777777777777777777777",
                                     "01777777777777777777777",
                                     "02000000000000000000000"};

const ios_base::fmtflags integer_flags[] = {
    ios_base::dec | ios_base::skipws,
    ios_base::hex | ios_base::skipws,
    ios_base::oct | ios_base::skipws,
    ios_base::skipws,
    ios_base::dec,
};

template <class T>
void expect_integers_like_standard()
{
    for (ios_base::fmtflags flags : integer_flags)
        for (const char* text : integer_texts)
            expect_extraction_like_standard<T>(text, flags);
}

TEST(IstreamNumbers, IntegersOfEveryTypeMatchTheStandardStreams)
{
    expect_integers_like_standard<short>();
    expect_integers_like_standard<unsigned short>();
    expect_integers_like_standard<int>();
    expect_integers_like_standard<unsigned int>();
    expect_integers_like_standard<long>();
    expect_integers_like_standard<unsigned long>();
    expect_integers_like_standard<long long>();
    expect_integers_like_standard<unsigned long long>();
}

TEST(IstreamNumbers, BooleansAsNumbersAndAsWords)
{
    const char* const texts[] = {"0",    "1",      "2", "-1", "01",   "true", "false",     " true ", "tru",
                                 "fals", "falsey", "t", "f",  "True", "",     "truefalse", "x",      "trUe"};
    for (const char* text : texts) {
        expect_extraction_like_standard<bool>(text, ios_base::skipws | ios_base::dec);
        expect_extraction_like_standard<bool>(text, ios_base::skipws | ios_base::boolalpha);
    }
}

// Decimal texts whose values the library's parser gives exactly, and
// every kind of malformed and out-of-range text.
TEST(IstreamNumbers, FloatingPointMatchesTheStandardStreams)
{
    const char* const texts[] = {"0",
                                 "-0",
                                 "1.5",
                                 "-2.25",
                                 ".5",
                                 "5.",
                                 ".",
                                 "-.",
                                 "+.e1",
                                 "1e10",
                                 "1E+3",
                                 "2e-3",
                                 "1e",
                                 "1e+",
                                 "1e-x",
                                 "1.5e3.5",
                                 "1..5",
                                 "1e2e3",
                                 "0.000001",
                                 "  +3.75abc",
                                 "123456789012345678901234567890",
                                 "0.000000000000000000000000000000125",
                                 "1e400",
                                 "-1e400",
                                 "1e-400",
                                 "nan",
                                 "inf",
                                 "0x1p3",
                                 "1e99999999999999999",
                                 "-1e-99999999999999999",
                                 "00000.00000125",
                                 "3.4028234663852886e38",
                                 "3.5e38",
                                 "-3.5e38",
                                 "1e-50",
                                 "1.7976931348623157e308",
                                 "1.8e308",
                                 "12345678901234567890e-10",
                                 "",
                                 "-",
                                 "e5",
                                 "0e0",
                                 "0.0e-999",
                                 "1,5"};
    for (const char* text : texts) {
        expect_extraction_like_standard<float>(text, ios_base::skipws);
        expect_extraction_like_standard<double>(text, ios_base::skipws);
        expect_extraction_like_standard<long double>(text, ios_base::skipws);
    }
}

// Texts printed by the standard streams in random formats read back by
// both stream families.
TEST(IstreamNumbers, RandomSweepOfPrintedNumbers)
{
    std::mt19937_64 rng(77);
    for (int i = 0; i < 3000; ++i) {
        const auto bits = rng();
        std::ostringstream text;
        text << static_cast<long long>(bits) << ' ' << std::hex << (bits >> (rng() % 64)) << std::dec << ' '
             << static_cast<int>(bits >> 40) << ' ' << std::setprecision(static_cast<int>(rng() % 20))
             << static_cast<double>(static_cast<std::int64_t>(bits)) / std::pow(10.0, static_cast<int>(rng() % 30));
        const std::string s = text.str();
        std::istringstream ref(s);
        uvt::istringstream is(s.data(), s.size(), uvt::allocator::global_allocator());
        long long a = 0, ra = 0;
        unsigned long long h = 0, rh = 0;
        short c = 0, rc = 0;
        double d = 0, rd = 0;
        is >> a >> uvt::hex >> h >> uvt::dec >> c >> d;
        ref >> ra >> std::hex >> rh >> std::dec >> rc >> rd;
        EXPECT_EQ(std::to_string(a) + " " + std::to_string(h) + " " + std::to_string(c) + " " + state_of(is),
                  std::to_string(ra) + " " + std::to_string(rh) + " " + std::to_string(rc) + " " + state_of(ref))
            << s;
        EXPECT_NEAR(d, rd, std::abs(rd) * 4e-16) << s;
    }
}

// ------------------------------------------ state, exceptions and tie

TEST(IstreamState, FailuresThrowThroughTheExceptionMask)
{
    const std::string text = "12 x";
    uvt::istringstream is(text.data(), text.size(), uvt::allocator::global_allocator());
    is.exceptions(ios_base::failbit);
    int v = 0;
    is >> v;
    EXPECT_EQ(v, 12);
    try {
        is >> v;
        ADD_FAILURE() << "no exception";
    } catch (const ios_base::failure& e) {
        EXPECT_STREQ(e.what(), "basic_ios::clear");
        e.mark_processed();
    }
    EXPECT_EQ(v, 0);
    EXPECT_TRUE(is.fail());
    is.exceptions(ios_base::eofbit); // the state is still failbit: no throw
    is.clear();
    char rest[8];
    EXPECT_THROW(is.read(rest, sizeof rest), ios_base::failure);
    EXPECT_TRUE(is.eof());
    EXPECT_EQ(is.gcount(), 1); // the "x" the failed extraction left
}

// A buffer that throws while the stream reads.
class throwing_buf : public uvt::streambuf {
protected:
    int_type underflow() override { ios_base::throwIOSFailure(__FILE__, __LINE__, "throwing_buf"); }
};

TEST(IstreamState, BufferExceptionsSetBadbitAndPassOnlyByTheMask)
{
    for (bool masked : {false, true}) {
        throwing_buf buf;
        uvt::istream is(&buf);
        is.exceptions(masked ? ios_base::badbit : ios_base::goodbit);
        int v = 5;
        try {
            is >> v;
            EXPECT_FALSE(masked);
        } catch (const ios_base::failure& e) {
            EXPECT_TRUE(masked);
            EXPECT_STREQ(e.what(), "throwing_buf");
            e.mark_processed();
        }
        EXPECT_TRUE(is.bad());
        EXPECT_EQ(v, 5);
    }
}

TEST(IstreamState, StringGrowthFailureIsABufferFailure)
{
    const std::string line(100, 'x');
    for (bool masked : {false, true}) {
        uvt_test::counting_allocator a;
        uvt::string s(a);
        uvt::istringstream is(line.data(), line.size(), a);
        is.exceptions(masked ? ios_base::badbit : ios_base::goodbit);
        a.fail_at(1, true);
        if (masked)
            EXPECT_THROW(is.getstring(s), uvt::bad_alloc);
        else
            is.getstring(s);
        a.fail_at(0);
        EXPECT_TRUE(is.bad());
        EXPECT_EQ(a.live_blocks(), 0u);
    }
}

struct sync_counting_buf : public uvt::streambuf {
    int syncs = 0;
    int sync() override { return ++syncs, 0; }
};

TEST(IstreamState, TiedStreamIsFlushedBeforeEveryExtraction)
{
    sync_counting_buf out;
    uvt::ostream tied(&out);
    const std::string text = "1 2";
    uvt::istringstream is(text.data(), text.size(), uvt::allocator::global_allocator());
    is.tie(&tied);
    int v;
    is >> v;
    is.get();
    is.peek();
    EXPECT_EQ(out.syncs, 3);
    EXPECT_EQ(is.tie(), &tied);
}

TEST(IstreamState, WsSkipsBlanksAndStopsAtTheEndWithoutFailing)
{
    const std::string text = " \t x  ";
    uvt::istringstream is(text.data(), text.size(), uvt::allocator::global_allocator());
    is >> uvt::ws;
    EXPECT_EQ(is.get(), 'x');
    is >> uvt::ws;
    EXPECT_TRUE(is.eof());
    EXPECT_FALSE(is.fail());
}

TEST(IstreamPositioning, TellgSeekgAndReadsomeLikeTheStandardStreams)
{
    const std::string text = "0123456789";
    uvt::istringstream is(text.data(), text.size(), uvt::allocator::global_allocator());
    std::istringstream ref(text);
    std::string log, expected;
    // One value per statement: the order of evaluation is then fixed.
    auto run = [](auto& s, std::string& out) {
        char buf[9];
        auto add = [&](auto v) { out += std::to_string(v) + state_of(s) + " "; };
        add(s.readsome(buf, 4));
        out += chars(buf, 4);
        add(s.tellg());
        s.seekg(-2, s.end);
        add(s.get());
        s.seekg(20);
        add(s.tellg());
        s.clear();
        s.seekg(0, s.end);
        add(s.get());
        add(s.tellg());
        s.clear();
        s.seekg(1);
        add(s.readsome(buf, 9));
        add(s.readsome(buf, 9));
    };
    run(is, log);
    run(ref, expected);
    EXPECT_EQ(log, expected);
}

} // namespace
