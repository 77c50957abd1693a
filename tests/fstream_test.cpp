// File buffers and file streams: the open-mode table and the descriptor
// layer (Filebuf_base), then basic_filebuf's buffering, positioning and
// failures as seen through the streams.

#include "support/test_allocator.h"

#include <uvt/fstream>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using uvt::ios_base;
using uvt::impl::Filebuf_base;
using uvt_test::counting_allocator;
namespace fs = std::filesystem;

class Fstream : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/uvt_fstream_XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const char* name) const { return dir + "/" + name; }
    std::string make(const char* name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    static std::string read(const std::string& p)
    {
        std::ostringstream s;
        s << std::ifstream(p, std::ios::binary).rdbuf();
        return s.str();
    }

    std::string dir;
    uvt::allocator& alloc = uvt::allocator::global_allocator();
};

// ------------------------------------------------------------ Filebuf_base

constexpr ios_base::openmode in = ios_base::in, out = ios_base::out, app = ios_base::app,
                             trunc = ios_base::trunc, ate = ios_base::ate, bin = ios_base::binary,
                             dsync = Filebuf_base::dsync;

struct mode_row {
    int line;
    ios_base::openmode mode;
    int access;  // O_RDONLY, O_WRONLY, O_RDWR; -1: the mode fails
    int flags;   // O_APPEND and O_DSYNC as F_GETFL reports them
    bool creates, truncates, at_end;
};

constexpr mode_row mode_table[] = {
    {__LINE__, app, O_WRONLY, O_APPEND, true, false, true},
    {__LINE__, in, O_RDONLY, 0, false, false, false},
    {__LINE__, in | app, O_RDWR, O_APPEND, true, false, true},
    {__LINE__, out, O_WRONLY, 0, true, true, false},
    {__LINE__, out | app, O_WRONLY, O_APPEND, true, false, true},
    {__LINE__, in | out, O_RDWR, 0, false, false, false},
    {__LINE__, in | out | app, O_RDWR, O_APPEND, true, false, true},
    {__LINE__, out | trunc, O_WRONLY, 0, true, true, false},
    {__LINE__, in | out | trunc, O_RDWR, 0, true, true, false},
    {__LINE__, out | dsync, O_WRONLY, O_DSYNC, true, true, false},
    {__LINE__, in | ate | bin, O_RDONLY, 0, false, false, true},
    {__LINE__, out | bin, O_WRONLY, 0, true, true, false},
    {__LINE__, in | out | ate, O_RDWR, 0, false, false, true},
    {__LINE__, 0, -1, 0, false, false, false},
    {__LINE__, trunc, -1, 0, false, false, false},
    {__LINE__, app | trunc, -1, 0, false, false, false},
    {__LINE__, out | app | trunc, -1, 0, false, false, false},
    {__LINE__, in | trunc, -1, 0, false, false, false},
    {__LINE__, in | out | app | trunc, -1, 0, false, false, false},
    {__LINE__, dsync, -1, 0, false, false, false},
    {__LINE__, in | dsync, -1, 0, false, false, false},
    {__LINE__, out | trunc | dsync, -1, 0, false, false, false},
    {__LINE__, ate | bin, -1, 0, false, false, false},
};

TEST_F(Fstream, ModeTable)
{
    for (const mode_row& row : mode_table) {
        SCOPED_TRACE(row.line);
        const std::string existing = make("existing", "12345"), missing = path("missing");
        Filebuf_base f;
        errno = 0;
        ASSERT_EQ(f.open(existing.c_str(), row.mode), row.access != -1);
        if (row.access == -1) {
            EXPECT_EQ(errno, 0) << "a mode without flags makes no system call";
            EXPECT_EQ(read(existing), "12345");
        } else {
            const int status = ::fcntl(f.fd(), F_GETFL);
            EXPECT_EQ(status & O_ACCMODE, row.access);
            EXPECT_EQ(status & (O_APPEND | O_DSYNC), row.flags);
            EXPECT_EQ(f.file_size(), row.truncates ? 0 : 5);
            EXPECT_EQ(f.seek(0, ios_base::cur), row.at_end ? f.file_size() : 0);
            EXPECT_EQ(f.mode(), row.mode);
            EXPECT_TRUE(f.owns_fd() && f.is_regular());
        }
        Filebuf_base g;
        EXPECT_EQ(g.open(missing.c_str(), row.mode), row.creates);
        EXPECT_EQ(fs::exists(missing), row.creates);
        fs::remove(missing);
    }
}

