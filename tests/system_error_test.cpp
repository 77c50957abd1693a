// Error codes, conditions, categories, their printing and system_error.
#include <uvt/impl/error_code>
#include <uvt/ios>
#include <uvt/strstream>
#include <uvt/system_error>

#include <gtest/gtest.h>

#include <string>

namespace {

using uvt::error_code;
using uvt::error_condition;
using uvt::generic_category;
using uvt::iostream_category;
using uvt::system_category;

// A category without a name, to exercise the null-text path of printing.
class nameless_category : public uvt::error_category {
public:
    const char* name() const noexcept override { return nullptr; }
};

struct printed {
    std::string text;
    bool bad;
};

template <class Manip>
printed print(const error_code& ec, Manip manip)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    os << manip << ec;
    return {os.c_str(), os.bad()};
}

TEST(ErrorCategory, NamesAndIdentity)
{
    EXPECT_STREQ(generic_category().name(), "generic");
    EXPECT_STREQ(system_category().name(), "system");
    EXPECT_STREQ(iostream_category().name(), "iostream");
    EXPECT_EQ(&generic_category(), &generic_category());
    EXPECT_TRUE(generic_category() == generic_category());
    EXPECT_FALSE(generic_category() == system_category());
}

TEST(ErrorCategory, EquivalenceComparesCategoryObjectAndValue)
{
    struct Row {
        const uvt::error_category& category;
        int code;
        error_condition condition;
        bool equivalent;
    } rows[] = {
        {generic_category(), 7, error_condition(7, generic_category()), true},
        {generic_category(), 7, error_condition(7, system_category()), false},
        {generic_category(), 7, error_condition(8, generic_category()), false},
        {iostream_category(), 1, error_condition(1, iostream_category()), true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.code);
        EXPECT_EQ(r.category.equivalent(r.code, r.condition), r.equivalent);
    }

    EXPECT_TRUE(system_category().equivalent(error_code(5, system_category()), 5));
    EXPECT_FALSE(system_category().equivalent(error_code(5, generic_category()), 5));
    EXPECT_FALSE(system_category().equivalent(error_code(5, system_category()), 6));
    EXPECT_EQ(system_category().default_error_condition(3), error_condition(3, system_category()));
}

TEST(ErrorCode, DefaultAndClearedCodesAreTheEmptyError)
{
    error_code ec;
    EXPECT_EQ(ec.value(), 0);
    EXPECT_FALSE(ec.is_valid());
    EXPECT_FALSE(ec);
    EXPECT_EQ(&ec.category(), &generic_category());
    EXPECT_STREQ(ec.text(), "Default constructed empty exception object");

    error_code other(5, system_category());
    EXPECT_STREQ(other.text(), "system");
    EXPECT_TRUE(other.is_valid());
    other.clear();
    EXPECT_EQ(other, ec);
    EXPECT_STREQ(other.text(), "Default constructed empty exception object");

    other.assign(1, iostream_category());
    EXPECT_EQ(other.value(), 1);
    EXPECT_STREQ(other.text(), "iostream");
    EXPECT_EQ(other.default_error_condition(), error_condition(1, iostream_category()));
}

TEST(ErrorCode, MakeFunctionsPickTheCategory)
{
    EXPECT_EQ(uvt::make_error_code(uvt::errc::io_error), error_code(EIO, generic_category()));
    EXPECT_EQ(uvt::make_error_code(uvt::io_errc::stream), error_code(1, iostream_category()));
    EXPECT_EQ(uvt::make_error_condition(uvt::errc::not_enough_memory), error_condition(ENOMEM, generic_category()));
    EXPECT_EQ(uvt::make_error_condition(uvt::io_errc::stream), error_condition(1, iostream_category()));

    error_condition empty;
    EXPECT_FALSE(empty.is_valid());
    EXPECT_EQ(&empty.category(), &generic_category());
}

TEST(ErrorCode, PrintsTextColonValueUnsignedInOctalAndHex)
{
    const error_code minus_one(-1, generic_category());
    EXPECT_EQ(print(minus_one, uvt::dec).text, "generic:-1");
    EXPECT_EQ(print(minus_one, uvt::hex).text, "generic:ffffffff");
    EXPECT_EQ(print(minus_one, uvt::oct).text, "generic:37777777777");
    EXPECT_EQ(print(error_code(255, system_category()), uvt::hex).text, "system:ff");
    EXPECT_EQ(print(uvt__ERR_UVT_OUTOFRANGE(), uvt::dec).text, "Index $IDX$ out of range [$BEG$, $END$):1000003");
    EXPECT_FALSE(print(minus_one, uvt::dec).bad);
}

TEST(ErrorCode, NullTextSetsBadbit)
{
    static const nameless_category nameless;
    const printed p = print(error_code(7, nameless), uvt::dec);
    EXPECT_TRUE(p.bad);
}

TEST(SystemError, CarriesTheValueWithTheCategoryNameAsMessage)
{
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
}

} // namespace
