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

std::string text_of(const std::stringstream& s) { return s.str(); }

template <class Stream>
std::string state_of(const Stream& s)
{
    return std::string(s.good() ? "g" : "") + (s.eof() ? "e" : "") + (s.fail() ? "f" : "") + (s.bad() ? "b" : "");
}

TEST(Ostringstream, StrIsAStringOfTheStreamsAllocator)
{
    counting_allocator a;
    {
        uvt::ostringstream os(a);
        EXPECT_EQ(os.size(), 0u);
        EXPECT_EQ(a.attempts(), 0u) << "nothing allocated before the first write";
        EXPECT_EQ(os.str(), "");
        os << "value " << 17 << '!';
        const uvt::string s = os.str();
        EXPECT_EQ(s, "value 17!");
        EXPECT_EQ(&s.get_allocator(), &a);
        EXPECT_EQ(text_of(os), "value 17!");
    }
    EXPECT_EQ(a.live_blocks(), 0u);
}

// Growth at least doubles: appending a character at a time costs
// logarithmically many allocations, and the text stays intact.
TEST(Ostringstream, GrowthIsAmortisedAndKeepsTheText)
{
    counting_allocator a;
    uvt::ostringstream os(a);
    std::string expected;
    for (int i = 0; i < 100000; ++i) {
        os.put(static_cast<char>('a' + i % 26));
        expected += static_cast<char>('a' + i % 26);
    }
    os.write(expected.data(), 5000);
    expected.append(expected, 0, 5000);
    EXPECT_EQ(text_of(os), expected);
    EXPECT_LT(a.attempts(), 14u);
    EXPECT_EQ(a.live_blocks(), 1u);
}

// A failing growth drops what does not fit and sets badbit; nothing leaks
// and the text so far stays.
TEST(Ostringstream, AllocationFailureSweep)
{
    const std::string chunk(100, 'c');
    const unsigned long points = uvt_test::sweep_allocation_failures([&](counting_allocator& a) {
        uvt::ostringstream os(a);
        std::string expected;
        for (int i = 0; i < 20 && os.good(); ++i) {
            os << chunk.c_str() << i;
            if (os.good())
                expected += chunk + std::to_string(i);
        }
        if (!os.good())
            EXPECT_EQ(text_of(os).substr(0, expected.size()), expected);
        EXPECT_EQ(os.bad(), a.failures() > 0);
    });
    EXPECT_GT(points, 3u);
}

// The caller's characters are read in place: nothing is copied, allocated
// or ever written.
TEST(Istringstream, ReadsTheCallersCharactersInPlace)
{
    counting_allocator a;
    const char text[] = "ab";
    uvt::istringstream is(text, 2, a);
    EXPECT_EQ(is.rdbuf()->data(), text);
    EXPECT_EQ(is.get(), 'a');
    is.putback('z'); // a different character: refused
    EXPECT_TRUE(is.bad());
    is.clear();
    is.putback('a');
    EXPECT_TRUE(is.good());
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(is.str(), "ab");
    char rest[3] = {};
    is.read(rest, 2);
    EXPECT_STREQ(rest, "ab");
    EXPECT_EQ(is.rdbuf()->pubseekoff(1, ios_base::beg, ios_base::out), -1) << "a view has no output side";
    EXPECT_EQ(a.attempts(), 0u);
}

// Wide text written (narrow text widened) and read back as numbers and a
// word.
TEST(Istringstream, WideRoundTrip)
{
    uvt::wostringstream os(uvt::allocator::global_allocator());
    os << L"  " << -17 << L' ' << 2.5e3 << " word";
    uvt::wistringstream is(os.data(), os.size(), uvt::allocator::global_allocator());
    int i = 0;
    double d = 0;
    uvt::wstring w(uvt::allocator::global_allocator());
    is >> i >> d >> w;
    EXPECT_EQ(os.str(), L"  -17 2500 word");
    EXPECT_EQ(i * d, -42500.0);
    EXPECT_EQ(w, L"word");
    EXPECT_TRUE(is.eof());
}

// What is written is read back, and both positions move independently,
// like std::stringstream.
TEST(Stringstream, ReadsBackWhatWasWrittenLikeTheStandardStream)
{
    uvt::stringstream s(uvt::allocator::global_allocator());
    std::stringstream ref;
    std::string log, expected;
    auto run = [](auto& st, std::string& out) {
        int v = 0;
        st << 12 << ' ' << 34;
        st >> v;
        out += std::to_string(v) + " ";
        st << 5;
        st >> v;
        out += std::to_string(v) + " ";
        st >> v;
        out += std::to_string(v) + " " + state_of(st) + " ";
        st.clear();
        st.seekg(0);
        st >> v;
        out += std::to_string(v) + " ";
        st.unget();
        st.putback('9'); // writable: the character is replaced
        st >> v;
        out += std::to_string(v) + " " + std::to_string(st.tellg());
    };
    run(s, log);
    run(ref, expected);
    EXPECT_EQ(log, expected);
}

// Positions after writes, from the end and the current position, out of
// range (failbit, after which tellp answers -1), and after reading to the
// end (eofbit alone does not stop positioning, though it stops insertion).
TEST(Stringstream, TellpAndSeekpLikeTheStandardStream)
{
    auto run = [](auto& st, std::string& out) {
        auto add = [&](auto v) { out += std::to_string(v) + state_of(st) + " "; };
        add(st.tellp());
        st << "hello world";
        add(st.tellp());
        st.seekp(-5, st.end) << 'W';
        add(st.tellp());
        st.seekp(20);
        add(st.tellp());
        st.clear();
        for (char c; st.get(c);) {
        }
        st.clear(st.eofbit);
        add(st.seekp(1).tellp());
        st.clear();
        st << 'E';
        add(st.tellp());
        st.seekp(2, st.cur);
        add(st.tellp());
        st.seekp(-1, st.beg);
        add(st.tellp());
        out += text_of(st);
    };
    uvt::stringstream s(uvt::allocator::global_allocator());
    std::stringstream ref;
    std::string log, expected;
    run(s, log);
    run(ref, expected);
    EXPECT_EQ(log, expected);

    uvt::ostringstream os(uvt::allocator::global_allocator());
    os.exceptions(ios_base::failbit);
    EXPECT_THROW(os.seekp(1), ios_base::failure);
}

TEST(Stringbuf, SeekingTheOutputSideOverwritesAndKeepsTheEnd)
{
    uvt::ostringstream os(uvt::allocator::global_allocator());
    std::ostringstream ref;
    os << "hello world";
    ref << "hello world";
    EXPECT_EQ(os.rdbuf()->pubseekoff(-5, ios_base::end, ios_base::out), 6);
    ref.seekp(-5, std::ios_base::end);
    os << "W";
    ref << "W";
    EXPECT_EQ(os.rdbuf()->pubseekpos(20, ios_base::out), -1);
    EXPECT_EQ(text_of(os), ref.str());
}

} // namespace
