// basic_istream against std::istringstream as oracle: every case runs the
// same script of extractions on both and compares the transcripts (values,
// gcount and state after each step). The library streams read through a
// buffer that serves its text in chunks of 1, 3 or all characters, or
// without any get area, so that every refill path is crossed.

#include <uvt/ios>
#include <uvt/sstream>

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
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
        {ios_base::boolalpha, std::ios_base::boolalpha}, {ios_base::dec, std::ios_base::dec},
        {ios_base::hex, std::ios_base::hex},             {ios_base::oct, std::ios_base::oct},
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
    std::string out;
    out += s.good() ? "g" : "";
    out += s.eof() ? "e" : "";
    out += s.fail() ? "f" : "";
    out += s.bad() ? "b" : "";
    return out;
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
#define SCRIPT(line, input, body)                                                                    \
    script_case                                                                                      \
    {                                                                                                \
        line, input, [](uvt::istream& is, std::string& log) { body; },                               \
            [](std::istream& is, std::string& log) { body; }                                         \
    }

std::string chars(const char* s, std::streamsize n)
{
    return std::string(s, static_cast<std::size_t>(n));
}

const script_case unformatted_cases[] = {
    SCRIPT(__LINE__, "ab", {
        for (int i = 0; i < 4; ++i) {
            auto c = is.get();
            note(log, std::to_string(c), is);
        }
    }),
    SCRIPT(__LINE__, "xyz", {
        char c = '?';
        is.get(c);
        note(log, std::string(1, c), is);
        note(log, std::to_string(is.peek()), is);
        is.get(c).get(c).get(c);
        note(log, std::string(1, c), is);
        note(log, std::to_string(is.peek()), is);
    }),
    SCRIPT(__LINE__, "hello world", {
        char buf[8];
        is.read(buf, 5);
        note(log, chars(buf, is.gcount()), is);
        is.read(buf, 8);
        note(log, chars(buf, is.gcount()), is);
        is.read(buf, 1);
        note(log, chars(buf, is.gcount()), is);
    }),
    SCRIPT(__LINE__, "line one\nline two is long\n\nend", {
        char buf[10];
        for (int i = 0; i < 6; ++i) {
            is.getline(buf, sizeof buf);
            note(log, buf, is);
            is.clear(is.rdstate() & ~is.failbit);
        }
    }),
    SCRIPT(__LINE__, "123456789\nx", {
        char buf[10];
        is.getline(buf, 10);  // nine characters fit, the delimiter is taken
        note(log, buf, is);
        is.getline(buf, 10);
        note(log, buf, is);
    }),
    SCRIPT(__LINE__, "a;b;;c", {
        char buf[4];
        for (int i = 0; i < 5; ++i) {
            is.getline(buf, 4, ';');
            note(log, buf, is);
        }
    }),
    SCRIPT(__LINE__, "first\nsecond line\n", {
        char buf[6];
        is.get(buf, 6);
        note(log, buf, is);
        is.get(buf, 6);  // stops at the newline: nothing extracted
        note(log, buf, is);
        is.clear();
        note(log, std::to_string(is.get()), is);
        is.get(buf, 6, 'l');
        note(log, buf, is);
        is.get(buf, 0);
        note(log, "", is);
    }),
    SCRIPT(__LINE__, "skip these words|then", {
        is.ignore(5);
        note(log, std::string(1, char(is.peek())), is);
        is.ignore(100, '|');
        note(log, std::string(1, char(is.peek())), is);
        is.ignore(std::numeric_limits<std::streamsize>::max());
        note(log, "", is);
    }),
    SCRIPT(__LINE__, "abc", {
        is.ignore(2, 'z');
        note(log, "", is);
        is.ignore();
        is.ignore();
        note(log, "", is);
    }),
    SCRIPT(__LINE__, "", {
        char buf[4] = "zz";
        is.getline(buf, 4);
        note(log, buf, is);
        is.clear();
        note(log, std::to_string(is.peek()), is);
        is.clear();
        is.read(buf, 2);
        note(log, "", is);
    }),
    SCRIPT(__LINE__, "pq", {
        char c;
        is.get(c);
        is.putback('p');
        note(log, std::string(1, char(is.get())), is);
        is.unget();
        note(log, std::string(1, char(is.get())), is);
        is.get();
        is.get();  // end: eofbit and failbit
        is.clear(is.eofbit);
        is.unget();  // clears eofbit first
        note(log, std::string(1, char(is.get())), is);
    }),
};

