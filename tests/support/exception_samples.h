// One exception of every class of the library, each built as its throwers
// build it, and a chain of several exceptions: for the serialisation tests
// and the fuzzer's seeds.
#pragma once

#include <uvt/ios>
#include <uvt/new>
#include <uvt/stdexcept>
#include <uvt/system_error>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

namespace uvt_test {

struct exception_sample {
    std::string name;
    unsigned short type_number;
    std::shared_ptr<uvt::exception> object;
    bool (*same_class)(const uvt::exception&); // another object is exactly of the sample's class
};

template <class E>
exception_sample sample(std::string name, const E& e)
{
    return {std::move(name), E::type_number, std::make_shared<E>(e),
            [](const uvt::exception& x) { return dynamic_cast<const E*>(&x) && typeid(x) == typeid(E); }};
}

inline std::vector<exception_sample> exception_samples()
{
    using namespace uvt;
    constexpr const char* F = "samples.cpp";
    bad_alloc memory(F, 1, "for the cache", true);
    memory.set_allocation_failure_type(USER_LIMIT);
    bad_numa_alloc numa;
    static_cast<bad_alloc&>(numa) = bad_alloc(F, 2, "on node 1", true);
    numa.set_allocation_failure_type(TIME_OUT); // not written: read back as UNKNOWN
    exception plain(F, 3, uvt__ERR_UVT_INIT_ERROR());
    plain << error_message(F, 4, 77, "second $X$ message") << msgarg_text("X", "expanded")
          << msgarg_text("EXTRA", "appended");
    return {
        sample("exception", plain),
        sample("bad_alloc", memory),
        sample("bad_numa_alloc", numa),
        sample("bad_cast", bad_cast(F, 5)),
        sample("bad_typeid", bad_typeid(F, 6)),
        sample("bad_exception", bad_exception(F, 7)),
        sample("logic_error", logic_error(F, 8, "logic")),
        sample("domain_error", domain_error(F, 9, 4711, "numbered")),
        sample("invalid_argument", invalid_argument(F, 10)),
        sample("length_error", length_error(F, 11, uvt__ERR_UVT_BUF_OVERFLOW())),
        sample("out_of_range", out_of_range(F, 12, 7, 0, 5)),
        sample("wrong_enum_type", wrong_enum_type(F, 24, 3, "balance")),
        sample("runtime_error", runtime_error(F, 13, "runtime")),
        sample("overflow_error", overflow_error(F, 14)),
        sample("range_error", range_error(F, 15)),
        sample("underflow_error", underflow_error(F, 16, "under")),
        sample("null_pointer", null_pointer(F, 17)),
        sample("invalid_unicode_symbol", invalid_unicode_symbol(F, 22)),
        sample("regex_error", regex_error(F, 23, regex_constants::error_badbrace, "a{2,1}")),
        sample("time_overflow_error", time_overflow_error(F, 25, "add", 99)),
        sample("time_conversion_error", time_conversion_error(F, 26, 1, 2, 3, 4, 5, 2024)),
        sample("invalid_guid_symbol", invalid_guid_symbol(28, 'x')),
        sample("system_error", system_error(F, 30, 2, system_category())),
        sample("ios_base::failure", ios_base::failure(F, 18, "stream")),
        sample("invalid_iterator_error", invalid_iterator_error(F, 19)),
        sample("bad_weak_ptr", bad_weak_ptr(F, 27)),
        sample("rvalue_error", rvalue_error(F, 20, "abc")),
        sample("bad_function_call", bad_function_call(F, 29)),
        sample("incomparable_iterators", incomparable_iterators(F, 21, "map")),
    };
}

// A runtime_error and `count - 1` appended out_of_range, each with two messages.
inline uvt::runtime_error exception_chain(int count)
{
    uvt::runtime_error head("chain.cpp", 100, "head of the chain");
    head << uvt::error_message("chain.cpp", 101, 5, "head detail $N$") << uvt::message_argument<int>("N", 1);
    for (int k = 1; k < count; ++k) {
        uvt::out_of_range link("chain.cpp", 100 + 10 * k, k, 0, k);
        link << uvt::error_message("chain.cpp", 101 + 10 * k, 6, "link detail");
        head << link;
    }
    return head;
}

} // namespace uvt_test
