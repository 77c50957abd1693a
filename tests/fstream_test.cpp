// File buffers and streams: the open-mode table and descriptor layer
// (Filebuf_base), basic_filebuf's buffering and positions, and failures.

#include "support/test_allocator.h"

#include <uvt/fstream>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using uvt::ios_base;
using uvt::impl::Filebuf_base;
namespace fs = std::filesystem;

constexpr ios_base::openmode in = ios_base::in, out = ios_base::out, app = ios_base::app, trunc = ios_base::trunc,
                             ate = ios_base::ate, bin = ios_base::binary, dsync = Filebuf_base::dsync;
constexpr ios_base::iostate none = ios_base::goodbit, bad = ios_base::badbit, fail = ios_base::failbit;

class Fstream : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(::mkdtemp(dir.data()), nullptr); }
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

    std::string dir = "/tmp/uvt_fstream_XXXXXX";
    uvt::allocator& alloc = uvt::allocator::global_allocator();
};

// ------------------------------------------------------------ Filebuf_base

// access: O_RDONLY, O_WRONLY or O_RDWR (-1: the mode fails); flags: O_APPEND
// and O_DSYNC as F_GETFL reports them.
struct mode_row {
    int line;
    ios_base::openmode mode;
    int access, flags;
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
    {__LINE__, in | out | ate, O_RDWR, 0, false, false, true},
    {__LINE__, 0, -1, 0, false, false, false},
    {__LINE__, trunc, -1, 0, false, false, false},
    {__LINE__, app | trunc, -1, 0, false, false, false},
    {__LINE__, in | out | app | trunc, -1, 0, false, false, false},
    {__LINE__, in | dsync, -1, 0, false, false, false},
};

TEST_F(Fstream, ModeTable)
{
    for (const mode_row& row : mode_table) {
        SCOPED_TRACE(row.line);
        const std::string existing = make("existing", "12345"), missing = path("missing");
        Filebuf_base f, g;
        errno = 0;
        ASSERT_EQ(f.open(existing.c_str(), row.mode), row.access != -1);
        EXPECT_EQ(g.open(missing.c_str(), row.mode), row.creates);
        EXPECT_TRUE(row.access != -1 || errno == 0) << "a mode without flags makes no system call";
        EXPECT_EQ(fs::remove(missing), row.creates);
        if (row.access == -1) {
            EXPECT_EQ(read(existing), "12345");
            continue;
        }
        const int status = ::fcntl(f.fd(), F_GETFL);
        EXPECT_EQ(status & O_ACCMODE, row.access);
        EXPECT_EQ(status & (O_APPEND | O_DSYNC), row.flags);
        EXPECT_EQ(f.file_size(), row.truncates ? 0 : 5);
        EXPECT_EQ(f.seek(0, ios_base::cur), row.at_end ? f.file_size() : 0);
        EXPECT_TRUE(f.mode() == row.mode && f.owns_fd() && f.is_regular());
    }
}

TEST_F(Fstream, DescriptorOwnershipAndSeeks)
{
    const std::string five = make("five", "12345");
    Filebuf_base f;
    EXPECT_FALSE(f.close()) << "not open";
    ASSERT_TRUE(f.open(five.c_str(), in));
    EXPECT_FALSE(f.open(make("other", "").c_str(), in | out)) << "already open";
    const struct {
        long long offset;
        ios_base::seekdir dir;
        long long result;
    } seeks[] = {{-10, ios_base::end, -1}, {-1, ios_base::beg, -1}, {-5, ios_base::end, 0},       {3, ios_base::beg, 3},
                 {1, ios_base::cur, 4},    {10, ios_base::end, 15}, {0, ios_base::seekdir(3), -1}};
    for (auto [offset, dir, result] : seeks)
        EXPECT_EQ(f.seek(offset, dir), result) << offset << " from " << dir;
    const int fd = f.fd();
    EXPECT_TRUE(f.close() && f.fd() == fd && f.mode() == 0);
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1) << "an owned descriptor is closed";
    EXPECT_FALSE(f.open(fd, in)) << "closed descriptor";
    EXPECT_FALSE(f.open(-1, in));

    const struct {
        int flags;
        ios_base::openmode mode;
    } adopted[] = {{O_RDONLY, in}, {O_WRONLY, out}, {O_RDWR, in | out}, {O_WRONLY | O_APPEND, out | app}};
    for (auto [flags, mode] : adopted) {
        const int own = ::open(five.c_str(), flags);
        ASSERT_TRUE(f.open(own, in));
        EXPECT_TRUE(f.mode() == mode && !f.owns_fd() && f.close());
        EXPECT_EQ(::close(own), 0) << "an adopted descriptor stays open";
    }
    ASSERT_TRUE(f.open("/dev/null", in | out));
    EXPECT_TRUE(!f.is_regular() && f.file_size() == 0);
}

