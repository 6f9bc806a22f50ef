#include "libtavohelper/settings/kinds.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "libstringutils/utf8.h"
#include "libtavohelper/errors.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

namespace {

using utils::exceptions::setting_error;

std::string text_of(double v) {
    std::ostringstream out;
    out << v;
    return out.str();
}

// Lengths are characters, as the host's forms count them, not bytes.
void check_length(const std::string& value, const std::optional<std::size_t>& max,
                  const std::string& name) {
    if (!max) return;
    if (const auto length = libstringutils::utf8_length(value); length > *max) {
        throw setting_error(
            messages::string_too_long()(name, std::to_string(length), std::to_string(*max)));
    }
}

template <class T, class ToText>
void check_bounds(const std::string& raw, T value, const std::optional<T>& min,
                  const std::optional<T>& max, ToText to_text) {
    if (min && value < *min) {
        throw setting_error(messages::setting_invalid_less_min()(raw, to_text(*min)));
    }
    if (max && value > *max) {
        throw setting_error(messages::setting_invalid_bigger_max()(raw, to_text(*max)));
    }
}

}  // namespace

std::string kind_string::parse_and_validate(const std::string& value, validation_rules rules) {
    check_length(value, rules.max_length, rules.name);
    return value;
}

secure_string kind_securestring::parse_and_validate(const std::string& value,
                                                    const validation_rules& rules) {
    check_length(value, rules.max_length, rules.name);
    return secure_string(value);
}

std::optional<std::int64_t> kind_integer::parse_and_validate(const std::string& value,
                                                             validation_rules rules) {
    if (value.empty()) {
        return std::nullopt;
    }
    errno = 0;  // strtoll clamps an overflow silently: only errno tells
    char* end = nullptr;
    const long long parsed = std::strtoll(value.c_str(), &end, 10);
    if (end == value.c_str() || *end != '\0' || errno == ERANGE) {
        throw setting_error(messages::setting_invalid()(value, "Expected a whole number."));
    }
    const auto result = static_cast<std::int64_t>(parsed);
    check_bounds<std::int64_t>(value, result, rules.minimum, rules.maximum,
                               [](std::int64_t v) { return std::to_string(v); });
    return result;
}

std::optional<double> kind_float::parse_and_validate(const std::string& value,
                                                     validation_rules rules) {
    if (value.empty()) {
        return std::nullopt;
    }
    char* end = nullptr;
    const double parsed = std::strtod(value.c_str(), &end);
    if (end == value.c_str() || *end != '\0' || !std::isfinite(parsed)) {
        throw setting_error(messages::setting_invalid()(value, "Expected a number."));
    }
    check_bounds<double>(value, parsed, rules.minimum, rules.maximum, text_of);
    return parsed;
}

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
