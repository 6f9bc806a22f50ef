// The format strings of the localised messages, against a plain reference: "%N:s" is
// argument N, "%%" is "%", any other "%" is an error.
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "libi18n/i18n_msg.h"
#include "libstringutils/format.h"

namespace su = corvanis::monitoring_modules::libstringutils;
namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

// Empty when the format string is refused.
std::optional<std::string> reference(const std::string& f, const std::vector<std::string>& args) {
    std::string out;
    for (std::size_t i = 0; i < f.size(); ++i) {
        if (f[i] != '%') {
            out += f[i];
            continue;
        }
        if (i + 1 < f.size() && f[i + 1] == '%') {
            out += '%';
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        unsigned long long index = 0;
        bool overflow = false;
        while (j < f.size() && f[j] >= '0' && f[j] <= '9') {
            const unsigned digit = static_cast<unsigned>(f[j] - '0');
            if (index > (static_cast<unsigned long long>(INT64_MAX) - digit) / 10) overflow = true;
            if (!overflow) index = index * 10 + digit;
            ++j;
        }
        if (j == i + 1 || f.compare(j, 2, ":s") != 0) return std::nullopt;
        if (overflow || index >= args.size()) return std::nullopt;
        out += args[index];
        i = j + 1;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    std::vector<std::string> args(in.ConsumeIntegralInRange<std::size_t>(0, 4));
    for (auto& a : args) a = in.ConsumeRandomLengthString(16);
    const std::string format = in.ConsumeRemainingBytesAsString();

    std::optional<std::string> got;
    try {
        got = su::format(format, args);
    } catch (const su::exceptions::exception&) {
    } catch (const std::out_of_range&) {  // an index beyond 64 bits, as documented
    }
    if (got != reference(format, args)) fuzz::mismatch("format differs from the reference");

    // A message renders or falls back to its default text, never throws.
    const auto message = i18n::i18n_msg("fuzz.key", format).with_args(args);
    (void)message.render_or_default();
    return 0;
}