TEST_F(Fstream, OpenCloseAndDescriptorOwnership)
{
    const std::string first = make("first", "12345");
    Filebuf_base f;
    EXPECT_FALSE(f.close()) << "not open";
    ASSERT_TRUE(f.open(first.c_str(), out | app));
    EXPECT_FALSE(f.open(make("second", "").c_str(), in | out)) << "already open";
    EXPECT_TRUE(f.write("678", 3));
    const int fd = f.fd();
    EXPECT_TRUE(f.close());
    EXPECT_EQ(f.fd(), fd);
    EXPECT_EQ(f.mode(), 0u);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1) << "an owned descriptor is closed";
    EXPECT_EQ(read(first), "12345678");

    const struct { int flags; ios_base::openmode mode; } adopted[] = {
        {O_RDONLY, in}, {O_WRONLY, out}, {O_RDWR, in | out}, {O_WRONLY | O_APPEND, out | app}};
    for (auto [flags, mode] : adopted) {
        const int own = ::open(first.c_str(), flags);
        Filebuf_base a;
        ASSERT_TRUE(a.open(own, in));
        EXPECT_EQ(a.mode(), mode);
        EXPECT_FALSE(a.owns_fd());
        EXPECT_TRUE(a.close());
        EXPECT_EQ(::close(own), 0) << "an adopted descriptor stays open";
    }
    Filebuf_base closed;
    EXPECT_FALSE(closed.open(-1, in));
    EXPECT_FALSE(closed.open(fd, in)) << "closed descriptor";
}

TEST_F(Fstream, SeekSizeAndMapping)
{
    const long page = Filebuf_base::page_size();
    EXPECT_EQ(page, ::sysconf(_SC_PAGESIZE));
    Filebuf_base f;
    ASSERT_TRUE(f.open(make("five", "12345").c_str(), in));
    EXPECT_EQ(f.seek(-10, ios_base::end), -1);
    EXPECT_EQ(f.seek(-1, ios_base::beg), -1);
    EXPECT_EQ(f.seek(-5, ios_base::end), 0);
    EXPECT_EQ(f.seek(3, ios_base::beg), 3);
    EXPECT_EQ(f.seek(1, ios_base::cur), 4);
    EXPECT_EQ(f.seek(10, ios_base::end), 15);
    EXPECT_EQ(f.seek(0, static_cast<ios_base::seekdir>(3)), -1);
    char c = 0;
    EXPECT_EQ(f.read(&c, 1), 0) << "past the end";
    EXPECT_EQ(f.seek(1, ios_base::beg), 1);
    EXPECT_EQ(f.read(&c, 1), 1);
    EXPECT_EQ(c, '2');

    std::string text(3 * page + 100, 'a');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char>('a' + i % 23);
    Filebuf_base m;
    ASSERT_TRUE(m.open(make("pages", text).c_str(), in));
    EXPECT_EQ(m.file_size(), static_cast<long long>(text.size()));
    EXPECT_EQ(m.mmap(1, page), nullptr) << "unaligned offset";
    EXPECT_EQ(m.seek(0, ios_base::cur), 0);
    void* p = m.mmap(page, page + 50);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::string(static_cast<char*>(p), page + 50), text.substr(page, page + 50));
    EXPECT_EQ(m.seek(0, ios_base::cur), 2 * page + 50);
    m.unmap(p, page + 50);

    Filebuf_base null;
    ASSERT_TRUE(null.open("/dev/null", in | out));
    EXPECT_FALSE(null.is_regular());
    EXPECT_EQ(null.file_size(), 0);
}

// --------------------------------------------------------- basic_filebuf

// The buffer's protected operations, for the cases no stream reaches.
struct probe_filebuf : uvt::filebuf {
    using basic_filebuf::basic_filebuf;
    using basic_filebuf::pbackfail;
};

TEST_F(Fstream, BufferedAndDirectWritesKeepTheirOrder)
{
    counting_allocator a;
    std::string expected;
    {
        uvt::ofstream os(path("out").c_str(), out, ios_base::badbit | ios_base::failbit, a);
        EXPECT_EQ(a.live_blocks(), 0u) << "the buffer comes with the first write";
        const std::string big(200000, 'B');
        for (int i = 0; i < 3; ++i) {
            os << "line " << i << '\n';
            os.write(big.data(), static_cast<uvt::streamsize>(big.size()));
            expected += "line " + std::to_string(i) + "\n" + big;
        }
        EXPECT_EQ(a.live_blocks(), 1u);
        os.close();
        EXPECT_FALSE(os.is_open());
        EXPECT_EQ(a.live_blocks(), 0u);
    }
    EXPECT_EQ(read(path("out")), expected);
}

TEST_F(Fstream, ReadingAndWritingShareOnePosition)
{
    probe_filebuf fb(alloc);
    ASSERT_TRUE(fb.open(make("rw", "abcdef").c_str(), in | out));
    EXPECT_EQ(fb.sbumpc(), 'a');
    EXPECT_EQ(fb.sbumpc(), 'b');
    EXPECT_EQ(fb.sputn("XY", 2), 2);
    EXPECT_EQ(fb.pubseekoff(0, ios_base::cur), 4) << "tell counts pending output";
    EXPECT_EQ(fb.sbumpc(), 'e');
    EXPECT_EQ(fb.pubseekoff(-10, ios_base::end), -1);
    EXPECT_EQ(fb.pubseekoff(-1, ios_base::beg), -1);
    EXPECT_EQ(fb.pubseekoff(0, ios_base::cur), 5) << "a failed seek keeps the position";
    EXPECT_EQ(fb.pbackfail('E'), 'E');
    EXPECT_EQ(fb.sbumpc(), 'E') << "a different character replaces it in the buffer";
    EXPECT_EQ(fb.pubseekpos(3), 3);
    EXPECT_EQ(fb.pbackfail(-1), 'X') << "at the get area's start the previous character is read again";
    EXPECT_EQ(fb.pubseekoff(2, ios_base::end), 8);
    EXPECT_EQ(fb.sputc('!'), '!');
    EXPECT_EQ(fb.in_avail(), 0);
    EXPECT_NE(fb.close(), nullptr);
    EXPECT_EQ(read(path("rw")), std::string("abXYef\0\0!", 9));

    ASSERT_TRUE(fb.open(path("rw").c_str(), in));
    EXPECT_EQ(fb.in_avail(), 9);
    EXPECT_EQ(fb.pbackfail(-1), -1) << "at the start of the file";
    char big[100000];
    EXPECT_EQ(fb.sgetn(big, sizeof big), 9);
    EXPECT_EQ(fb.sgetc(), -1);
    EXPECT_EQ(fb.sputc('x'), -1) << "opened for reading only";
}

