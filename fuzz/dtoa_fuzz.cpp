// Formats arbitrary doubles with ecvt_r and dtoa at every digit count and
// buffer length the input picks, and checks: the outputs fit the buffer and
// are terminated, ecvt_r gives the digit count asked for (at most 17), the
// text of dtoa reads back through strtod to the digits it came from, and 17
// digits read back to the very double.
#include "fuzz_check.h"

#include <uvt/impl/dtoa>
#include <uvt/impl/strtod>

#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr char guard = '\x5A';

void checkEcvt(double value, int ndigits, std::size_t len)
{
    char buffer[40];
    std::memset(buffer, guard, sizeof buffer);
    int decpt = 0, sign = 0;
    const int result = uvt::ecvt_r(value, ndigits, &decpt, &sign, buffer, len);
    FUZZ_CHECK(buffer[len] == guard);
    if (result != 0)
        return;
    FUZZ_CHECK(ndigits >= 1 && std::memchr(buffer, '\0', len) != nullptr);
    FUZZ_CHECK(sign == (std::signbit(value) ? 1 : 0));
    if (std::isfinite(value))
        FUZZ_CHECK(std::strlen(buffer) == std::size_t(ndigits < 17 ? ndigits : 17) &&
                   std::strspn(buffer, "0123456789") == std::strlen(buffer));
}

void checkDtoa(double value, int ndigits, std::size_t len)
{
    char buffer[40];
    std::memset(buffer, guard, sizeof buffer);
    const char* text = uvt::dtoa(value, ndigits, buffer, len);
    FUZZ_CHECK(buffer[len] == guard);
    if (!text)
        return;
    FUZZ_CHECK(text == buffer && std::strlen(text) < len);
    if (!std::isfinite(value) || std::fabs(value) < 1e-306)
        return;
    const char* stop;
    const double back = uvt::strtod(text, &stop);
    FUZZ_CHECK(stop == text + std::strlen(text) + 1);
    const int digits = ndigits < 17 ? ndigits : 17;
    if (digits == 17) // 17 digits identify the double
        FUZZ_CHECK(std::memcmp(&back, &value, sizeof value) == 0);
    else if (!std::isinf(back)) // (few digits of a value near the largest double can round past it)
        // half a unit of the last digit, and the parser's unit in the last place
        FUZZ_CHECK(std::fabs(back - value) <= std::fabs(value) * (0.5 * std::pow(10.0, 1 - digits) + 0x1p-51));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 10)
        return 0;
    double value;
    std::memcpy(&value, data, sizeof value);
    const int ndigits = int(data[8] % 24) - 2;
    const std::size_t len = data[9] % 34;
    checkEcvt(value, ndigits, len);
    checkDtoa(value, ndigits, len);
    checkDtoa(value, 17, uvt::dtoa_buffer_size);
    return 0;
}
