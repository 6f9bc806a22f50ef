#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "libtavohelper/settings/secure_string.h"

namespace corvanis::monitoring_modules::libtavohelper::settings {

// Typed parsers for raw setting texts. Each throws a setting error carrying a
// libtavohelper.error.* message; `name` in the rules names the setting in it.

struct kind_string {
    struct validation_rules {
        std::optional<std::size_t> max_length;  // in characters (UTF-8 code points)
        std::string name;
    };
    // Throws string_too_long.
    static std::string parse_and_validate(const std::string& value, validation_rules rules = {});
};

struct kind_integer {
    struct validation_rules {
        std::optional<std::int64_t> minimum;
        std::optional<std::int64_t> maximum;
    };
    // Empty for an empty text; throws setting_invalid for text that is not a whole
    // decimal number, setting_invalid_less_min / _bigger_max outside the bounds.
    static std::optional<std::int64_t> parse_and_validate(const std::string& value,
                                                          validation_rules rules = {});
};

struct kind_float {
    struct validation_rules {
        std::optional<double> minimum;
        std::optional<double> maximum;
    };
    // Empty for an empty text; throws setting_invalid for text that is not a finite
    // number, setting_invalid_less_min / _bigger_max outside the bounds.
    static std::optional<double> parse_and_validate(const std::string& value,
                                                    validation_rules rules = {});
};

struct kind_securestring {
    struct validation_rules {
        std::optional<std::size_t> max_length;
        std::string name;
    };
    static secure_string parse_and_validate(const std::string& value,
                                            const validation_rules& rules = {});
};

}  // namespace corvanis::monitoring_modules::libtavohelper::settings
