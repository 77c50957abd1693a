// The stream core: formatting against the standard streams as oracle,
// state and exception mask, sentries, user storage and callbacks. The
// failure class itself is checked with the other exception classes
// (stdexcept_test).

#include "support/caught.h"
#include "support/test_host.h"

#include <uvt/ios>
#include <uvt/strstream>

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern "C" uvt_extern::UvtImport* get_uvt_import() { return &uvt_test::test_host::instance(); }

namespace {

using uvt::ios_base;
using uvt_test::test_host;

// A buffer without put area: every character goes through overflow. It
// stores at most `limit` characters and can throw from a write.
class capture_buf : public uvt::streambuf {
public:
    std::string text;
    std::size_t limit = std::numeric_limits<std::size_t>::max();
    bool throw_on_write = false;
    int syncs = 0;
    int sync_result = 0;

protected:
    int_type overflow(int_type c) override
    {
        if (c == traits_type::eof())
            return 0;
        if (throw_on_write)
            ios_base::throwIOSFailure(__FILE__, __LINE__, "capture_buf");
        if (text.size() >= limit)
            return traits_type::eof();
        text.push_back(static_cast<char>(c));
        return c;
    }
    int sync() override
    {
        ++syncs;
        return sync_result;
    }
};

struct capture_stream {
    capture_buf buf;
    uvt::ostream os{&buf};
};

std::ios_base::fmtflags to_std(ios_base::fmtflags f)
{
    static const std::pair<ios_base::fmtflags, std::ios_base::fmtflags> map[] = {
        {ios_base::boolalpha, std::ios_base::boolalpha},
        {ios_base::dec, std::ios_base::dec},
        {ios_base::hex, std::ios_base::hex},
        {ios_base::oct, std::ios_base::oct},
        {ios_base::left, std::ios_base::left},
        {ios_base::right, std::ios_base::right},
        {ios_base::internal, std::ios_base::internal},
        {ios_base::showbase, std::ios_base::showbase},
        {ios_base::showpos, std::ios_base::showpos},
        {ios_base::uppercase, std::ios_base::uppercase},
    };
    std::ios_base::fmtflags out{};
    for (auto [mine, theirs] : map)
        if (f & mine)
            out |= theirs;
    return out;
}

struct format {
    ios_base::fmtflags flags;
    long width;
};

std::vector<format> all_formats()
{
    const ios_base::fmtflags bases[] = {0, ios_base::dec, ios_base::oct, ios_base::hex};
    const ios_base::fmtflags extras[] = {0,
                                         ios_base::showbase,
                                         ios_base::showpos,
                                         ios_base::uppercase,
                                         ios_base::showbase | ios_base::uppercase,
                                         ios_base::showbase | ios_base::showpos | ios_base::boolalpha};
    const ios_base::fmtflags adjusts[] = {0, ios_base::left, ios_base::right, ios_base::internal};
    const long widths[] = {0, 1, 7, 25};
    std::vector<format> out;
    for (auto b : bases)
        for (auto e : extras)
            for (auto a : adjusts)
                for (auto w : widths)
                    out.push_back({b | e | a, w});
    return out;
}

template <class T>
std::string with_uvt(T v, format f)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    os.flags(f.flags);
    os.width(f.width);
    os.fill('*');
    os << v;
    EXPECT_EQ(os.width(), 0) << "width is reset by every insertion";
    return std::string(os.c_str(), os.size());
}

template <class T>
std::string with_std(T v, format f)
{
    std::ostringstream os;
    os.flags(to_std(f.flags));
    os.width(f.width);
    os.fill('*');
    os << v;
    return os.str();
}

template <class T>
void expect_like_standard(std::initializer_list<T> values)
{
    for (const format& f : all_formats())
        for (T v : values)
            ASSERT_EQ(with_uvt(v, f), with_std(v, f))
                << "value " << +v << " flags 0x" << std::hex << f.flags << std::dec << " width " << f.width;
}

