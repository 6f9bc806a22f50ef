// The time parser on any text (persisted times come back from the host) in the formats the
// code uses; formats are the program's own, never input. Whatever parses in the ISO format
// must format back to text that parses to the same instant.
#include <string>

#include "fuzz/fuzz_support.h"
#include "libtimeutils/time_format.h"

namespace tu = corvanis::monitoring_modules::libtimeutils;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    static const char* const formats[] = {tu::iso8601_format, "%FT%TZ", "%F %T",
                                          "%d.%m.%Y %H:%M:%S", "%Y-%m-%dT%H:%M:%S%z"};
    const std::string format =
        formats[in.ConsumeIntegralInRange<std::size_t>(0, std::size(formats) - 1)];
    const std::string text = in.ConsumeRemainingBytesAsString();
    tu::time_point parsed;
    const bool ok = fuzz::expecting_library_errors([&] { parsed = tu::parse(text, format); });
    if (ok && format == tu::iso8601_format) {
        const auto again = tu::parse(tu::format(tu::iso8601_format, parsed), tu::iso8601_format);
        if (again != parsed) fuzz::mismatch("ISO text does not parse back to the same instant");
    }
    return 0;
}