template <class C>
std::basic_string<C> widen(const std::string& s)
{
    return std::basic_string<C>(s.begin(), s.end());
}

void run_script(const script_case& c, std::size_t chunk, std::string& uvt_log)
{
    chunk_buf<char> buf(c.input, chunk);
    uvt::istream is(&buf);
    c.run_uvt(is, uvt_log);
}

TEST(IstreamUnformatted, MatchesTheStandardStreamsOnEveryBuffering)
{
    for (const script_case& c : unformatted_cases) {
        std::istringstream ref(c.input);
        std::string expected;
        c.run_std(ref, expected);
        for (std::size_t chunk : {0, 1, 3, 1000}) {
            std::string log;
            run_script(c, chunk, log);
            EXPECT_EQ(log, expected) << "case at line " << c.line << ", chunk " << chunk;
        }
        uvt::istringstream view(c.input.data(), c.input.size(), uvt::allocator::global_allocator());
        std::string log;
        c.run_uvt(view, log);
        EXPECT_EQ(log, expected) << "case at line " << c.line << " on istringstream";
    }
}

} // namespace

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
void expect_extraction_like_standard(const std::string& text, ios_base::fmtflags flags, int line)
{
    std::istringstream ref(text);
    const std::string expected = extract_once<T>(ref, to_std_flags(flags));
    for (std::size_t chunk : {0, 1, 3, 1000}) {
        chunk_buf<char> buf(text, chunk);
        uvt::istream is(&buf);
        ASSERT_EQ(extract_once<T>(is, flags), expected)
            << "text \"" << text << "\" flags 0x" << std::hex << flags << std::dec << " chunk " << chunk
            << ", row at line " << line;
    }
    const std::wstring wide = widen<wchar_t>(text);
    uvt::wistringstream wis(wide.data(), wide.size(), uvt::allocator::global_allocator());
    ASSERT_EQ(extract_once<T>(wis, flags), expected) << "wide text \"" << text << "\", row at line " << line;
}

struct extraction_row {
    int line;
    const char* text;
};

const extraction_row integer_rows[] = {
    {__LINE__, "0"},          {__LINE__, "42"},          {__LINE__, "-42"},         {__LINE__, "+7 "},
    {__LINE__, " \t\n\v\f\r12"}, {__LINE__, "0x1f"},     {__LINE__, "0X1Fg"},       {__LINE__, "017"},
    {__LINE__, "08"},         {__LINE__, "0x"},          {__LINE__, "0xz"},         {__LINE__, "x1"},
    {__LINE__, "-"},          {__LINE__, "+"},           {__LINE__, ""},            {__LINE__, "   "},
    {__LINE__, "-1"},         {__LINE__, "-0"},          {__LINE__, "0000"},        {__LINE__, "00012"},
    {__LINE__, "ff"},         {__LINE__, "FFg"},         {__LINE__, "12abc"},       {__LINE__, "1 2"},
    {__LINE__, "1e5"},        {__LINE__, "- 5"},         {__LINE__, "-0x10"},       {__LINE__, "1.5"},
    {__LINE__, "127"},        {__LINE__, "128"},         {__LINE__, "-129"},        {__LINE__, "255"},
    {__LINE__, "32767"},      {__LINE__, "32768"},       {__LINE__, "-32768"},      {__LINE__, "-32769"},
    {__LINE__, "65535"},      {__LINE__, "65536"},       {__LINE__, "-65535"},      {__LINE__, "-65536"},
    {__LINE__, "2147483647"}, {__LINE__, "2147483648"},  {__LINE__, "-2147483648"}, {__LINE__, "-2147483649"},
    {__LINE__, "4294967295"}, {__LINE__, "4294967296"},  {__LINE__, "-4294967295"}, {__LINE__, "-4294967296"},
    {__LINE__, "9223372036854775807"},  {__LINE__, "9223372036854775808"},
    {__LINE__, "-9223372036854775808"}, {__LINE__, "-9223372036854775809"},
    {__LINE__, "18446744073709551615"}, {__LINE__, "18446744073709551616"},
    {__LINE__, "-18446744073709551615"}, {__LINE__, "-18446744073709551616"},
    {__LINE__, "99999999999999999999999999999x"}, {__LINE__, "0xffffffffffffffff"},
    {__LINE__, "0x10000000000000000"},  {__LINE__, "0777777777777777777777"},
    {__LINE__, "01777777777777777777777"}, {__LINE__, "02000000000000000000000"},
};

