#include "libstringutils/format.h"

#include <string>

namespace corvanis::monitoring_modules::libstringutils {

namespace exceptions {
format_string_error::format_string_error()
    : _exception("Malformed placeholder in format string.") {}

placeholder_index_not_in_arguments::placeholder_index_not_in_arguments(
    std::string_view index_as_written)
    : _exception("Index " + std::string(index_as_written) + " is too high for argument list.") {}
}  // namespace exceptions

// A hand-written scanner for the grammar "%([0-9]+):s|%%|%": at each "%" the
// alternatives are tried in that order, exactly as a left-to-right regex search would.
std::string format(std::string_view fmt, const std::vector<std::string>& args) {
    std::string out;
    out.reserve(fmt.size());
    std::size_t pos = 0;
    while (pos < fmt.size()) {
        const std::size_t pct = fmt.find('%', pos);
        if (pct == std::string_view::npos) {
            out.append(fmt.substr(pos));
            break;
        }
        out.append(fmt.substr(pos, pct - pos));
        std::size_t digits_end = pct + 1;
        while (digits_end < fmt.size() && fmt[digits_end] >= '0' && fmt[digits_end] <= '9') {
            ++digits_end;
        }
        const bool has_digits = digits_end > pct + 1;
        if (has_digits && fmt.substr(digits_end, 2) == ":s") {
            const std::string digits(fmt.substr(pct + 1, digits_end - pct - 1));
            const long long index = std::stoll(digits);
            if (index < 0 || static_cast<unsigned long long>(index) >= args.size()) {
                throw exceptions::placeholder_index_not_in_arguments(digits);
            }
            out.append(args[static_cast<std::size_t>(index)]);
            pos = digits_end + 2;
        } else if (pct + 1 < fmt.size() && fmt[pct + 1] == '%') {
            out.push_back('%');
            pos = pct + 2;
        } else {
            throw exceptions::format_string_error();
        }
    }
    return out;
}

}  // namespace corvanis::monitoring_modules::libstringutils

namespace corvanis::monitoring_modules::libstringutils::exceptions {

// Defined here so that the framework library holds the one copy of the type information.
exception::~exception() = default;
format_string_error::~format_string_error() = default;
placeholder_index_not_in_arguments::~placeholder_index_not_in_arguments() = default;

}  // namespace corvanis::monitoring_modules::libstringutils::exceptions
