// String streams: growth through the given allocator, reading the caller's
// characters in place, positioning, and allocation failures.

#include "support/test_allocator.h"

#include <uvt/sstream>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using uvt::ios_base;
using uvt_test::counting_allocator;

template <class Stream>
std::string text_of(const Stream& s)
{
    return std::string(s.data(), s.size());
}

TEST(Ostringstream, StrIsAStringOfTheStreamsAllocator)
{
    counting_allocator a;
    {
        uvt::ostringstream os(a);
        EXPECT_EQ(os.size(), 0u);
        EXPECT_EQ(a.attempts(), 0u) << "nothing allocated before the first write";
        os << "value " << 17 << '!';
        const uvt::string s = os.str();
        EXPECT_EQ(s, "value 17!");
        EXPECT_EQ(&s.get_allocator(), &a);
        EXPECT_EQ(text_of(os), "value 17!");
    }
    EXPECT_EQ(a.live_blocks(), 0u);
}

TEST(Istringstream, ReadsTheCallersCharactersWithoutCopying)
{
    counting_allocator a;
    const std::string text = "alpha beta\ngamma";
    uvt::istringstream is(text.data(), text.size(), a);
    char word[16];
    is.read(word, 5);
    EXPECT_EQ(std::string(word, 5), "alpha");
    EXPECT_EQ(is.gcount(), 5);
    EXPECT_EQ(is.get(), ' ');
    is.getline(word, sizeof word);
    EXPECT_STREQ(word, "beta");
    EXPECT_EQ(is.peek(), 'g');
    EXPECT_EQ(a.attempts(), 0u);
    EXPECT_EQ(is.rdbuf()->data(), text.data());
}

} // namespace
