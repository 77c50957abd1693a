// Writes the seed corpus of exception_deserialize_fuzz: every exception
// class of the library serialised with and without its stack text, a chain
// of several exceptions, an exception without payload and one that was
// received and is sent on. Usage: exception_seeds <directory>.
#include "../tests/support/exception_samples.h"

#include <uvt/sstream>
#include <uvt/strstream>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string serialized(const uvt::exception& e, bool no_stack)
{
    uvt::ostrstream os(uvt::allocator::global_allocator());
    e.serialize(os, no_stack);
    return {os.c_str(), os.size()};
}

void write_seed(const std::filesystem::path& dir, const std::string& name, const std::string& bytes)
{
    std::ofstream(dir / name, std::ios::binary) << bytes;
}

void write_both_forms(const std::filesystem::path& dir, const std::string& name, const uvt::exception& e)
{
    write_seed(dir, name, serialized(e, false));
    write_seed(dir, name + "-nostack", serialized(e, true));
    e.mark_processed();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <directory>\n", argv[0]);
        return 2;
    }
    const std::filesystem::path dir = argv[1];
    std::filesystem::create_directories(dir);
    for (const uvt_test::exception_sample& s : uvt_test::exception_samples())
        write_both_forms(dir, s.name, *s.object);
    const uvt::runtime_error chain = uvt_test::exception_chain(4);
    write_both_forms(dir, "chain", chain);

    uvt::allocator& a = uvt::allocator::global_allocator();
    a.setMalfunctionStartCounter(1);
    const uvt::exception lost(a, "lost.cpp", 7, uvt__ERR_UVT_LOGIC(), nullptr);
    a.setMalfunctionStartCounter(0);
    write_both_forms(dir, "without-payload", lost);

    const std::string bytes = serialized(chain, false);
    uvt::istringstream is(bytes.data(), bytes.size(), a);
    write_both_forms(dir, "received", *uvt::exception::deserialize(is, a));
    return 0;
}
