// Standard streams: the prefix rule, the buffer sizes, input from descriptor
// 0, the host's stream provider; and the message-argument stream.

#include <uvt/import>
#include <uvt/iostream>
#include <uvt/stdexcept>
#include <uvt/strstream>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

// Points a descriptor at a fresh temporary file for the life of the object.
class redirected {
public:
    explicit redirected(int fd) : fd_(fd), saved_(::dup(fd)), file_(std::tmpfile()) { ::dup2(::fileno(file_), fd_); }
    ~redirected()
    {
        ::dup2(saved_, fd_);
        ::close(saved_);
        std::fclose(file_);
    }
    std::string text() const
    {
        std::string out(static_cast<std::size_t>(::lseek(::fileno(file_), 0, SEEK_END)), '\0');
        ::pread(::fileno(file_), out.data(), out.size(), 0);
        return out;
    }
    void fill(const std::string& s) const
    {
        ::pwrite(::fileno(file_), s.data(), s.size(), 0);
        ::lseek(fd_, 0, SEEK_SET);
    }

private:
    int fd_, saved_;
    std::FILE* file_;
};

const char* prefix_p(char*, unsigned long) { return "P"; }

// Installs a prefix function for the life of the object.
struct prefix_scope {
    explicit prefix_scope(uvt_extern::import::prefix_fn fn) : old(uvt_extern::import::set_standard_prefix(fn)) {}
    ~prefix_scope() { uvt_extern::import::set_standard_prefix(old); }
    uvt_extern::import::prefix_fn old;
};

// The host provides standard output only.
struct provider : uvt_extern::StdStreamProvider {
    uvt::basic_istream<char>* get_standard_input() override { return nullptr; }
    uvt::basic_ostream<char>* get_standard_output() override { return &out; }
    uvt::basic_ostream<char>* get_standard_error() override { return nullptr; }
    uvt::basic_ostream<char>* get_local_stream() override { return nullptr; }
    uvt::ostrstream out{uvt::allocator::global_allocator()};
};

struct host : uvt_extern::UvtImport {
    uvt_extern::StdStreamProvider* get_std_stream_provider() override { return &streams; }
    provider streams;
} the_host;

} // namespace

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &the_host; }

TEST(StdStreambuf, LinesGetThePrefixOnceWhateverTheFlushes)
{
    struct step {
        int line;
        bool prefix;
        std::vector<std::string> flushes;
        std::string expected;
    };
    const step steps[] = {
        {__LINE__, false, {"a\nb"}, "a\nb"},
        {__LINE__, true, {"a\nb\n"}, "P\ta\nP\tb\n"},
        {__LINE__, true, {"a", "b\n", "c"}, "P\tab\nP\tc"},
        {__LINE__, true, {"\n\n"}, "P\t\nP\t\n"},
    };
    for (const step& s : steps) {
        redirected out(1);
        prefix_scope prefix(s.prefix ? prefix_p : nullptr);
        {
            uvt::std_streambuf buf(uvt::std_streambuf::standard_output);
            uvt::basic_ostream<char> os(&buf);
            for (const std::string& piece : s.flushes)
                os << piece.c_str() << uvt::flush;
        }
        EXPECT_EQ(out.text(), s.expected) << "row of line " << s.line;
    }
}

TEST(StdStreambuf, OutputWaitsForAFullBufferErrorForTwoCharacters)
{
    redirected out(1), err(2);
    uvt::std_streambuf out_buf(uvt::std_streambuf::standard_output);
    uvt::std_streambuf err_buf(uvt::std_streambuf::standard_error);
    uvt::basic_ostream<char> out_stream(&out_buf), err_stream(&err_buf);
    const std::string block(1024, 'x');
    out_stream << block.c_str();
    err_stream << "abc";
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(err.text(), "ab");
    out_stream << 'y';
    EXPECT_EQ(out.text(), block);
}

TEST(StdStreambuf, InputReadsDescriptorZero)
{
    redirected in(0);
    in.fill("12 word\nrest");
    uvt::std_streambuf buf(uvt::std_streambuf::standard_input);
    uvt::basic_istream<char> is(&buf);
    int n = 0;
    char word[8] = {};
    is >> n >> word;
    EXPECT_EQ(n, 12);
    EXPECT_STREQ(word, "word");
    EXPECT_EQ(buf.in_avail(), 5);
}

TEST(StandardStreams, HostStreamsFirstOwnStreamsOtherwise)
{
    EXPECT_EQ(&uvt::getStandardOutput(), &the_host.streams.out);
    uvt::basic_istream<char>& in = uvt::getStandardInput();
    EXPECT_EQ(&in, &uvt::getStandardInput());
    EXPECT_NE(in.tie(), nullptr) << "own input is tied to own output";
    EXPECT_NE(in.tie(), &uvt::getStandardOutput());
    EXPECT_NE(&uvt::getStandardError(), &uvt::getLocalStream());
    auto* err = dynamic_cast<uvt::std_streambuf*>(uvt::getStandardError().rdbuf());
    ASSERT_NE(err, nullptr);
    EXPECT_EQ(err->name(), uvt::std_streambuf::standard_error);
}

TEST(MsgargStream, TextBecomesTheNamedArgument)
{
    uvt::msgarg_stream grown("LIST");
    grown << 1 << ", " << 2;
    uvt::out_of_range e(__FILE__, __LINE__, 7, 0, 5);
    e << grown;
    EXPECT_STREQ(e.get_msgarg_by_name("LIST"), "1, 2");
    e.mark_processed();

    char fixed[6];
    uvt::msgarg_stream bounded("B", fixed, sizeof fixed);
    bounded << "truncated";
    EXPECT_STREQ(bounded.c_str(), "trunc");
    EXPECT_TRUE(bounded.rdstate() & uvt::ios_base::badbit);

    char existing[] = "abcd";
    uvt::msgarg_stream sized_by_text("S", existing, 0);
    sized_by_text << 123456;
    EXPECT_STREQ(sized_by_text.c_str(), "1234");

    char large[64];
    uvt::msgarg_stream unbounded("U", large, -1);
    unbounded << "fits";
    EXPECT_STREQ(unbounded.c_str(), "fits");
}