TEST_F(Fstream, WideCharactersAreStoredAsTheyAre)
{
    uvt::wofstream os(path("wide").c_str(), out, ios_base::badbit, alloc);
    os << L'\x3b1' << 42;
    EXPECT_EQ(os.rdbuf()->pubseekoff(0, ios_base::cur), 3) << "positions count characters";
    os.close();
    const std::wstring expected = L"\x3b1" L"42";
    EXPECT_EQ(read(path("wide")), std::string(reinterpret_cast<const char*>(expected.data()), 12));

    std::ofstream(path("wide"), std::ios::app) << "xy";  // half a character
    uvt::wfilebuf in(alloc);
    ASSERT_TRUE(in.open(path("wide").c_str(), ios_base::in));
    wchar_t got[8];
    EXPECT_EQ(in.sgetn(got, 8), 3);
    EXPECT_EQ(std::wstring(got, 3), expected);
}

TEST_F(Fstream, WorksWithoutABufferWhenTheAllocatorFails)
{
    counting_allocator a;
    a.fail_at(1, true);
    probe_filebuf fb(a);
    ASSERT_TRUE(fb.open(path("unbuffered").c_str(), in | out | trunc));
    EXPECT_EQ(fb.sputn("hello", 5), 5);
    EXPECT_EQ(fb.pubseekpos(1), 1);
    char got[4];
    EXPECT_EQ(fb.sgetn(got, 4), 4);
    EXPECT_EQ(std::string(got, 4), "ello");
    EXPECT_GT(a.failures(), 0u);
    EXPECT_EQ(a.live_blocks(), 0u);
}

// -------------------------------------------------------------- failures

TEST_F(Fstream, OpenFailuresSetFailbitAndThrowByTheMask)
{
    uvt::ofstream quiet(path("no/such/dir").c_str(), out, ios_base::goodbit, alloc);
    EXPECT_TRUE(quiet.fail() && !quiet.bad() && !quiet.is_open());
    quiet.open(path("ok").c_str());
    EXPECT_TRUE(quiet.good()) << "a successful open clears the state";
    quiet.open(path("ok").c_str());
    EXPECT_TRUE(quiet.fail()) << "already open";
    EXPECT_THROW(uvt::ofstream(path("x").c_str(), app | trunc, ios_base::failbit, alloc), ios_base::failure);
    uvt::ofstream adopt(alloc);
    const int closed = ::open(path("ok").c_str(), O_RDONLY);
    ::close(closed);
    adopt.open(closed);
    EXPECT_TRUE(adopt.fail());
}

TEST_F(Fstream, RefusedWritesSetBadbit)
{
    uvt::ofstream full("/dev/full", out, ios_base::goodbit, alloc);
    ASSERT_TRUE(full.is_open());
    full << "lost" << uvt::flush;
    EXPECT_TRUE(full.bad());
    full.clear();
    full.exceptions(ios_base::badbit | ios_base::failbit);
    EXPECT_THROW(full << "lost" << uvt::flush, ios_base::failure);

    const int readonly = ::open(make("ro", "").c_str(), O_RDONLY);
    uvt::ofstream adopted(alloc);
    adopted.open(readonly);
    ASSERT_TRUE(adopted.good());
    adopted << 'x';
    EXPECT_TRUE(adopted.bad()) << "the descriptor is read-only";
    adopted.close();
    EXPECT_EQ(::close(readonly), 0);
}

// What was flushed before a refused write stays in the file; the refused
// flush writes what the file takes and reports the rest lost.
TEST_F(Fstream, AFailedFlushLosesNothingWrittenBefore)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    ::getrlimit(RLIMIT_FSIZE, &old);
    rlimit limited = old;
    limited.rlim_cur = 6000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    uvt::ofstream os(path("limited").c_str(), out, ios_base::goodbit, alloc);
    os << std::string(4000, 'A').c_str() << uvt::flush;
    EXPECT_TRUE(os.good());
    os << std::string(4000, 'B').c_str() << uvt::flush;
    EXPECT_TRUE(os.bad());
    os.close();
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(read(path("limited")), std::string(4000, 'A') + std::string(2000, 'B'));
}

} // namespace
