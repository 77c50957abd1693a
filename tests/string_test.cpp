// uvt::basic_string: states and growth, sharing, read-only views, length
// checks, concatenation, allocation failures, concurrent release and output.
#include "support/caught.h"
#include "support/string_ostream.h"
#include "support/test_allocator.h"

#include <uvt/new>
#include <uvt/stdexcept>
#include <uvt/string>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using uvt_test::counting_allocator;

std::string text(const uvt::string& s) { return std::string(s.data(), s.size()); }

std::string repeat(std::size_t n, char c = 'x') { return std::string(n, c); }

TEST(StringStates, InlineGrowthShrinkAndSharingRulesAndConcurrentRelease)
{
    counting_allocator a;
    uvt::string s(repeat(39).c_str(), a);
    EXPECT_EQ(s.capacity(), 39u);
    EXPECT_EQ(a.attempts(), 0u) << "39 characters (9 wide ones) live inside the object";

    s.push_back('y');
    EXPECT_EQ(s.capacity(), 59u) << "39 + 19 + 1";
    EXPECT_EQ(a.last_size(), 59u + 9) << "count, characters, terminator";
    s.append(repeat(20).c_str());
    EXPECT_EQ(s.capacity(), 89u) << "59 needing 60 grows by half";
    EXPECT_EQ(a.live_blocks(), 1u);
    EXPECT_EQ(text(s), repeat(39) + "y" + repeat(20));

    uvt::string jump(a);
    jump.append(repeat(100).c_str());
    EXPECT_EQ(jump.capacity(), 100u) << "2 * 100 > 3 * 39: exactly the need";

    uvt::wstring w(L"123456789", a);
    EXPECT_EQ(w.capacity(), 9u);
    w.push_back(L'0');
    EXPECT_EQ(w.capacity(), 14u);
    EXPECT_EQ(a.last_size(), (14u + 3) * 4) << "the count takes two units";
    EXPECT_STREQ(w.c_str(), L"1234567890");

    // shrink_to_fit returns inline or to an exact block.
    uvt::string shrunk(repeat(80).c_str(), a);
    shrunk.reserve(200);
    EXPECT_EQ(shrunk.capacity(), 200u);
    shrunk.shrink_to_fit();
    EXPECT_EQ(shrunk.capacity(), 80u);
    shrunk.replace(10, 70, "");
    shrunk.shrink_to_fit();
    EXPECT_EQ(shrunk.capacity(), 39u);
    EXPECT_EQ(text(shrunk), repeat(10));

    // Copies share until one changes.
    counting_allocator sharing;
    uvt::string first(repeat(50).c_str(), sharing);
    uvt::string copy(first);
    EXPECT_EQ(copy.data(), first.data());
    EXPECT_TRUE(first.is_shared());
    EXPECT_EQ(sharing.live_blocks(), 1u);

    copy[0] = 'C';
    EXPECT_NE(copy.data(), first.data());
    EXPECT_EQ(text(first), repeat(50));
    EXPECT_EQ(text(copy), "C" + repeat(49));
    EXPECT_EQ(copy.capacity(), 50u) << "a private copy is never larger than needed";
    EXPECT_FALSE(first.is_shared());
    EXPECT_EQ(sharing.live_blocks(), 2u);

    // A shared block with room to spare is still not written in place.
    uvt::string roomy(repeat(50).c_str(), sharing);
    roomy.reserve(80);
    uvt::string appended(roomy);
    appended.push_back('!');
    EXPECT_STREQ(roomy.c_str(), repeat(50).c_str()) << "terminator and size untouched";
    roomy.push_back('?');
    EXPECT_EQ(roomy.capacity(), 80u) << "a private block with room is written in place";
    EXPECT_EQ(text(appended), repeat(50) + "!");

    // Shortening a shared block moves to private storage of the new length.
    uvt::string to_inline(first), to_block(first);
    to_inline.replace(10, 40, "");
    EXPECT_EQ(to_inline.capacity(), 39u);
    EXPECT_EQ(text(to_inline), repeat(10));
    to_block.replace(0, 5, "");
    EXPECT_EQ(to_block.capacity(), 45u);
    EXPECT_EQ(text(first), repeat(50));

    // Assignment shares only with the same allocator.
    counting_allocator one, another;
    const uvt::string source(repeat(60).c_str(), one);
    uvt::string same(one), other(another), short_target(one);
    same = source;
    other = source;
    EXPECT_EQ(same.data(), source.data());
    EXPECT_NE(other.data(), source.data());
    EXPECT_EQ(&other.get_allocator(), &another);
    EXPECT_EQ(another.live_blocks(), 1u);

    const uvt::string copied(source, another);
    EXPECT_NE(copied.data(), source.data());
    EXPECT_EQ(text(copied), repeat(60));

    uvt::string heap_target(repeat(70).c_str(), one);
    heap_target = uvt::string("short", one);
    EXPECT_EQ(heap_target.capacity(), 39u) << "a short source is always copied inline";
    EXPECT_EQ(one.live_blocks(), 1u);

    // Copies of one block released on several threads at once: the count is
    // atomic and exactly one release frees the block.
    counting_allocator released;
    {
        const uvt::string shared(repeat(100).c_str(), released);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&shared] {
                for (int i = 0; i < 2000; ++i) {
                    uvt::string copy(shared);
                    uvt::string other(copy);
                    if (i % 100 == 0)
                        other.push_back('!'); // makes a private block
                    ASSERT_EQ(copy.size(), 100u);
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_FALSE(shared.is_shared());
        EXPECT_EQ(released.live_blocks(), 1u);
    }
    EXPECT_EQ(released.live_blocks(), 0u);
}

const char* const long_literal = "0123456789012345678901234567890123456789012345678901234567890123456789"
                                 "0123456789012345678901234567890123456789012345678901234567890123456789";

std::string rvalue_text_of(const std::function<void()>& change)
{
    return uvt_test::caught<uvt::rvalue_error>(change).get_msgarg_by_name("STR");
}

// Random operations on a pool of strings over two allocators, compared after
// every step with the same operations on std::string. Copies, self-appends,
// own substrings and swaps exercise sharing and aliasing.
TEST(StringModel, RandomOperationsMatchStdStringAndViewsRefuseEveryChange)
{
    counting_allocator a, b;
    {
        std::mt19937 rng(12345);
        auto pick = [&](std::size_t n) { return static_cast<std::size_t>(rng() % n); };
        const std::string letters = repeat(40, 'a') + repeat(40, 'b') + "0123456789";
        std::vector<uvt::string> mine;
        std::vector<std::string> model;
        for (int i = 0; i < 6; ++i) {
            mine.emplace_back(i % 2 ? a : b);
            model.emplace_back();
        }
        for (int step = 0; step < 20000; ++step) {
            const std::size_t i = pick(mine.size()), j = pick(mine.size());
            const std::size_t pos = pick(model[i].size() + 1), len = pick(60);
            const std::string piece = letters.substr(pick(letters.size()), len);
            switch (pick(9)) {
            case 0:
                mine[i].append(piece.data(), piece.size());
                model[i] += piece;
                break;
            case 1:
                mine[i].append(mine[j]);
                model[i] += model[j];
                break;
            case 2:
                mine[i] = mine[j];
                model[i] = model[j];
                break;
            case 3: {
                const std::size_t from = pos / 2, n = std::min(len / 4, model[i].size() - from);
                mine[i].insert(pos, mine[i].data() + from, n);
                model[i].insert(pos, model[i].substr(from, n));
                break;
            }
            case 4:
                mine[i].replace(pos, len, piece.c_str());
                model[i].replace(pos, len, piece);
                break;
            case 5:
                mine[i].replace(pos, len, "");
                model[i].erase(pos, len);
                break;
            case 6:
                mine[i].push_back('z');
                model[i].push_back('z');
                break;
            case 7:
                mine[i].swap(mine[j]);
                model[i].swap(model[j]);
                break;
            case 8: {
                const std::size_t from = pick(model[j].size() + 1);
                mine[i].assign(mine[j], from, len);
                model[i] = model[j].substr(from, len);
                break;
            }
            }
            for (std::size_t k = 0; k < mine.size(); ++k) {
                ASSERT_EQ(text(mine[k]), model[k]) << "step " << step;
                ASSERT_EQ(mine[k].c_str()[mine[k].size()], '\0');
                ASSERT_GE(mine[k].capacity(), mine[k].size());
            }
        }
    }
    EXPECT_EQ(a.live_blocks() + b.live_blocks(), 0u);

    // Find and compare against the model.
    const std::string hay = "abcabcabd" + repeat(50, 'q') + "abd";
    const uvt::string s(hay.c_str(), uvt::allocator::global_allocator());
    for (const char* needle : {"abd", "abc", "q", "", "qa", "dq", "zz", "abdx"})
        for (std::size_t pos : {0ul, 1ul, 5ul, 59ul, 62ul, 63ul, 100ul})
            EXPECT_EQ(s.find(needle, pos), hay.find(needle, pos)) << needle << " from " << pos;
    EXPECT_EQ(s.find('d', 9), hay.find('d', 9));
    for (const char* other : {"abc", "abcabcabd", "b", ""})
        EXPECT_EQ(s.compare(other) < 0, hay.compare(other) < 0) << other;
    EXPECT_TRUE(s == hay.c_str());
    EXPECT_TRUE(uvt::string("a", uvt::allocator::global_allocator()) < s);

    // Views show the text without copying and refuse every change, reporting
    // the text cut to 127 characters.
    const uvt::string view{uvt::string_retval(long_literal)};
    EXPECT_EQ(view.data(), long_literal);
    EXPECT_TRUE(view.is_rvalue());
    EXPECT_EQ(view.capacity(), ~std::size_t(0));
    EXPECT_EQ(&view.get_allocator(), &uvt::allocator::null_allocator());

    const uvt::string copy(view);
    EXPECT_EQ(copy.data(), long_literal) << "copies of a view are views";

    const uvt::string empty{uvt::string_retval(nullptr)};
    const uvt::string empty_copy(empty);
    EXPECT_STREQ(empty_copy.c_str(), "");
    EXPECT_NE(empty_copy.c_str(), empty.c_str()) << "each empty view points into itself";

    uvt::string target{uvt::string_retval("a view")};
    target = view;
    EXPECT_EQ(target.data(), long_literal) << "a view takes a longer view's text";

    // Every change of a view is refused with the text cut to 127 characters.
    counting_allocator views;
    uvt::string other(repeat(50).c_str(), views);
    const std::vector<std::function<void()>> changes = {
        [&] { target = other; },
        [&] { target = "short"; },
        [&] { target.append("x"); },
        [&] { target.push_back('x'); },
        [&] { target.insert(0, "x"); },
        [&] { target.replace(0, 1, "x"); },
        [&] { target[0] = 'x'; },
        [&] { target.clear(); },
        [&] { target.reserve(500); },
        [&] { target.swap(other); },
        [&] { other.swap(target); },
        [&] { target = other + "x"; },
        [&] { target.append(other + "x"); },
    };
    for (std::size_t k = 0; k < changes.size(); ++k)
        EXPECT_EQ(rvalue_text_of(changes[k]), std::string(long_literal, 127)) << "change " << k;
    EXPECT_EQ(target.data(), long_literal);
    EXPECT_EQ(text(other), repeat(50));
    EXPECT_EQ(views.live_blocks(), 1u) << "nothing allocated for a refused change";

    uvt::wstring wide{uvt::wstring_retval(L"a\u00e9\u20acz")};
    EXPECT_EQ(rvalue_text_of([&] { wide.push_back(L'x'); }), "a\xe9?z") << "units above 0xFF as question marks";
}

TEST(StringLengthsAndSums, ImpossibleLengthsThrowFirstAndSumsAllocateOnce)
{
    counting_allocator a;
    uvt::string s("abc", a);
    uvt::wstring w(L"abc", a);
    const auto huge = std::size_t(PTRDIFF_MAX);
    EXPECT_THROW(s.append("x", std::size_t(-1)), uvt::underflow_error);
    EXPECT_THROW(s.insert(1, "x", std::size_t(-5)), uvt::underflow_error);
    EXPECT_THROW(s.append("x", huge - 5), uvt::overflow_error);
    EXPECT_THROW(s.reserve(huge), uvt::overflow_error);
    EXPECT_THROW(w.append(L"x", huge - 1), uvt::overflow_error);
    EXPECT_THROW(w.append(L"x", 0x4000000000000000ull), uvt::bad_alloc);
    EXPECT_THROW(w.reserve(0x3FFFFFFFFFFFFFFDull), uvt::bad_alloc);
    EXPECT_EQ(a.attempts(), 0u);
    EXPECT_STREQ(s.c_str(), "abc");
    using uvt_test::caught;
    EXPECT_STREQ(caught<uvt::underflow_error>([&] { s.append("x", std::size_t(-1)); }).what(),
                 "uvt::string integer underflow");
    EXPECT_STREQ(caught<uvt::overflow_error>([&] { s.append("x", huge); }).what(), "uvt::string integer overflow");

    // Positions beyond the end are out of range.
    const auto e = caught<uvt::out_of_range>([&] { s.insert(4, "x"); });
    EXPECT_STREQ(e.get_msgarg_by_name("IDX"), "4");
    EXPECT_STREQ(e.get_msgarg_by_name("END"), "4");
    EXPECT_THROW(s[3] = 'x', uvt::out_of_range);
    EXPECT_EQ(std::as_const(s)[3], '\0');

    // A sum builds its result with one allocation, even from the target itself.
    counting_allocator sums;
    const uvt::string left(repeat(30, 'l').c_str(), sums), right(repeat(30, 'r').c_str(), sums);
    EXPECT_EQ(sums.attempts(), 0u);

    const uvt::string sum(left + "-" + right + '!' + left, sums);
    EXPECT_EQ(sums.attempts(), 1u);
    EXPECT_EQ(sum.capacity(), 92u) << "reserved exactly";
    EXPECT_EQ(text(sum), text(left) + "-" + text(right) + "!" + text(left));

    uvt::string target(repeat(45).c_str(), sums);
    const unsigned long before = sums.attempts();
    target = left + right;
    EXPECT_EQ(sums.attempts(), before + 1) << "built once, then shared";
    EXPECT_EQ(text(target), text(left) + text(right));

    // A string may appear in its own sum.
    uvt::string self(repeat(30).c_str(), sums);
    self = self + "|" + self;
    EXPECT_EQ(text(self), repeat(30) + "|" + repeat(30));
    self.append('<' + self + '>');
    EXPECT_EQ(text(self), repeat(30) + "|" + repeat(30) + "<" + repeat(30) + "|" + repeat(30) + ">");
    uvt::wstring wide(L"ab", sums);
    wide.append(wide + L"c" + L'd');
    EXPECT_STREQ(wide.c_str(), L"ababcd");

    // A sum that views the target's own characters: growing the target frees
    // its block before the operands are read, unless the sum is built first.
    const uvt::string prefix("<", sums);
    for (std::size_t length : {20ul, 39ul, 50ul}) {
        uvt::string t(repeat(length).c_str(), sums);
        t.shrink_to_fit();
        const std::string before = text(t);
        t.append(prefix + (t.c_str() + 1) + '>');
        EXPECT_EQ(text(t), before + "<" + before.substr(1) + ">") << length;
    }
}

// Each operation runs with every one of its allocations failing in turn:
// the string must be unchanged after a failure, and nothing may leak.
TEST(StringFailuresAndOutput, FailedOperationsLeaveTheStringAndOutputIsOneField)
{
    using op = std::function<void(uvt::string & target, const uvt::string& other)>;
    const std::vector<std::pair<const char*, op>> operations = {
        {"append", [](uvt::string& t, const uvt::string&) { t.append(repeat(80).c_str()); }},
        {"push_back", [](uvt::string& t, const uvt::string&) { t.push_back('p'); }},
        {"insert", [](uvt::string& t, const uvt::string& o) { t.insert(3, o); }},
        {"replace", [](uvt::string& t, const uvt::string&) { t.replace(1, 2, repeat(70).c_str()); }},
        {"assign", [](uvt::string& t, const uvt::string& o) { t.assign(o, 5, 60); }},
        {"reserve", [](uvt::string& t, const uvt::string&) { t.reserve(300); }},
        {"erase", [](uvt::string& t, const uvt::string&) { t.replace(0, 2, ""); }},
        {"write", [](uvt::string& t, const uvt::string&) { t[0] = 'w'; }},
        {"concatenate", [](uvt::string& t, const uvt::string& o) { t = o + "+" + t; }},
        {"append sum", [](uvt::string& t, const uvt::string& o) { t.append(o + t); }},
    };
    for (const auto& [name, operation] : operations) {
        unsigned long points = 0;
        for (std::size_t length : {39ul, 59ul}) {
            points += uvt_test::sweep_allocation_failures([&](counting_allocator& a) {
                const uvt::string other(repeat(66, 'o').c_str(), a);
                uvt::string target(repeat(length, 't').c_str(), a);
                const uvt::string shares_target(target);
                const std::string before = text(target);
                try {
                    operation(target, other);
                } catch (const uvt::bad_alloc&) {
                    EXPECT_EQ(text(target), before) << name;
                    EXPECT_EQ(target.capacity(), length) << name;
                    throw;
                }
                EXPECT_EQ(text(shares_target), before) << name;
            });
        }
        EXPECT_GE(points, 3u) << name << ": the targets and the operation allocate";
    }

    // Narrow and wide strings are written as one field.
    uvt::allocator& a = uvt::allocator::global_allocator();
    uvt_test::string_ostream os;
    os << uvt::setw(6) << uvt::string("ab", a) << '|' << uvt::left << uvt::setw(5) << uvt::wstring(L"\u00e9", a) << '|';
    EXPECT_EQ(os.str(), "    ab|\xc3\xa9   |");

    os.clear_text();
    const wchar_t units[] = {L'a', 0xD800, 0xDC00, 0xFFFF, 0x1F600, L'z', 0};
    os << uvt::wstring(units, a);
    EXPECT_EQ(os.str(), "a@D8 00@\xed\xb0\x80\xef\xbf\xbf\xef\x98\x80z") << "units are taken one by one, low 16 bits";

    os.clear_text();
    os << uvt::string("x", a) + "y" + 'z' << ' ' << uvt::wstring(L"w", a) + L"v";
    os << uvt::cstring_ptr::literal("!") << uvt::wcstring_ptr(L"\u00fc", a);
    EXPECT_EQ(os.str(), "xyz wv!\xc3\xbc");
    os << uvt::wcstring_ptr();
    EXPECT_TRUE(os.bad());
}

} // namespace