const ios_base::fmtflags integer_flags[] = {
    ios_base::dec | ios_base::skipws, ios_base::hex | ios_base::skipws, ios_base::oct | ios_base::skipws,
    ios_base::skipws, ios_base::dec,
};

template <class T>
void expect_integers_like_standard()
{
    for (ios_base::fmtflags flags : integer_flags)
        for (const extraction_row& row : integer_rows)
            expect_extraction_like_standard<T>(row.text, flags, row.line);
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
    const extraction_row rows[] = {
        {__LINE__, "0"},     {__LINE__, "1"},     {__LINE__, "2"},        {__LINE__, "-1"},     {__LINE__, "01"},
        {__LINE__, "true"},  {__LINE__, "false"}, {__LINE__, " true "},   {__LINE__, "tru"},    {__LINE__, "fals"},
        {__LINE__, "falsey"}, {__LINE__, "t"},    {__LINE__, "f"},        {__LINE__, "True"},   {__LINE__, ""},
        {__LINE__, "truefalse"}, {__LINE__, "x"}, {__LINE__, "trUe"},
    };
    for (const extraction_row& row : rows) {
        expect_extraction_like_standard<bool>(row.text, ios_base::skipws | ios_base::dec, row.line);
        expect_extraction_like_standard<bool>(row.text, ios_base::skipws | ios_base::boolalpha, row.line);
    }
}

// Decimal texts whose values the library's parser gives exactly, and
// every kind of malformed and out-of-range text.
TEST(IstreamNumbers, FloatingPointMatchesTheStandardStreams)
{
    const extraction_row rows[] = {
        {__LINE__, "0"},       {__LINE__, "-0"},        {__LINE__, "1.5"},      {__LINE__, "-2.25"},
        {__LINE__, ".5"},      {__LINE__, "5."},        {__LINE__, "."},        {__LINE__, "-."},
        {__LINE__, "+.e1"},    {__LINE__, "1e10"},      {__LINE__, "1E+3"},     {__LINE__, "2e-3"},
        {__LINE__, "1e"},      {__LINE__, "1e+"},       {__LINE__, "1e-x"},     {__LINE__, "1.5e3.5"},
        {__LINE__, "1..5"},    {__LINE__, "1e2e3"},     {__LINE__, "0.000001"}, {__LINE__, "  +3.75abc"},
        {__LINE__, "123456789012345678901234567890"},    {__LINE__, "0.000000000000000000000000000000125"},
        {__LINE__, "1e400"},   {__LINE__, "-1e400"},    {__LINE__, "1e-400"},   {__LINE__, "nan"},
        {__LINE__, "inf"},     {__LINE__, "0x1p3"},     {__LINE__, "1e99999999999999999"},
        {__LINE__, "-1e-99999999999999999"},           {__LINE__, "00000.00000125"},
        {__LINE__, "3.4028234663852886e38"},           {__LINE__, "3.5e38"}, {__LINE__, "-3.5e38"},
        {__LINE__, "1e-50"},   {__LINE__, "1.7976931348623157e308"}, {__LINE__, "1.8e308"},
        {__LINE__, "12345678901234567890e-10"},        {__LINE__, ""},       {__LINE__, "-"},
        {__LINE__, "e5"},      {__LINE__, "0e0"},       {__LINE__, "0.0e-999"}, {__LINE__, "1,5"},
    };
    for (const extraction_row& row : rows) {
        expect_extraction_like_standard<float>(row.text, ios_base::skipws, row.line);
        expect_extraction_like_standard<double>(row.text, ios_base::skipws, row.line);
        expect_extraction_like_standard<long double>(row.text, ios_base::skipws, row.line);
    }
}