template <class... T>
void expect_like_standard_limits()
{
    (expect_like_standard<T>({T(0), T(1), T(42), T(255), std::numeric_limits<T>::max(), std::numeric_limits<T>::min(),
                              T(std::numeric_limits<T>::max() / 3), T(-1), T(-42),
                              T(std::numeric_limits<T>::min() + 1)}),
     ...);
}

TEST(OstreamFormat, ValuesMatchTheStandardStreamsAndPointersTheCLibrary)
{
    expect_like_standard_limits<short, unsigned short, int, unsigned, long, unsigned long, long long,
                                unsigned long long>();
    expect_like_standard<bool>({false, true});
    for (const format& f : all_formats()) { // characters and strings pad alike
        ASSERT_EQ(with_uvt('x', f), with_std('x', f)) << f.flags << " " << f.width;
        ASSERT_EQ(with_uvt("-abc", f), with_std("-abc", f)) << f.flags << " " << f.width;
        ASSERT_EQ(with_uvt("", f), with_std("", f)) << f.flags << " " << f.width;
    }

    // Pointers as the C library prints them, and the manipulators.
    int object = 0;
    char expected[32];
    std::snprintf(expected, sizeof expected, "%p", static_cast<void*>(&object));
    EXPECT_EQ(with_uvt(static_cast<const void*>(&object), {ios_base::uppercase | ios_base::oct, 0}), expected);
    EXPECT_EQ(with_uvt(static_cast<const void*>(nullptr), {0, 0}), "(nil)");
    EXPECT_EQ(with_uvt(reinterpret_cast<const void*>(0xab), {ios_base::internal, 7}), "0x***ab");

    uvt::ostrstream os(uvt::allocator::global_allocator());
    os << uvt::setw(5) << uvt::setfill('.') << 42 << '|' << uvt::hex << uvt::showbase << 255 << '|' << uvt::noshowbase
       << uvt::uppercase << 255 << '|' << uvt::setbase(8) << 8 << '|' << uvt::setbase(3) << 8 << '|' << uvt::boolalpha
       << true << '|' << uvt::left << uvt::setw(4) << 'a' << '|' << uvt::dec << uvt::setprecision(3) << uvt::ends;
    EXPECT_EQ(std::string(os.c_str(), os.size()), std::string("...42|0xff|FF|10|8|true|a...|\0", 30));
    EXPECT_EQ(os.precision(), 3);
}

