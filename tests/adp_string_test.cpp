// uvt_adp::basic_string: the standard-string surface against std::string,
// the adaptor allocator behind the allocator-less constructors, range
// errors, construction from library strings and views, and conversion
// between the widths.
#include "support/caught.h"
#include "support/test_allocator.h"

#include <uvt/adp/string>
#include <uvt/import>
#include <uvt/stdexcept>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using uvt_test::counting_allocator;

counting_allocator& adaptor_allocator()
{
    static counting_allocator a("adaptor");
    return a;
}

struct adaptor_host : uvt_extern::UvtImport {
    uvt::allocator* get_adaptor_allocator() override { return &adaptor_allocator(); }
};

} // namespace

extern "C" uvt_extern::UvtImport* get_uvt_import()
{
    static adaptor_host host;
    return &host;
}

namespace {

template <class S>
std::string text(const S& s)
{
    return std::string(s.data(), s.size());
}

int sign(int v) { return (v > 0) - (v < 0); }

// One step of a script that both string types run.
template <class S>
void run_step(S& s, int step)
{
    switch (step) {
    case 0:
        s = "The quick brown fox";
        break;
    case 1:
        s += " jumps over";
        break;
    case 2:
        s += '!';
        break;
    case 3:
        s.insert(4, "very ");
        break;
    case 4:
        s.replace(0, 3, "A");
        break;
    case 5:
        s.erase(1, 5);
        break;
    case 6:
        s.pop_back();
        break;
    case 7:
        s.append(S("0123456789"), 2, 3);
        break;
    case 8:
        s.append(std::size_t(40), '-');
        break;
    case 9:
        s = s.substr(2, 50);
        break;
    case 10:
        s[0] = 'X';
        break;
    case 11:
        s.assign(s, 3, 30);
        break;
    case 12:
        s.erase(10);
        break;
    case 13:
        s.insert(2, s);
        break;
    case 14:
        s.replace(3, 100, s.c_str() + 1, 4);
        break;
    case 15:
        s.insert(0, "<").append(">").replace(1, 2, "[").erase(3, 2);
        break;
    case 16:
        s = s.assign("chained").append(s, 2, 3).substr(1);
        break;
    case 17:
        s.erase();
        break;
    }
}

TEST(AdpString, StandardSurfaceAllocatorsViewsRangeErrorsAndConversions)
{
    uvt_adp::string mine;
    std::string model;
    for (int step = 0; step <= 17; ++step) {
        run_step(mine, step);
        run_step(model, step);
        ASSERT_EQ(text(mine), model) << "after step " << step;
        ASSERT_EQ(mine.find("o"), model.find("o"));
        if (model.size() >= 2)
            ASSERT_EQ(sign(mine.compare(2, 3, uvt_adp::string("ick"))), sign(model.compare(2, 3, "ick")));
    }
    EXPECT_EQ(adaptor_allocator().live_blocks(), 0u);

    // Constructors without allocator use the adaptor allocator.
    counting_allocator& a = adaptor_allocator();
    const unsigned long before = a.attempts();
    {
        const uvt_adp::string s(std::string(60, 'a').c_str());
        EXPECT_EQ(&s.get_allocator(), &a);
        EXPECT_EQ(a.live_blocks(), 1u);
        const uvt_adp::wstring w(5, L'w');
        EXPECT_EQ(&w.get_allocator(), &a);

        counting_allocator own;
        const uvt::string library(std::string(50, 'b').c_str(), own);
        const uvt_adp::string from_library(library);
        EXPECT_EQ(from_library.data(), library.data()) << "keeps the source's allocator and shares";
        const uvt_adp::string part = from_library.substr(40);
        EXPECT_EQ(&part.get_allocator(), &own);
        EXPECT_EQ(text(part), std::string(10, 'b'));
    }
    EXPECT_EQ(a.attempts(), before + 1);
    EXPECT_EQ(a.live_blocks(), 0u);

    // Views, and sums.
    static const char* const constant = "a constant text longer than thirty-nine characters";
    uvt_adp::string view = uvt::string_retval(constant);
    EXPECT_EQ(view.data(), constant);
    EXPECT_THROW(view.pop_back(), uvt::rvalue_error);
    EXPECT_THROW(view += "x", uvt::rvalue_error);
    EXPECT_EQ(view.substr(2, 8), "constant") << "a part of a view is an ordinary string";

    uvt_adp::string owner("owner");
    owner = uvt::string_retval(constant);
    EXPECT_NE(owner.data(), constant) << "a string that owns its storage copies a view";
    EXPECT_EQ(text(owner), constant);

    const uvt_adp::string left("left"), right("right");
    uvt_adp::string joined = left + ", " + right + '.';
    EXPECT_EQ(text(joined), "left, right.");
    joined += " " + left + right;
    EXPECT_EQ(text(joined), "left, right. leftright");

    // Positions out of range report the value and the bounds.
    const struct {
        const char* name;
        void (*operation)(uvt_adp::string& s);
        const char *idx, *beg, *end;
    } cases[] = {
        {"substr", [](uvt_adp::string& s) { (void)s.substr(6); }, "6", "0", "6"},
        {"erase", [](uvt_adp::string& s) { s.erase(7); }, "7", "0", "6"},
        {"insert", [](uvt_adp::string& s) { s.insert(9, "x"); }, "9", "0", "6"},
        {"replace", [](uvt_adp::string& s) { s.replace(6, 1, "x"); }, "6", "0", "6"},
        {"append", [](uvt_adp::string& s) { s.append(uvt_adp::string("ab"), 3); }, "3", "0", "3"},
        {"compare", [](uvt_adp::string& s) { (void)s.compare(8, 1, s); }, "8", "0", "6"},
        {"write", [](uvt_adp::string& s) { s[5] = 'x'; }, "5", "0", "5"},
        {"substring", [](uvt_adp::string& s) { uvt_adp::string part(s, 10); }, "10", "0", "6"},
        {"pop_back",
         [](uvt_adp::string& s) {
             s.erase();
             s.pop_back();
         },
         "-1", "0", "0"},
    };
    for (const auto& c : cases) {
        uvt_adp::string s("hello");
        const auto e = uvt_test::caught<uvt::out_of_range>([&] { c.operation(s); });
        EXPECT_STREQ(e.get_msgarg_by_name("IDX"), c.idx) << c.name;
        EXPECT_STREQ(e.get_msgarg_by_name("BEG"), c.beg) << c.name;
        EXPECT_STREQ(e.get_msgarg_by_name("END"), c.end) << c.name;
    }

    // Conversion between the widths.
    uvt_adp::string narrow("old");
    const wchar_t wide_units[] = {L'h', 0xE9, 0x20AC, 0xD800, 0};
    narrow.convert(wide_units, 4);
    EXPECT_EQ(text(narrow), "h\xc3\xa9\xe2\x82\xac@D8 00@");

    uvt_adp::wstring wide(L"old");
    wide.convert(uvt::string("h\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", uvt::allocator::global_allocator()));
    const std::wstring expected = {L'h', 0xE9, 0x20AC, 0xD83D, 0xDE00};
    EXPECT_EQ(std::wstring(wide.data(), wide.size()), expected);

    for (const char* bad : {"\x80", "ok\xc3", "\xbf\xbf"}) {
        EXPECT_THROW(wide.convert(bad, std::strlen(bad)), uvt::invalid_unicode_symbol) << bad;
        EXPECT_EQ(std::wstring(wide.data(), wide.size()), expected) << "unchanged";
    }
}

} // namespace
