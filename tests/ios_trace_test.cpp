// The failure trace of ios_base::throwIOSFailure. A program of its own: the
// host's permission to write traces is asked once per process.

#include "support/test_host.h"

#include <uvt/ios>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern "C" uvt_extern::UvtImport* get_uvt_import()
{
    uvt_test::test_host::instance().trace_files = true;
    return &uvt_test::test_host::instance();
}

namespace {

namespace fs = std::filesystem;

// Throws through throwIOSFailure, `depth` calls deeper, and checks that the
// failure arrives unchanged.
[[gnu::noinline]] void fail(int depth = 0)
{
    if (depth > 0) {
        fail(depth - 1);
        asm volatile(""); // keeps the recursion out of tail position
        return;
    }
    try {
        uvt::ios_base::throwIOSFailure(__FILE__, __LINE__, "trace test failure");
    } catch (const uvt::ios_base::failure& f) {
        f.mark_processed();
        EXPECT_STREQ(f.what(), "trace test failure");
    }
}

// Fails `times` times from one call site (one stack), first setting the
// trace directory to dirs[i] (null: unset) while `dirs` lasts. The counter
// is hidden from the compiler, which could otherwise unroll the loop into
// several call sites.
void fail_from_one_site(int times, const std::vector<const char*>& dirs = {})
{
    for (int i = 0; i < times; ++i) {
        asm volatile("" : "+r"(i));
        if (i < static_cast<int>(dirs.size()))
            dirs[i] ? ::setenv("KRD_RETRIEVAL_PATH", dirs[i], 1) : ::unsetenv("KRD_RETRIEVAL_PATH");
        fail();
    }
}

// A directory with a "trace" subdirectory whose path has `length`
// characters; the trace file's text and its count of exception blocks.
std::string retrieval_dir(std::size_t length, char fill)
{
    std::string dir = "/tmp/uvt_trace_" + std::to_string(::getpid());
    while (dir.size() < length)
        dir += "/" + std::string(std::min<std::size_t>(100, length - dir.size() - 1), fill);
    fs::create_directories(dir + "/trace");
    return dir;
}
std::pair<std::string, int> trace_of(const std::string& dir)
{
    std::ostringstream s;
    s << std::ifstream(dir + "/trace/ios_failure.txt").rdbuf();
    int blocks = 0;
    for (auto at = s.str().find("IOS exception:\n"); at != std::string::npos; at = s.str().find("IOS", at + 1))
        ++blocks;
    return {s.str(), blocks};
}

struct IosTrace : ::testing::Test {
    void TearDown() override { fs::remove_all(retrieval_dir(0, 0)); }
};

// Unset or too long a directory: nothing written, the stack not marked.
TEST_F(IosTrace, DirectoryOf487CharactersIsTheLongestAccepted)
{
    const std::string accepted = retrieval_dir(487, 'a'), refused = retrieval_dir(488, 'r');
    fail_from_one_site(3, {nullptr, refused.c_str(), accepted.c_str()});
    EXPECT_FALSE(fs::exists(refused + "/trace/ios_failure.txt"));
    EXPECT_EQ(trace_of(accepted).second, 1);
}

// A stack deeper than the frame buffer is reported, not written.
TEST_F(IosTrace, EachStackIsWrittenOnceWithItsFramesFirst)
{
    const std::string dir = retrieval_dir(60, 's');
    fail_from_one_site(2, {dir.c_str()});
    fail(300);
    const auto [trace, blocks] = trace_of(dir);
    ASSERT_EQ(blocks, 2);
    const std::string frames = trace.substr(0, trace.find("IOS exception:\n"));
    EXPECT_NE(frames.find("[0x"), std::string::npos) << trace;
    EXPECT_NE(trace.find("trace test failure", frames.size()), std::string::npos) << trace;
    EXPECT_NE(trace.find("\nStack generation failure\nIOS exception:\n"), std::string::npos) << trace;
}

// Writers never wait: whoever finds the trace busy skips it, and the one
// stack all threads share is written once.
TEST_F(IosTrace, ConcurrentFailuresWriteOneTrace)
{
    const std::string dir = retrieval_dir(60, 'c');
    ::setenv("KRD_RETRIEVAL_PATH", dir.c_str(), 1);
    std::vector<std::thread> threads(4);
    for (std::thread& t : threads)
        t = std::thread([] { fail_from_one_site(50); });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(trace_of(dir).second, 1);
}

} // namespace
