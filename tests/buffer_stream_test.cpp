// buffer_stream: text in an inline buffer, and what happens when it is full.

#include <uvt/ext/buffer_stream>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using uvt::ios_base;

TEST(BufferStream, GivesWhatWasWrittenTerminated)
{
    uvt::buffer_stream<64> os;
    EXPECT_STREQ(os.c_str(), "");
    EXPECT_EQ(os.size(), 0u);
    os << "id=" << uvt::hex << uvt::showbase << 255 << ' ' << uvt::setw(4) << 7;
    EXPECT_STREQ(os.c_str(), "id=0xff  0x7");
    EXPECT_EQ(os.size(), 12u);
    os << "!";
    EXPECT_STREQ(os.c_str(), "id=0xff  0x7!");
    EXPECT_TRUE(os.good());
}

TEST(BufferStream, SyncTerminatesInPlace)
{
    uvt::buffer_stream<8> os;
    os << "abc";
    os.flush();
    EXPECT_STREQ(static_cast<const char*>(os.c_str()), "abc");
    EXPECT_TRUE(os.good());
}

struct overflow_row {
    int line;
    std::size_t written; // characters offered in one write
    const char* kept;
};

// N = 5 keeps 4 characters and the zero.
TEST(BufferStream, OverflowDropsTheRestAndSetsBadbit)
{
    const overflow_row rows[] = {
        {__LINE__, 4, "abcd"},
        {__LINE__, 5, "abcd"},
        {__LINE__, 9, "abcd"},
    };
    for (const auto& r : rows) {
        uvt::buffer_stream<5> os;
        os.write("abcdefghi", static_cast<uvt::streamsize>(r.written));
        EXPECT_STREQ(os.c_str(), r.kept) << "row at line " << r.line;
        EXPECT_EQ(os.bad(), r.written > 4) << "row at line " << r.line;
    }
    uvt::buffer_stream<5> os;
    os << 1234 << 5 << "xyz";
    EXPECT_STREQ(os.c_str(), "1234");
    EXPECT_TRUE(os.bad());
}

TEST(BufferStream, SizeOneHoldsOnlyTheTerminator)
{
    uvt::buffer_stream<1> os;
    os << 'x';
    EXPECT_STREQ(os.c_str(), "");
    EXPECT_TRUE(os.bad());
}

TEST(BufferStream, OverflowThrowsItsOwnFailureWhenTheMaskAsksForBadbit)
{
    uvt::buffer_stream<4> os;
    os.exceptions(ios_base::badbit);
    os << "ab";
    try {
        os << "cdef";
        FAIL() << "no exception";
    } catch (const ios_base::failure& e) {
        EXPECT_STREQ(e.what(), "buffer_stream::overflow");
        EXPECT_EQ(e.error_no(), 1000087);
        e.mark_processed();
    }
    EXPECT_TRUE(os.bad());
    EXPECT_STREQ(os.c_str(), "abc");
}

TEST(BufferStream, LargeBufferTakesLongText)
{
    uvt::buffer_stream<2048> os;
    const std::string line(100, 'q');
    for (int i = 0; i < 20; ++i)
        os << line.c_str();
    EXPECT_EQ(os.size(), 2000u);
    EXPECT_EQ(std::strlen(os.c_str()), 2000u);
    EXPECT_TRUE(os.good());
}

} // namespace
