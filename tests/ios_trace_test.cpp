// The failure trace of ios_base::throwIOSFailure: where it is written, the
// length limit of the retrieval directory, one trace per stack, and that it
// never changes the failure thrown. A program of its own, because the host's
// permission to write traces is asked once per process.

#include "support/test_host.h"

#include <uvt/ios>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern "C" uvt_extern::UvtImport* get_uvt_import()
{
    uvt_test::test_host& host = uvt_test::test_host::instance();
    host.trace_files = true;
    return &host;
}

namespace {

using uvt::ios_base;
namespace fs = std::filesystem;

// Throws through throwIOSFailure and checks that the failure arrives.
[[gnu::noinline]] void fail(int depth = 0)
{
    if (depth > 0) {
        fail(depth - 1);
        asm volatile("");  // keeps the recursion out of tail position
        return;
    }
    try {
        ios_base::throwIOSFailure(__FILE__, __LINE__, "trace test failure");
    } catch (const ios_base::failure& f) {
        f.mark_processed();
        EXPECT_STREQ(f.what(), "trace test failure");
        return;
    }
    ADD_FAILURE() << "no failure thrown";
}

// Hides a loop counter from the compiler, which then cannot unroll the loop
// into several call sites (and so several stacks).
template <class T>
void opaque(T& counter)
{
    asm volatile("" : "+r"(counter));
}

class IosTrace : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/uvt_trace_XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        base = pattern;
    }
    void TearDown() override
    {
        ::unsetenv("KRD_RETRIEVAL_PATH");
        fs::remove_all(base);
    }

    // A retrieval directory (with its "trace" subdirectory) whose path has
    // exactly `length` characters.
    std::string retrieval_dir(std::size_t length, char fill) const
    {
        std::string dir = base;
        while (dir.size() < length)
            dir += "/" + std::string(std::min<std::size_t>(100, length - dir.size() - 1), fill);
        fs::create_directories(dir + "/trace");
        return dir;
    }
    static std::string trace_of(const std::string& dir)
    {
        std::ostringstream s;
        s << std::ifstream(dir + "/trace/ios_failure.txt").rdbuf();
        return s.str();
    }
    // Fails once with the retrieval directory set to each of `dirs` in
    // turn ("" unsets it), always from one call site.
    static void fail_with_each(const std::vector<std::string>& dirs)
    {
        for (std::size_t i = 0; i < dirs.size(); ++i) {
            opaque(i);
            if (dirs[i].empty())
                ::unsetenv("KRD_RETRIEVAL_PATH");
            else
                ::setenv("KRD_RETRIEVAL_PATH", dirs[i].c_str(), 1);
            fail();
        }
    }
    static int blocks(const std::string& trace)
    {
        int n = 0;
        for (auto at = trace.find("IOS exception:\n"); at != std::string::npos; at = trace.find("IOS exception:\n", at + 1))
            ++n;
        return n;
    }

    std::string base;
};

TEST_F(IosTrace, UnsetDirectoryWritesNothingAndKeepsTheStackUnlogged)
{
    const std::string dir = retrieval_dir(100, 'u');
    fail_with_each({"", dir});
    EXPECT_EQ(blocks(trace_of(dir)), 1);
}

TEST_F(IosTrace, DirectoryOf487CharactersIsTheLongestAccepted)
{
    const std::string accepted = retrieval_dir(487, 'a'), refused = retrieval_dir(488, 'r');
    fail_with_each({refused, accepted});
    EXPECT_FALSE(fs::exists(refused + "/trace/ios_failure.txt"));
    EXPECT_EQ(blocks(trace_of(accepted)), 1);
}

TEST_F(IosTrace, EachStackIsWrittenOnceWithItsFramesFirst)
{
    const std::string dir = retrieval_dir(60, 's');
    fail_with_each({dir, dir});
    const std::string trace = trace_of(dir);
    ASSERT_EQ(blocks(trace), 1);
    const std::string frames = trace.substr(0, trace.find("IOS exception:\n"));
    EXPECT_NE(frames.find("[0x"), std::string::npos) << trace;
    EXPECT_NE(trace.find("trace test failure", frames.size()), std::string::npos) << trace;
    EXPECT_EQ(trace.back(), '\n');
}

TEST_F(IosTrace, StackDeeperThanTheFrameBufferIsReportedNotWritten)
{
    const std::string dir = retrieval_dir(60, 'd');
    ::setenv("KRD_RETRIEVAL_PATH", dir.c_str(), 1);
    fail(300);
    EXPECT_EQ(trace_of(dir).rfind("Stack generation failure\nIOS exception:\n", 0), 0u);
}

// Writers never wait: whoever finds the trace busy skips it, and the one
// stack all threads share is written once.
TEST_F(IosTrace, ConcurrentFailuresWriteOneTrace)
{
    const std::string dir = retrieval_dir(60, 'c');
    ::setenv("KRD_RETRIEVAL_PATH", dir.c_str(), 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 50; ++i) {
                opaque(i);
                fail();
            }
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(blocks(trace_of(dir)), 1);
}

} // namespace
