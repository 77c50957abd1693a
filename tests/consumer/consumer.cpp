// A host program built against the installed package. It includes the
// umbrella header and calls into the library through every installed
// header, so a header that declares a function the shared object does not
// export fails to link here. Each use is marked with the header it stands
// for (`// <uvt/...>`); installed_package_test.sh checks that the marks name
// every installed header.
#include <uvt/all>

#include <cstdio>
#include <cstring>

#ifndef UVT_API // <uvt/base/api>: macros only
#error "<uvt/base/api> does not define UVT_API"
#endif
#ifndef UVT_VERSION_MAJOR // <uvt/base/config>: macros only
#error "<uvt/base/config> does not define the version"
#endif

namespace {

int failures = 0;

void check(bool ok, const char* what)
{
    if (!ok) {
        std::printf("failed: %s\n", what);
        ++failures;
    }
}

bool same(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

void use_every_header()
{
    uvt::allocator& a = uvt::allocator::global_allocator(); // <uvt/impl/memory>
    void* p = a.allocate(16);
    a.deallocate(p);
    uvt::handle<uvt::allocator> sub = a.createSubAllocator("consumer", uvt::vela_component{}); // <uvt/impl/refcounted>
    sub->addReferences(1);
    sub->release();
    check(same(uvt::getVELAComponentName(uvt::vela_component{2}), "Memory"), "vela_component"); // <uvt/vela_component>
    check(same(uvt_extern::UvtMallocAllocator::instance().getName().c_str(), "UvtMallocAllocator"),
          "malloc_allocator");                                               // <uvt/impl/malloc_allocator>
    check(same(uvt::cstring_ptr("name", a).c_str(), "name"), "cstring_ptr"); // <uvt/ext/cstring_ptr>
    check(uvt__ERR_UVT_OUTOFRANGE().value() == 1000003, "error_code");       // <uvt/impl/error_code>
#define UVT_ERROR(name, number, text) check(uvt__##name().value() == (number), #name);
#include <uvt/impl/error_list> // <uvt/impl/error_list>
#undef UVT_ERROR

    uvt::buffer_stream<64> os;                                        // <uvt/ext/buffer_stream>
    os << "id=" << uvt::hex << 255 << ' ' << uvt::ios_base::xalloc(); // <uvt/ios>
    check(std::strncmp(os.c_str(), "id=ff ", 6) == 0, "ios");
    uvt::ostrstream grown(a); // <uvt/strstream>
    grown << "value " << 17;
    check(same(grown.c_str(), "value 17"), "strstream");

    uvt::exception e(__FILE__, __LINE__, uvt__ERR_UVT_OUTOFRANGE()); // <uvt/exception>
    e << uvt::message_argument<long>("IDX", 7);
    e.print(os);
    e.mark_processed();
    try {
        uvt::throwOutOfRange(__FILE__, __LINE__, 7, 0, 5); // <uvt/stdexcept>
    } catch (const uvt::out_of_range& caught) {
        caught.mark_processed();
        check(caught.error_no() == 1000003, "stdexcept");
    }
    uvt::bad_alloc failure(__FILE__, __LINE__, true); // <uvt/new>
    failure.mark_processed();
    uvt::system_error system(__FILE__, __LINE__, 2, uvt::system_category()); // <uvt/system_error>
    system.mark_processed();
    check(system.error_no() == 2, "system_error");
    {
        uvt::impl::exception_scope_helper<true> scope; // <uvt/exception_scope>
        check(!uvt::uncaught_exception(), "exception_scope");
    }
    check(uvt_extern::import::stdFileName(nullptr) == nullptr, "import"); // <uvt/import>
    uvt::message_list messages(a);                                        // <uvt/impl/message_list>
    messages.new_message("Index $IDX$");
    messages.new_param("IDX", "7", false);
    char text[32];
    messages.first()->expand(text, sizeof text);
    check(same(text, "Index 7"), "message_list");
    uvt::impl::atomic_pair pair{0, 1}; // <uvt/impl/atomic16>: inline only, needs libatomic when used
    (void)pair;

    uvt::string s("settings", a); // <uvt/string> <uvt/impl/string_fwd>
    uvt::string path(s + "/" + "a/path/longer/than/the/inline/buffer.conf", a);
    uvt::string copy = path;
    check(copy.is_shared(), "string_base"); // <uvt/impl/string_base>
    uvt_adp::string adapter("/var/log");    // <uvt/adp/string>
    check(adapter.substr(5, 3) == "log", "adp/string");
    check(uvt::stoi("42") == 42, "itoa");                // <uvt/impl/itoa>
    check(uvt::strtod("1.5", nullptr) == 1.5, "strtod"); // <uvt/impl/strtod>
    char digits[uvt::dtoa_buffer_size];
    check(same(uvt::dtoa(0.1, 12, digits, sizeof digits), "0.1"), "dtoa"); // <uvt/impl/dtoa>
    const unsigned char utf8[] = "\xC3\xA9";
    const unsigned char* read;
    unsigned short units[4];
    unsigned short* written;
    check(uvt::UC::convertToUTF16(utf8, utf8 + 2, read, units, units + 4, written) == uvt::UC::converted,
          "unicode");                                     // <uvt/impl/unicode>
    check(uvt::impl::strlen_impl("four") == 4, "memlib"); // <uvt/impl/memlib/memlib>

    uvt::ostringstream bytes(a); // <uvt/sstream>
    e.serialize(bytes, true);
    uvt::istringstream in(bytes.data(), bytes.size(), a);
    uvt::auto_ptr<uvt::exception> received = uvt::exception::deserialize(in, a); // <uvt/impl/auto_ptr>
    check(received->error_no() == 1000003, "sstream, auto_ptr");
    received->mark_processed();
    uvt::ofstream file("/dev/null", uvt::ios_base::out, uvt::ios_base::goodbit, a); // <uvt/fstream>
    check(file.is_open(), "fstream");
    check(uvt::impl::Filebuf_base::page_size() > 0, "filebuf_base"); // <uvt/base/impl/details/filebuf_base>
    check(uvt::getStandardError().good(), "iostream");               // <uvt/iostream>
}

} // namespace

int main()
{
    use_every_header();
    std::printf("%s\n", failures ? "consumer failed" : "consumer ok");
    return failures ? 1 : 0;
}