// A failing insertion sets badbit and throws ios_base::failure only when
// badbit is in the mask: its own failure, or the one escaping the buffer.
// A stream that is not good writes nothing more.
TEST(IosState, FailingInsertionsSetBadbitTheSentryFlushesAndNoBufferIsBad)
{
    const struct {
        const char* label;
        void (*prepare)(capture_buf&);
        void (*insert)(uvt::ostream&);
        const char* text; // what reaches the buffer
        const char* what; // of the failure thrown under the mask
    } rows[] = {
        {"null string", [](capture_buf&) {}, [](uvt::ostream& os) { os << static_cast<const char*>(nullptr); }, "",
         "basic_ios::clear"},
        {"short write stops the field", [](capture_buf& b) { b.limit = 3; },
         [](uvt::ostream& os) { os << uvt::setw(6) << 12; }, "   ", "basic_ios::clear"},
        {"buffer throws on <<", [](capture_buf& b) { b.throw_on_write = true; }, [](uvt::ostream& os) { os << "abc"; },
         "", "capture_buf"},
        {"buffer throws on put", [](capture_buf& b) { b.throw_on_write = true; }, [](uvt::ostream& os) { os.put('x'); },
         "", "capture_buf"},
    };
    for (const auto& row : rows) {
        for (bool masked : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.label << (masked ? ", badbit in the mask" : ""));
            const int forgotten = test_host::instance().callbacks.forgotten.load();
            capture_stream s;
            row.prepare(s.buf);
            s.os.exceptions(masked ? ios_base::badbit : ios_base::goodbit);
            try {
                row.insert(s.os);
                EXPECT_FALSE(masked) << "no exception";
                row.insert(s.os);
            } catch (const ios_base::failure& e) {
                EXPECT_TRUE(masked);
                EXPECT_EQ(e.error_no(), 1000087);
                EXPECT_STREQ(e.what(), row.what);
                e.mark_processed();
            }
            EXPECT_TRUE(s.os.bad());
            EXPECT_EQ(s.buf.text, row.text);
            EXPECT_EQ(test_host::instance().callbacks.forgotten.load(), forgotten)
                << "an absorbed exception counts as processed";
        }
    }
    // Setting the mask throws at once when the state meets it.
    capture_stream s;
    s.os.setstate(ios_base::failbit);
    EXPECT_NO_THROW(s.os.exceptions(ios_base::badbit));
    EXPECT_THROW(s.os.exceptions(ios_base::failbit), ios_base::failure);
    EXPECT_EQ(s.os.exceptions(), ios_base::failbit);
    EXPECT_TRUE(s.os.fail());
    EXPECT_NO_THROW(s.os.clear());
    EXPECT_TRUE(s.os.good());

    // The tied stream is flushed before each insertion; a stream without buffer
    // is bad.
    capture_stream tied, sentried;
    sentried.os.tie(&tied.os);
    sentried.os << 1 << "x";
    EXPECT_EQ(tied.buf.syncs, 2);
    sentried.os.tie(&sentried.os); // tied to itself: no endless flushing
    sentried.os << 2;
    EXPECT_EQ(sentried.buf.text, "1x2");

    // A stream without a buffer is bad until it gets one.
    uvt::ostream bare(nullptr);
    EXPECT_TRUE(bare.bad());
    bare << 1;
    bare.flush();
    capture_buf buf;
    bare.rdbuf(&buf);
    EXPECT_TRUE(bare.good());
    bare << 1;
    EXPECT_EQ(buf.text, "1");

    // unitbuf and endl flush; a failed sync sets badbit.
    capture_stream u;
    u.os << 1 << 2;
    EXPECT_EQ(u.buf.syncs, 0);
    u.os << uvt::unitbuf << 3 << "4";
    EXPECT_EQ(u.buf.syncs, 2);
    u.os << uvt::nounitbuf << 5 << uvt::endl;
    EXPECT_EQ(u.buf.syncs, 3);
    EXPECT_EQ(u.buf.text, "12345\n");
    u.buf.sync_result = -1;
    u.os.flush();
    EXPECT_TRUE(u.os.bad());
}

TEST(IosStorage, IwordAndPwordGrowOnDemandAndThreadsGetDistinctIndices)
{
    const int a = ios_base::xalloc();
    const int b = ios_base::xalloc();
    EXPECT_NE(a, b);
    capture_stream s;
    EXPECT_EQ(s.os.iword(a), 0);
    s.os.iword(a) = 17;
    s.os.pword(b) = &s;
    EXPECT_EQ(s.os.pword(1000), nullptr); // grows the table
    EXPECT_EQ(s.os.iword(a), 17);
    EXPECT_EQ(s.os.pword(b), &s);
    EXPECT_TRUE(s.os.good());

    s.os.iword(-1) = 5; // scratch slot
    EXPECT_TRUE(s.os.bad());
    EXPECT_EQ(s.os.iword(a), 17);

    // xalloc and the ios_base allocator are shared by all threads; streams on
    // different threads are independent.
    constexpr int threads = 4, per_thread = 500;
    std::vector<std::vector<int>> indices(threads);
    std::vector<std::string> texts(threads);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            uvt::ostrstream os(uvt::allocator::global_allocator());
            for (int i = 0; i < per_thread; ++i) {
                indices[t].push_back(ios_base::xalloc());
                os.iword(indices[t].back()) = i;
                os << uvt::hex << i;
            }
            texts[t].assign(os.c_str(), os.size());
        });
    }
    for (auto& th : pool)
        th.join();
    std::set<int> all;
    for (const auto& v : indices)
        all.insert(v.begin(), v.end());
    EXPECT_EQ(all.size(), std::size_t(threads * per_thread));
    for (const auto& text : texts)
        EXPECT_EQ(text, texts[0]);
}