TEST_F(Fstream, MappingMovesThePositionPastTheMappedBytes)
{
    const long page = Filebuf_base::page_size();
    const std::string text = std::string(page, 'a') + std::string(page, 'b') + std::string(page + 100, 'c');
    Filebuf_base m;
    ASSERT_TRUE(m.open(make("pages", text).c_str(), in));
    EXPECT_EQ(m.mmap(1, page), nullptr) << "unaligned offset";
    EXPECT_EQ(m.seek(0, ios_base::cur), 0);
    void* p = m.mmap(page, page + 50);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::string(static_cast<char*>(p), page + 50), text.substr(page, page + 50));
    EXPECT_EQ(m.seek(0, ios_base::cur), 2 * page + 50);
    m.unmap(p, page + 50);
}

// --------------------------------------------------------- basic_filebuf

TEST_F(Fstream, ReadingAndWritingShareOnePosition)
{
    uvt::filebuf fb(alloc);
    ASSERT_TRUE(fb.open(make("rw", "abcdef").c_str(), in | out));
    EXPECT_EQ(fb.sbumpc(), 'a');
    EXPECT_EQ(fb.sbumpc(), 'b');
    EXPECT_EQ(fb.sputn("XY", 2), 2);
    EXPECT_EQ(fb.pubseekoff(0, ios_base::cur), 4) << "tell counts pending output";
    EXPECT_EQ(fb.sbumpc(), 'e');
    EXPECT_EQ(fb.pubseekoff(-10, ios_base::end), -1);
    EXPECT_EQ(fb.pubseekoff(-1, ios_base::beg), -1);
    EXPECT_EQ(fb.pubseekoff(0, ios_base::cur), 5) << "a failed seek keeps the position";
    EXPECT_EQ(fb.sputbackc('E'), 'E');
    EXPECT_EQ(fb.sbumpc(), 'E') << "a different character replaces it in the buffer";
    EXPECT_EQ(fb.pubseekpos(3), 3);
    EXPECT_EQ(fb.sungetc(), 'X') << "at the get area's start the previous character is read again";
    EXPECT_EQ(fb.pubseekoff(2, ios_base::end), 8);
    EXPECT_EQ(fb.sputc('!'), '!');
    EXPECT_EQ(fb.in_avail(), 0);
    EXPECT_NE(fb.close(), nullptr);
    EXPECT_EQ(read(path("rw")), std::string("abXYef\0\0!", 9));

    ASSERT_TRUE(fb.open(path("rw").c_str(), in));
    EXPECT_EQ(fb.in_avail(), 9);
    EXPECT_EQ(fb.sungetc(), -1) << "at the start of the file";
    EXPECT_EQ(fb.sputc('x'), -1) << "opened for reading only";
}

TEST_F(Fstream, TellpAndSeekpMoveTheSharedPosition)
{
    uvt::fstream fs(make("seekp", "abcdef").c_str(), in | out, none, alloc);
    for (char c; fs.get(c);) {
    }
    fs.clear(ios_base::eofbit);
    EXPECT_EQ(fs.tellp(), 6) << "at the end of the input";
    EXPECT_EQ(fs.seekp(2).tellp(), 2);
    fs.clear();
    EXPECT_EQ(fs.write("XY", 2).tellp(), 4);
    fs.seekp(-1, ios_base::end) << 'Z';
    EXPECT_TRUE(fs.seekp(-7, ios_base::cur).fail());
    EXPECT_EQ(fs.tellp(), -1);
    fs.close();
    EXPECT_EQ(read(path("seekp")), "abXYeZ");
}

TEST_F(Fstream, WideCharactersAreStoredAsTheyAre)
{
    uvt::wofstream os(path("wide").c_str(), out, bad, alloc);
    os << L'\x3b1' << 42;
    EXPECT_EQ(os.tellp(), 3) << "positions count characters";
    os.close();
    const std::wstring expected = L"\x3b1"
                                  L"42";
    std::ofstream(path("wide"), std::ios::app) << "xy"; // half a character
    EXPECT_EQ(read(path("wide")), std::string(reinterpret_cast<const char*>(expected.data()), 12) + "xy");
    uvt::wifstream is(path("wide").c_str(), in, none, alloc);
    wchar_t got[8];
    EXPECT_EQ(is.read(got, 8).gcount(), 3);
    EXPECT_EQ(std::wstring(got, 3), expected);
}

TEST_F(Fstream, WorksWithoutABufferWhenTheAllocatorFails)
{
    uvt_test::counting_allocator a;
    a.fail_at(1, true);
    uvt::fstream fs(path("unbuffered").c_str(), in | out | trunc, bad | fail, a);
    char got[5];
    fs << "hello";
    EXPECT_EQ(fs.seekg(1).read(got, 4).gcount(), 4);
    EXPECT_EQ(std::string(got, 4), "ello");
    EXPECT_TRUE(a.failures() > 0 && a.live_blocks() == 0);
}

