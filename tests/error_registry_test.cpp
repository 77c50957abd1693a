// The error registry: the exported accessors against the published table,
// lazy registration, shadowing and concurrent registration.
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

// The library's errors as published; spellings are part of the interface.
const ErrorRow published_errors[] = {
    {uvt__ERR_UVT_NO_ERROR, 0, "ERR_UVT_NO_ERROR", "Default constructed empty exception object"},
    {uvt__ERR_UVT_ASSERT_ERROR, 1000000, "ERR_UVT_ASSERT_ERROR", "Assertion failed: $condition$"},
    {uvt__ERR_UVT_UNHANDLED_EXC, 1000001, "ERR_UVT_UNHANDLED_EXC",
     "Unknown unhandled exception in critical scope detected"},
    {uvt__ERR_UVT_NOMEMORY, 1000002, "ERR_UVT_NOMEMORY", "Allocation failed $REASON$"},
    {uvt__ERR_UVT_OUTOFRANGE, 1000003, "ERR_UVT_OUTOFRANGE", "Index $IDX$ out of range [$BEG$, $END$)"},
    {uvt__ERR_UVT_NOT_REGISTERED, 1000004, "ERR_UVT_NOT_REGISTERED",
     "Registered exception not registered on current thread"},
    {uvt__ERR_UVT_INVALID_EXC_SCP, 1000005, "ERR_UVT_INVALID_EXC_SCP",
     "Invalid critical exception scope detected (in: uncaught $ADDR$, out: no exc)"},
    {uvt__ERR_UVT_ITER_INVALID, 1000006, "ERR_UVT_ITER_INVALID", "Incompatible or invalid iterator"},
    {uvt__ERR_UVT_CONVERSION_ERR, 1000007, "ERR_UVT_CONVERSION_ERR",
     "Conversion to $TYPE$ type failed. Value: $VALUE$"},
    {uvt__ERR_UVT_INVALID_SORTING, 1000008, "ERR_UVT_INVALID_SORTING", "Invalid sorting"},
    {uvt__ERR_UVT_BAD_CAST, 1000009, "ERR_UVT_BAD_CAST", "Bad cast $REASON$"},
    {uvt__ERR_UVT_BAD_ARGUMENT, 1000010, "ERR_UVT_BAD_ARGUMENT", "Invalid argument"},
    {uvt__ERR_UVT_RVALUE_CAST, 1000011, "ERR_UVT_RVALUE_CAST", "RValue change: $STR$"},
    {uvt__ERR_UVT_RANGE, 1000012, "ERR_UVT_RANGE", "Range error"},
    {uvt__ERR_UVT_RUNTIME, 1000013, "ERR_UVT_RUNTIME", "Runtime error"},
    {uvt__ERR_UVT_LOGIC, 1000014, "ERR_UVT_LOGIC", "Logic error"},
    {uvt__ERR_UVT_DOMAIN, 1000015, "ERR_UVT_DOMAIN", "Domain error"},
    {uvt__ERR_UVT_LENGTH, 1000016, "ERR_UVT_LENGTH", "Length error"},
    {uvt__ERR_UVT_UNDERFLOW, 1000017, "ERR_UVT_UNDERFLOW", "Underflow error"},
    {uvt__ERR_UVT_BAD_TYPEID, 1000018, "ERR_UVT_BAD_TYPEID", "Null pointer in typeid $REASON$"},
    {uvt__ERR_UVT_INVALID_TYPE, 1000019, "ERR_UVT_INVALID_TYPE", "Unexpected enum type $TYP$: $DESRC$"},
    {uvt__ERR_UVT_ITER_MISMATCH, 1000020, "ERR_UVT_ITER_MISMATCH", "Iterators point to different $CLS$ containers"},
    {uvt__ERR_UVT_NULL_POINTER, 1000021, "ERR_UVT_NULL_POINTER", "Null pointer dereference"},
    {uvt__ERR_UVT_BAD_EXCEPTION, 1000022, "ERR_UVT_BAD_EXCEPTION", "Unexpected exception $REASON$"},
    {uvt__ERR_UVT_BAD_WEAK_PTR, 1000023, "ERR_UVT_BAD_WEAK_PTR", "Bad weak_ptr"},
    {uvt__ERR_UVT_INT_OVERFLOW, 1000024, "ERR_UVT_INT_OVERFLOW", "Integer overflow"},
    {uvt__ERR_UVT_TIME_OVERFLOW, 1000025, "ERR_UVT_TIME_OVERFLOW", "Time overflow \"$MSG$\": $VAL$"},
    {uvt__ERR_UVT_TIME_CONVERSION, 1000026, "ERR_UVT_TIME_CONVERSION",
     "Time conversion $SEC$:$MIN$:$HRS$ $DAY$.$MNT$.$YRS$"},
    {uvt__ERR_UVT_MEM_ERROR, 1000027, "ERR_UVT_MEM_ERROR", "Memory corruption: \"$CURRENT$\", expected: \"$EXPECT$\""},
    {uvt__ERR_UVT_BAD_CALL, 1000028, "ERR_UVT_BAD_CALL", "Bad function call"},
    {uvt__ERR_UVT_INVALID_SYMBOL, 1000032, "ERR_UVT_INVALID_SYMBOL", "Invalid unicode character"},
    {uvt__ERR_UVT_BAD_DATA, 1000033, "ERR_UVT_BAD_DATA", "Data error, unexpected value: $BAD_DATA$"},
    {uvt__ERR_UVT_INIT_ERROR, 1000034, "ERR_UVT_INIT_ERROR", "Initialization error"},
    {uvt__ERR_UVT_BUF_OVERFLOW, 1000035, "ERR_UVT_BUF_OVERFLOW", "Buffer overflow"},
    {uvt__ERR_UVT_BUF_UNALIGNED, 1000036, "ERR_UVT_BUF_UNALIGNED", "Buffer alignment too low"},
    {uvt__ERR_UVT_REGEXP, 1000037, "ERR_UVT_REGEXP", "Regular expression error no.ERR_UVT_REGEXP+$ERR_NO$:$ERR_MSG$"},
    {uvt__ERR_UVT_STREAM_FAILURE, 1000087, "ERR_UVT_STREAM_FAILURE", "IO stream failed"},
    {uvt__ERR_UVT_LOCALE_ERROR, 1000088, "ERR_UVT_LOCALE_ERROR", "Locale error: $DESRC$"},
    {uvt__ERR_UVT_UNINITLALIZED, 1000089, "ERR_UVT_UNINITLALIZED", "Object not initialized"},
    {uvt__ERR_UVT_UNREACHABLE, 1000090, "ERR_UVT_UNREACHABLE", "Reached unreachable code"},
    {uvt__ERR_UVT_NOT_IMPLEMENTED, 1000091, "ERR_UVT_NOT_IMPLEMENTED", "Not yet implemented"},
    {uvt__ERR_UVT_PURE_VIRTUAL, 1000092, "ERR_UVT_PURE_VIRTUAL", "Pure virtual method called"},
    {uvt__ERR_UVT_ABORT_FLAG_SET, 1000093, "ERR_UVT_ABORT_FLAG_SET", "Abort flag set"},
};

