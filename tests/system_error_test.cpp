// Error codes, conditions, categories, their texts and printing, and
// system_error.
#include "support/test_allocator.h"

#include <uvt/impl/error_code>
#include <uvt/ios>
#include <uvt/string>
#include <uvt/strstream>
#include <uvt/system_error>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using uvt::error_code;
using uvt::error_condition;
using uvt::generic_category;
using uvt::iostream_category;
using uvt::system_category;

std::string text(const uvt::string& s) { return std::string(s.data(), s.size()); }

// Each category's name and texts: the platform's viewed without copying,
// and the iostream category's own for its one code.
// A category without a name, to exercise the null-text path of printing.
class nameless_category : public uvt::error_category {
public:
    const char* name() const noexcept override { return nullptr; }
};

TEST(SystemError, CategoriesCodesAndTheExceptionsMessage)
{
    const struct {
        const uvt::error_category& category;
        const char* name;
        int code;
        std::string message;
    } rows[] = {
        {generic_category(), "generic", 2, std::strerror(2)},
        {system_category(), "system", 13, std::strerror(13)},
        {iostream_category(), "iostream", 1, "iostream stream error"},
        {iostream_category(), "iostream", 2, std::strerror(2)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_STREQ(row.category.name(), row.name);
        const uvt::string message = row.category.message(row.code);
        EXPECT_EQ(text(message), row.message);
        EXPECT_TRUE(message.is_rvalue());
    }
    EXPECT_EQ(text(error_condition(1, iostream_category()).message()), "iostream stream error");
    EXPECT_EQ(&generic_category(), &generic_category());
    EXPECT_TRUE(generic_category() == generic_category());
    EXPECT_FALSE(generic_category() == system_category());

    // Equivalence compares the category object and the value.
    const struct {
        const uvt::error_category& category;
        int code;
        error_condition condition;
        bool holds;
    } cases[] = {
        {generic_category(), 7, error_condition(7, generic_category()), true},
        {generic_category(), 7, error_condition(7, system_category()), false},
        {generic_category(), 7, error_condition(8, generic_category()), false},
        {iostream_category(), 1, error_condition(1, iostream_category()), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(c.category.equivalent(c.code, c.condition), c.holds);
    }

    EXPECT_TRUE(system_category().equivalent(error_code(5, system_category()), 5));
    EXPECT_FALSE(system_category().equivalent(error_code(5, generic_category()), 5));
    EXPECT_FALSE(system_category().equivalent(error_code(5, system_category()), 6));
    EXPECT_EQ(system_category().default_error_condition(3), error_condition(3, system_category()));

    // Error codes: cleared ones are the empty error, made ones have their category.
    error_code ec;
    EXPECT_FALSE(ec.is_valid());
    EXPECT_STREQ(ec.text(), "Default constructed empty exception object");

    error_code other(5, system_category());
    EXPECT_STREQ(other.text(), "system");
    EXPECT_TRUE(other.is_valid());
    other.clear();
    EXPECT_EQ(other, ec);
    EXPECT_STREQ(other.text(), "Default constructed empty exception object");

    other.assign(1, iostream_category());
    EXPECT_STREQ(other.text(), "iostream");
    EXPECT_EQ(other.default_error_condition(), error_condition(1, iostream_category()));

    // The make functions pick the category.
    EXPECT_EQ(uvt::make_error_code(uvt::errc::io_error), error_code(EIO, generic_category()));
    EXPECT_EQ(uvt::make_error_code(uvt::io_errc::stream), error_code(1, iostream_category()));
    EXPECT_EQ(uvt::make_error_condition(uvt::errc::not_enough_memory), error_condition(ENOMEM, generic_category()));
    EXPECT_EQ(uvt::make_error_condition(uvt::io_errc::stream), error_condition(1, iostream_category()));

    // "text:value", the value unsigned in octal and hex; a null text sets badbit.
    static const nameless_category nameless;
    const struct {
        error_code code;
        uvt::ios_base::fmtflags base;
        const char* text;
        bool bad;
    } printed[] = {
        {error_code(-1, generic_category()), uvt::ios_base::dec, "generic:-1", false},
        {error_code(-1, generic_category()), uvt::ios_base::hex, "generic:ffffffff", false},
        {error_code(-1, generic_category()), uvt::ios_base::oct, "generic:37777777777", false},
        {error_code(255, system_category()), uvt::ios_base::hex, "system:ff", false},
        {uvt__ERR_UVT_OUTOFRANGE(), uvt::ios_base::dec, "Index $IDX$ out of range [$BEG$, $END$):1000003", false},
        {error_code(7, nameless), uvt::ios_base::dec, nullptr, true},
    };
    for (const auto& row : printed) {
        uvt::ostrstream os(uvt::allocator::global_allocator());
        os.setf(row.base, uvt::ios_base::basefield);
        os << row.code;
        EXPECT_EQ(os.bad(), row.bad) << row.code.value();
        if (row.text)
            EXPECT_STREQ(os.c_str(), row.text);
    }

    // system_error carries the value with the category name or a copied text as
    // its message.
    try {
        uvt::tThrow(uvt::system_error("f.cpp", 12, 2, system_category()));
    } catch (const uvt::runtime_error& e) {
        EXPECT_EQ(e.error_no(), 2);
        EXPECT_STREQ(e.what(), "system");
        EXPECT_EQ(e.line(), 12);
        EXPECT_NE(dynamic_cast<const uvt::system_error*>(&e), nullptr);
        e.mark_processed();
    }
    EXPECT_EQ(uvt::system_error::type_number, 31);

    // The texts are temporaries in heap blocks: the exceptions must keep
    // copies, not the strings' characters.
    const std::string what = "cannot open $PATH$ " + std::string(40, '.');
    uvt_test::counting_allocator a;
    const uvt::system_error by_code(__FILE__, __LINE__, error_code(5, system_category()), uvt::string(what.c_str(), a));
    const uvt::system_error by_value(__FILE__, __LINE__, 6, system_category(), uvt::string(what.c_str(), a));
    EXPECT_EQ(a.live_blocks(), 0u);
    EXPECT_EQ(by_code.error_no(), 5);
    EXPECT_EQ(by_value.error_no(), 6);
    EXPECT_EQ(by_code.what(), what);
    EXPECT_EQ(by_value.what(), what);
}

} // namespace
