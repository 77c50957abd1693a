// basic_istream against std::istringstream as oracle: every case runs the
// same script of extractions on both and compares the transcripts (values,
// gcount and state after each step). The library streams read through a
// buffer that serves its text in chunks of 1, 3 or all characters, or
// without any get area, so that every refill path is crossed.

#include <uvt/ios>
#include <uvt/sstream>

#include <gtest/gtest.h>

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