// Small writes are buffered, large ones go straight to the file, in order;
// reads refill across buffers or go straight into large targets.
TEST_F(Fstream, BufferedAndDirectTransfersKeepTheirOrder)
{
    uvt_test::counting_allocator a;
    uvt::ofstream os(path("lines").c_str(), out, bad | fail, a);
    EXPECT_EQ(a.live_blocks(), 0u) << "the buffer comes with the first write";
    std::string text;
    for (int i = 0; text.size() < 300000; ++i) {
        const std::string line = std::string(i % 10 ? i % 97 : 70000, static_cast<char>('a' + i % 26)) + "\n";
        os.write(line.data(), static_cast<uvt::streamsize>(line.size()));
        text += line;
    }
    os.close();
    EXPECT_TRUE(!os.is_open() && a.attempts() == 1 && a.live_blocks() == 0);
    EXPECT_EQ(read(path("lines")), text);

    uvt::ifstream is(path("lines").c_str(), in, none, alloc);
    std::string joined;
    for (std::vector<char> line(80000); is.getline(line.data(), 80000);)
        joined += std::string(line.data()) + "\n";
    EXPECT_EQ(joined, text);
    EXPECT_TRUE(is.eof() && is.fail() && !is.bad());

    uvt::ifstream blocks(path("lines").c_str(), bin, none, alloc);
    std::string chunk(400000, '\0');
    EXPECT_TRUE(uvt::readFromBinFile(blocks, chunk.data(), 70000));
    EXPECT_EQ(chunk.substr(0, 70000), text.substr(0, 70000));
    EXPECT_FALSE(uvt::readFromBinFile(blocks, chunk.data(), 400000));
    EXPECT_EQ(blocks.gcount(), static_cast<long>(text.size()) - 70000);
    EXPECT_TRUE(blocks.eof() && blocks.fail() && !blocks.bad());
}

// -------------------------------------------------------------- failures

// Each case fails a stream built with the exception mask `m`: with an
// empty mask the stream is left with exactly `state`, with those bits in the
// mask the same steps throw.
using iostate = ios_base::iostate;
struct failure_case {
    int line;
    iostate state;
    iostate (*run)(std::string dir, iostate m);
};

uvt::allocator& heap() { return uvt::allocator::global_allocator(); }

const failure_case failure_cases[] = {
    {__LINE__, fail,
     [](std::string d, iostate m) { return uvt::ofstream((d + "/a/b").c_str(), out, m, heap()).rdstate(); }},
    {__LINE__, fail,
     [](std::string d, iostate m) { return uvt::ofstream(d.c_str(), app | trunc, m, heap()).rdstate(); }},
    {__LINE__, bad,
     [](std::string, iostate m) { // a full disk
         return uvt::ofstream("/dev/full", out, m, heap()).write("lost", 4).flush().rdstate();
     }},
    {__LINE__, bad,
     [](std::string, iostate m) { // an adopted read-only descriptor
         static const int readonly = ::open("/dev/null", O_RDONLY);
         uvt::ofstream os(heap());
         os.exceptions(m);
         os.open(readonly);
         return os.put('x').rdstate();
     }},
    {__LINE__, bad,
     [](std::string, iostate m) { // an adopted descriptor closed behind the stream's back
         uvt::ofstream os(heap());
         os.exceptions(m);
         os.open(::open("/dev/null", O_WRONLY));
         ::close(os.rdbuf()->fd());
         return os.write("lost", 4).flush().rdstate();
     }},
    {__LINE__, bad,
     [](std::string d, iostate m) { // a read error
         char c;
         return uvt::ifstream(d.c_str(), in, m, heap()).get(c).rdstate();
     }},
    {__LINE__, ios_base::eofbit | fail,
     [](std::string d, iostate m) { // reading past the end
         char c;
         std::ofstream((d += "/empty").c_str());
         return uvt::ifstream(d.c_str(), in, m, heap()).get(c).rdstate();
     }},
};

TEST_F(Fstream, FailuresSetStateBitsAndThrowByTheMask)
{
    for (const failure_case& c : failure_cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(c.run(dir, none), c.state);
        EXPECT_THROW(c.run(dir, c.state), ios_base::failure);
    }
}

// What was flushed before a refused write stays in the file; the refused
// flush leaves what the file took and reports the rest lost.
TEST_F(Fstream, AFailedFlushLosesNothingWrittenBefore)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    ::getrlimit(RLIMIT_FSIZE, &old);
    const rlimit limited{6000, old.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limited), 0);
    uvt::ofstream os(path("limited").c_str(), out, none, alloc);
    EXPECT_TRUE((os << std::string(4000, 'A').c_str() << uvt::flush).good());
    EXPECT_TRUE((os << std::string(4000, 'B').c_str() << uvt::flush).bad());
    os.close();
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(read(path("limited")), std::string(4000, 'A') + std::string(2000, 'B'));
}

} // namespace
