// buffer_stream: text in an inline buffer, and what happens when it is full.

#include "support/caught.h"

#include <uvt/ext/buffer_stream>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using uvt::ios_base;

TEST(BufferStream, GivesWhatWasWrittenTerminatedAndOverflowDropsTheRest)
{
    uvt::buffer_stream<64> os;
    EXPECT_STREQ(os.c_str(), "");
    EXPECT_EQ(os.size(), 0u);
    os << "id=" << uvt::hex << uvt::showbase << 255 << ' ' << uvt::setw(4) << 7;
    EXPECT_STREQ(os.c_str(), "id=0xff  0x7");
    EXPECT_EQ(os.size(), 12u);
    os.flush(); // terminates in place
    os << "!";
    EXPECT_STREQ(os.c_str(), "id=0xff  0x7!");
    EXPECT_TRUE(os.good());

    uvt::buffer_stream<2048> large;
    for (int i = 0; i < 20; ++i)
        large << std::string(100, 'q').c_str();
    EXPECT_EQ(large.size(), 2000u);
    EXPECT_EQ(std::strlen(large.c_str()), 2000u);
    EXPECT_TRUE(large.good());

    // N = 5 keeps 4 characters and the zero, N = 1 only the zero.
    for (uvt::streamsize written : {4, 5, 9}) {
        uvt::buffer_stream<5> five;
        five.write("abcdefghi", written);
        EXPECT_STREQ(five.c_str(), "abcd") << written;
        EXPECT_EQ(five.bad(), written > 4) << written;
    }
    uvt::buffer_stream<5> five;
    five << 1234 << 5 << "xyz";
    EXPECT_STREQ(five.c_str(), "1234");
    EXPECT_TRUE(five.bad());
    uvt::buffer_stream<1> one;
    one << 'x';
    EXPECT_STREQ(one.c_str(), "");
    EXPECT_TRUE(one.bad());

    uvt::buffer_stream<4> masked;
    masked.exceptions(ios_base::badbit);
    masked << "ab";
    const auto e = uvt_test::caught<ios_base::failure>([&] { masked << "cdef"; });
    EXPECT_STREQ(e.what(), "buffer_stream::overflow");
    EXPECT_EQ(e.error_no(), 1000087);
    EXPECT_TRUE(masked.bad());
    EXPECT_STREQ(masked.c_str(), "abc");
}

} // namespace
