// A host program built against the installed package. It includes the
// umbrella header and calls into the library through every installed
// header, so a header that declares a function the shared object does not
// export fails to link here. Each use is marked with the header it stands
// for (`// <uvt/...>`); installed_package_test.sh checks that the marks name
// every installed header.
#include <uvt/all>

#include <cstdio>
#include <cstring>

#if !defined(UVT_API) || !defined(UVT_VERSION_MAJOR) // <uvt/base/api> <uvt/base/config>: macros only
#error "<uvt/base/api> or <uvt/base/config> does not define its macros"
#endif

namespace {

int failures = 0;

// Reports a condition that does not hold.
#define CHECK(condition) ((condition) ? void() : (void)(std::printf("failed: %s\n", #condition), ++failures))

bool same(const char* a, const char* b) { return std::strcmp(a, b) == 0; }

void use_every_header()
{
    uvt::allocator& a = uvt::allocator::global_allocator(); // <uvt/impl/memory>
    a.deallocate(a.allocate(16));
    uvt::handle<uvt::allocator> sub = a.createSubAllocator("sub", uvt::vela_component{}); // <uvt/impl/refcounted>
    sub->addReferences(1);
    sub->release();
    CHECK(same(uvt::getVELAComponentName(uvt::vela_component{2}), "Memory")); // <uvt/vela_component>
    auto& malloc_allocator = uvt_extern::UvtMallocAllocator::instance();      // <uvt/impl/malloc_allocator>
    CHECK(same(malloc_allocator.getName().c_str(), "UvtMallocAllocator"));
    CHECK(same(uvt::cstring_ptr("name", a).c_str(), "name"));                   // <uvt/ext/cstring_ptr>
#define UVT_ERROR(name, number, text) CHECK(uvt__##name().value() == (number)); // <uvt/impl/error_code>
#include <uvt/impl/error_list>                                                  // <uvt/impl/error_list>
#undef UVT_ERROR

    uvt::buffer_stream<64> os;                                        // <uvt/ext/buffer_stream>
    os << "id=" << uvt::hex << 255 << ' ' << uvt::ios_base::xalloc(); // <uvt/ios>
    CHECK(std::strncmp(os.c_str(), "id=ff ", 6) == 0);
    uvt::ostrstream grown(a); // <uvt/strstream>
    grown << "value " << 17;
    CHECK(same(grown.c_str(), "value 17"));

    uvt::exception e(__FILE__, __LINE__, uvt__ERR_UVT_OUTOFRANGE()); // <uvt/exception>
    e << uvt::message_argument<long>("IDX", 7);
    e.print(os);
    e.mark_processed();
    try {
        uvt::throwOutOfRange(__FILE__, __LINE__, 7, 0, 5); // <uvt/stdexcept>
    } catch (const uvt::out_of_range& caught) {
        caught.mark_processed();
        CHECK(caught.error_no() == 1000003);
    }
    uvt::bad_alloc(__FILE__, __LINE__, true).mark_processed();               // <uvt/new>
    uvt::system_error system(__FILE__, __LINE__, 2, uvt::system_category()); // <uvt/system_error>
    system.mark_processed();
    CHECK(system.error_no() == 2);
    {
        uvt::impl::exception_scope_helper<true> scope; // <uvt/exception_scope>
        CHECK(!uvt::uncaught_exception());
    }
    CHECK(uvt_extern::import::stdFileName(nullptr) == nullptr); // <uvt/import>
    uvt::message_list messages(a);                              // <uvt/impl/message_list>
    messages.new_message("Index $IDX$");
    messages.new_param("IDX", "7", false);
    char text[32];
    messages.first()->expand(text, sizeof text);
    CHECK(same(text, "Index 7"));
    [[maybe_unused]] uvt::impl::atomic_pair pair{0, 1}; // <uvt/impl/atomic16>: inline only, needs libatomic when used

    uvt::string s("settings", a); // <uvt/string> <uvt/impl/string_fwd>
    uvt::string copy(s + "/" + "a/path/longer/than/the/inline/buffer.conf", a);
    CHECK(uvt::string(copy).is_shared());                     // <uvt/impl/string_base>
    CHECK(uvt_adp::string("/var/log").substr(5, 3) == "log"); // <uvt/adp/string>
    CHECK(uvt::stoi("42") == 42);                             // <uvt/impl/itoa>
    CHECK(uvt::strtod("1.5", nullptr) == 1.5);                // <uvt/impl/strtod>
    char digits[uvt::dtoa_buffer_size];
    CHECK(same(uvt::dtoa(0.1, 12, digits, sizeof digits), "0.1")); // <uvt/impl/dtoa>
    const unsigned char utf8[] = "\xC3\xA9";
    const unsigned char* read;
    unsigned short units[4];
    unsigned short* written;
    const int rc = uvt::UC::convertToUTF16(utf8, utf8 + 2, read, units, units + 4, written); // <uvt/impl/unicode>
    CHECK(rc == uvt::UC::converted);
    CHECK(uvt::impl::strlen_impl("four") == 4); // <uvt/impl/memlib/memlib>

    uvt::ostringstream bytes(a); // <uvt/sstream>
    uvt::out_of_range(__FILE__, __LINE__, 7, 0, 5).serialize(bytes, true);
    uvt::istringstream in(bytes.data(), bytes.size(), a);
    uvt::auto_ptr<uvt::exception> received = uvt::exception::deserialize(in, a); // <uvt/impl/auto_ptr>
    CHECK(received->error_no() == 1000003);
    received->mark_processed();
    uvt::ofstream file("/dev/null", uvt::ios_base::out, uvt::ios_base::goodbit, a); // <uvt/fstream>
    CHECK(file.is_open());
    CHECK(uvt::impl::Filebuf_base::page_size() > 0); // <uvt/base/impl/details/filebuf_base>
    CHECK(uvt::getStandardError().good());           // <uvt/iostream>
}

} // namespace

int main()
{
    use_every_header();
    std::printf("%s\n", failures ? "consumer failed" : "consumer ok");
    return failures ? 1 : 0;
}