// How often `rec` is on the registry list.
int occurrences(const ErrorCodeImpl* rec)
{
    int n = 0;
    for (const ErrorCodeImpl* r = ErrorCodeImpl::first(); r; r = r->next())
        n += r == rec;
    return n;
}

TEST(ErrorRegistry, EveryAccessorMatchesThePublishedTable)
{
    EXPECT_EQ(std::size(published_errors), 43u);
    for (const ErrorRow& row : published_errors) {
        SCOPED_TRACE(row.name);
        const ErrorCodeImpl& rec = row.accessor();
        EXPECT_EQ(rec.number(), row.number);
        EXPECT_EQ(rec.value(), row.number);
        EXPECT_STREQ(rec.name(), row.name);
        EXPECT_STREQ(rec.message(), row.message);
        EXPECT_STREQ(rec.text(), row.message); // the record is an error_code whose text is the template
        EXPECT_EQ(&rec.category(), &uvt::generic_category());
        EXPECT_STREQ(uvt::error_code::error_no_to_text(row.number), row.message);
        EXPECT_EQ(occurrences(&rec), 1);
    }
}

TEST(ErrorRegistry, ErrorIsUnknownUntilItsAccessorRan)
{
    EXPECT_EQ(abort_flag_text_at_load, "Unknown");
    uvt__ERR_UVT_ABORT_FLAG_SET();
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000093), "Abort flag set");
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000030), "Unknown"); // reserved for other components
    EXPECT_STREQ(uvt::error_code::error_no_to_text(-1), "Unknown");
}

TEST(ErrorRegistry, SecondCallReturnsTheSameRecordAndLinksNothing)
{
    const ErrorCodeImpl& first_call = uvt__ERR_UVT_UNREACHABLE();
    const ErrorCodeImpl* head = ErrorCodeImpl::first();
    const ErrorCodeImpl& second_call = uvt__ERR_UVT_UNREACHABLE();
    EXPECT_EQ(&first_call, &second_call);
    EXPECT_EQ(ErrorCodeImpl::first(), head);
    EXPECT_EQ(occurrences(&first_call), 1);
}

TEST(ErrorRegistry, LaterRegistrationShadowsEarlierOne)
{
    static ErrorCodeImpl older(1000040, "older text", &uvt::generic_category(), "TEST_OLDER");
    static ErrorCodeImpl newer(1000040, "newer text", &uvt::generic_category(), "TEST_NEWER");
    ErrorCodeImpl::link(older);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000040), "older text");
    ErrorCodeImpl::link(newer);
    EXPECT_EQ(ErrorCodeImpl::first(), &newer);
    EXPECT_EQ(newer.next(), &older);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000040), "newer text");
}

TEST(ErrorRegistry, RegisterErrorReturnsThePreviousHeadAndLinksToIt)
{
    static ErrorCodeImpl rec(1000041, "pushed by hand", &uvt::generic_category(), "TEST_BY_HAND");
    uvt__ERR_UVT_OUTOFRANGE(); // an older record that must stay reachable
    const ErrorCodeImpl* before = ErrorCodeImpl::first();
    ErrorCodeImpl* previous = ErrorCodeImpl::register_error(rec);
    EXPECT_EQ(previous, before);
    EXPECT_EQ(ErrorCodeImpl::first(), &rec);
    EXPECT_EQ(rec.next(), before);
    EXPECT_STREQ(uvt::error_code::error_no_to_text(1000003), "Index $IDX$ out of range [$BEG$, $END$)");
}

TEST(ErrorRegistry, ConcurrentRegistrationsAllLand)
{
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