using events = std::vector<std::pair<ios_base::event, int>>;
events* event_log;

void log_event(ios_base::event e, ios_base&, int index) { event_log->push_back({e, index}); }

void ignore_event(ios_base::event, ios_base&, int) {}

TEST(IosCallbacks, CalledLastRegisteredFirstTableDoublesAndFailuresLeaveTheTarget)
{
    events log;
    event_log = &log;
    capture_stream source;
    {
        capture_stream target;
        target.os.register_callback(log_event, 1);
        target.os.register_callback(log_event, 2);
        source.os.register_callback(log_event, 3);
        source.os.flags(ios_base::hex);
        source.os.precision(9);
        source.os.fill('#');
        source.os.iword(4) = 44;
        target.os.copyfmt(source.os);
        EXPECT_EQ(target.os.flags(), ios_base::hex);
        EXPECT_EQ(target.os.precision(), 9);
        EXPECT_EQ(target.os.fill(), '#');
        EXPECT_EQ(target.os.iword(4), 44);
        EXPECT_EQ(log, (events{{ios_base::erase_event, 2}, {ios_base::erase_event, 1}, {ios_base::copyfmt_event, 3}}));
        log.clear();
    }
    EXPECT_EQ(log, (events{{ios_base::erase_event, 3}}));
    log.clear();

    // copyfmt takes the exception mask last.
    capture_stream target;
    source.os.exceptions(ios_base::failbit);
    target.os.setstate(ios_base::failbit);
    EXPECT_THROW(target.os.copyfmt(source.os), ios_base::failure);
    EXPECT_EQ(target.os.exceptions(), ios_base::failbit);

    // The table grows to 1, 2, 4, 8 entries, two blocks per growth from the
    // ios allocator. A failing growth (allocation 1 the functions, 2 the
    // indices) leaves the table and throws its own message.
    auto& global = test_host::instance().global;
    {
        capture_stream s;
        const unsigned long attempts = global.attempts(), live = global.live_blocks();
        for (int i = 0; i < 5; ++i)
            s.os.register_callback(ignore_event, i);
        EXPECT_EQ(global.attempts() - attempts, 8u);
        EXPECT_EQ(global.live_blocks() - live, 2u);
    }
    const struct {
        int line;
        unsigned long failing_allocation;
        const char* message;
    } rows[] = {
        {__LINE__, 1, "ios_base::register_callback bad_alloc"},
        {__LINE__, 2, "ios_base::register_callback"},
    };
    for (const auto& r : rows) {
        events log;
        event_log = &log;
        {
            capture_stream s;
            s.os.register_callback(log_event, 1);
            const unsigned long live = global.live_blocks();
            global.fail_at(r.failing_allocation);
            const auto e = uvt_test::caught<ios_base::failure>([&] { s.os.register_callback(log_event, 2); });
            EXPECT_STREQ(e.what(), r.message) << "row at line " << r.line;
            global.fail_at(0);
            EXPECT_TRUE(s.os.bad()) << "badbit is set whatever the mask";
            EXPECT_EQ(global.live_blocks(), live) << "row at line " << r.line;
        }
        EXPECT_EQ(log, (events{{ios_base::erase_event, 1}}));
    }
    event_log = &log; // for the erase event of `source`

    // A failing copyfmt sets badbit and leaves the target's format.
    capture_stream formatted;
    formatted.os.register_callback(ignore_event, 1);
    formatted.os.iword(0) = 1;
    formatted.os.flags(ios_base::oct);
    for (unsigned long n = 1; n <= 3; ++n) {
        capture_stream target;
        const unsigned long live = global.live_blocks();
        global.fail_at(n);
        target.os.copyfmt(formatted.os);
        global.fail_at(0);
        EXPECT_TRUE(target.os.bad()) << "allocation " << n;
        EXPECT_EQ(target.os.flags(), ios_base::skipws | ios_base::dec) << "allocation " << n;
        EXPECT_EQ(global.live_blocks(), live) << "allocation " << n;
    }
}

} // namespace
