// strstreambuf / ostrstream: growth through the given allocator, and
// allocation failures at every point.

#include "support/caught.h"
#include "support/test_allocator.h"

#include <uvt/strstream>

#include <gtest/gtest.h>

#include <string>

namespace {

using uvt::ios_base;
using uvt_test::counting_allocator;

std::string text_of(const uvt::ostrstream& os) { return std::string(os.c_str(), os.size()); }

TEST(Strstream, GrowsThroughItsAllocatorAndReportsFailedGrowth)
{
    counting_allocator a;
    uvt::ostrstream os(a);
    EXPECT_STREQ(os.c_str(), "");
    EXPECT_EQ(os.size(), 0u);
    EXPECT_EQ(a.attempts(), 0u);
    EXPECT_EQ(&os.rdbuf()->get_allocator(), &a);
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        os << i << ',';
        expected += std::to_string(i) + ',';
    }
    os.write(std::string(5000, 'z').c_str(), 5000);
    expected += std::string(5000, 'z');
    EXPECT_EQ(text_of(os), expected);
    EXPECT_STREQ(os.str(), expected.c_str());
    EXPECT_EQ(a.live_blocks(), 1u);
    EXPECT_LT(a.attempts(), 12u) << "growth at least doubles";
    EXPECT_TRUE(os.good());

    // Each failing growth drops the characters that do not fit and sets badbit;
    // the stream neither leaks nor loses what it already had.
    const std::string chunk(100, 'c');
    const unsigned long points = uvt_test::sweep_allocation_failures(
        [&](counting_allocator& a) {
            uvt::ostrstream os(a);
            std::string kept;
            for (int i = 0; i < 10; ++i) {
                const bool good_before = os.good();
                os << chunk.c_str();
                if (good_before && os.good())
                    kept += chunk;
            }
            EXPECT_EQ(text_of(os).substr(0, kept.size()), kept);
            EXPECT_EQ(os.bad(), a.failures() > 0);
        },
        [](bool threw) { EXPECT_FALSE(threw) << "an empty exception mask never throws"; });
    EXPECT_GE(points, 3u);

    // A failed growth throws by the mask or reports eof.
    counting_allocator growth;
    uvt::ostrstream stream(growth);
    stream.exceptions(ios_base::badbit);
    stream << "kept";
    growth.fail_at(1, true);
    EXPECT_STREQ(uvt_test::caught<ios_base::failure>([&] { stream << std::string(300, 'x').c_str(); }).what(),
                 "basic_ios::clear");
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(text_of(stream).substr(0, 4), "kept");

    // The buffer alone reports end of file when it cannot grow.
    uvt::strstreambuf buf(growth);
    EXPECT_EQ(buf.sputc('a'), -1);
    EXPECT_EQ(buf.sputn("abc", 3), 0);
    EXPECT_STREQ(buf.c_str(), "");
}

} // namespace
