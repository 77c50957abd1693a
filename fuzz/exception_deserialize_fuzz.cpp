// Rebuilds exceptions from arbitrary bytes with exception::deserialize and
// checks: the only failures are runtime_error (bad or truncated data) and
// bad_alloc; an accepted exception prints, and its own serialised form
// reads back as the same class. LeakSanitizer checks that a failure leaves
// nothing behind; -rss_limit_mb that promised lengths do not make memory
// grow beyond the bytes that arrive. The seeds (seeds/<this fuzzer> in the
// build directory) are real serialised exceptions of every class, written
// by exception_seeds.
#include "fuzz_check.h"

#include <uvt/exception>
#include <uvt/new>
#include <uvt/sstream>
#include <uvt/stdexcept>
#include <uvt/strstream>

#include <cstddef>
#include <cstdint>
#include <typeinfo>

namespace {

uvt::auto_ptr<uvt::exception> read(const char* data, std::size_t size, uvt::allocator& a)
{
    uvt::istringstream is(data, size, a);
    return uvt::exception::deserialize(is, a);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    uvt::allocator& a = uvt::allocator::global_allocator();
    try {
        const uvt::auto_ptr<uvt::exception> e = read(reinterpret_cast<const char*>(data), size, a);
        uvt::ostrstream printed(a);
        e->print(printed);
        uvt::ostrstream again(a);
        e->serialize(again, false);
        const uvt::auto_ptr<uvt::exception> copy = read(again.c_str(), again.size(), a);
        const uvt::exception& original = *e;
        const uvt::exception& reread = *copy;
        FUZZ_CHECK(typeid(reread) == typeid(original));
        FUZZ_CHECK(reread.error_no() == original.error_no() && reread.line() == original.line());
        reread.mark_processed();
    } catch (const uvt::runtime_error& failure) {
        failure.mark_processed();
    } catch (const uvt::bad_alloc& failure) {
        failure.mark_processed();
    }
    return 0;
}
