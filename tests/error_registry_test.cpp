// The error registry: every exported accessor registers the row of the
// library's table it was made from, lazy registration, shadowing and
// concurrent registration.
#include <uvt/impl/error_code>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using uvt::impl::ErrorCodeImpl;

// Looked up while the program loads, before any test can have run the
// accessor of ERR_UVT_ABORT_FLAG_SET (nothing in the library throws it).
const std::string abort_flag_text_at_load = uvt::error_code::error_no_to_text(1000093);

struct ErrorRow {
    const ErrorCodeImpl& (*accessor)();
    int number;
    const char* name;
    const char* message;
};

// The library's table (its own consistency is checked where it is compiled).
const ErrorRow library_errors[] = {
#define UVT_ERROR(NAME, NUMBER, TEXT) {uvt__##NAME, NUMBER, #NAME, TEXT},
#include <uvt/impl/error_list>
#undef UVT_ERROR
};

// How often `rec` is on the registry list.
int occurrences(const ErrorCodeImpl* rec)
{
    int n = 0;
    for (const ErrorCodeImpl* r = ErrorCodeImpl::first(); r; r = r->next())
        n += r == rec;
    return n;
}

TEST(ErrorRegistry, AccessorsRegisterTheirRowsLaterRegistrationsShadowAndConcurrentOnesLand)
{
    for (const ErrorRow& row : library_errors) {
        SCOPED_TRACE(row.name);
        const ErrorCodeImpl& rec = row.accessor();
        EXPECT_EQ(rec.number(), row.number);
        EXPECT_EQ(rec.value(), row.number);
        EXPECT_STREQ(rec.name(), row.name);
        EXPECT_STREQ(rec.message(), row.message);
        EXPECT_STREQ(rec.text(), row.message); // the record is an error_code whose text is the template
        EXPECT_EQ(&rec.category(), &uvt::generic_category());
        EXPECT_STREQ(uvt::error_code::error_no_to_text(row.number), row.message);
        const ErrorCodeImpl* head = ErrorCodeImpl::first();
        EXPECT_EQ(&row.accessor(), &rec) << "a second call returns the same record";
        EXPECT_EQ(ErrorCodeImpl::first(), head) << "and links nothing";
        EXPECT_EQ(occurrences(&rec), 1);
    }

    // A few published spellings, misspellings included.
    EXPECT_STREQ(uvt__ERR_UVT_OUTOFRANGE().message(), "Index $IDX$ out of range [$BEG$, $END$)");
    EXPECT_EQ(uvt__ERR_UVT_OUTOFRANGE().number(), 1000003);
    EXPECT_STREQ(uvt__ERR_UVT_UNINITLALIZED().name(), "ERR_UVT_UNINITLALIZED");
    EXPECT_STREQ(uvt__ERR_UVT_REGEXP().message(), "Regular expression error no.ERR_UVT_REGEXP+$ERR_NO$:$ERR_MSG$");

    // An error is unknown until its accessor ran.
    EXPECT_EQ(abort_flag_text_at_load, "Unknown");
    EXPECT_EQ(uvt__ERR_UVT_ABORT_FLAG_SET().number(), 1000093);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000093), "Abort flag set");
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000030), "Unknown"); // reserved for other components
    EXPECT_STREQ(uvt::error_code::error_no_to_text(-1), "Unknown");

    // A later registration shadows an earlier one and returns the previous head.
    static ErrorCodeImpl older(1000040, "older text", &uvt::generic_category(), "TEST_OLDER");
    static ErrorCodeImpl newer(1000040, "newer text", &uvt::generic_category(), "TEST_NEWER");
    ErrorCodeImpl::link(older);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000040), "older text");
    ErrorCodeImpl::link(newer);
    EXPECT_EQ(ErrorCodeImpl::first(), &newer);
    EXPECT_EQ(newer.next(), &older);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000040), "newer text");

    static ErrorCodeImpl rec(1000041, "pushed by hand", &uvt::generic_category(), "TEST_BY_HAND");
    uvt__ERR_UVT_OUTOFRANGE(); // an older record that must stay reachable
    const ErrorCodeImpl* before = ErrorCodeImpl::first();
    ErrorCodeImpl* previous = ErrorCodeImpl::register_error(rec);
    EXPECT_EQ(previous, before);
    EXPECT_EQ(ErrorCodeImpl::first(), &rec);
    EXPECT_EQ(rec.next(), before);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000003), "Index $IDX$ out of range [$BEG$, $END$)");

    // Concurrent registrations all land.
    constexpr int threads = 4, per_thread = 200;
    uvt__ERR_UVT_OUTOFRANGE(); // an older record that must stay reachable
    // Kept for the life of the process: the registry never lets go of a record.
    static std::vector<ErrorCodeImpl>& records = *new std::vector<ErrorCodeImpl>();
    records.reserve(threads * per_thread);
    for (int i = 0; i < threads * per_thread; ++i)
        records.emplace_back(2000000 + i, "concurrent", &uvt::generic_category(), "TEST_CONCURRENT");

    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([t] {
            for (int i = 0; i < per_thread; ++i) {
                ErrorCodeImpl::link(records[t * per_thread + i]);
                uvt::error_code::error_no_to_text(2000000); // readers run during the pushes
            }
        });
    for (auto& w : workers)
        w.join();

    std::set<const ErrorCodeImpl*> seen;
    for (const ErrorCodeImpl* r = ErrorCodeImpl::first(); r; r = r->next())
        EXPECT_TRUE(seen.insert(r).second) << "record linked twice";
    for (const ErrorCodeImpl& rec : records)
        EXPECT_EQ(seen.count(&rec), 1u);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000003), "Index $IDX$ out of range [$BEG$, $END$)");
}

} // namespace
