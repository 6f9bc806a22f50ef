#include "mqtt/settings/selections.h"

#include <array>
#include <utility>

#include "libtavohelper/errors.h"

namespace corvanis::monitoring_modules::mqtt::settings {

namespace {

// Options are tried in their declared order; the enumerator is the option's position
// unless the table says otherwise.
template <class E, std::size_t N>
E parse(const std::string& value, const std::array<std::pair<const char*, E>, N>& options,
        const std::string& type_name) {
    for (const auto& [text, enumerator] : options) {
        if (value == text) {
            return enumerator;
        }
    }
    throw libtavohelper::utils::exceptions::setting_selection_parse_error(value, type_name);
}

}  // namespace

yes_no parse_yes_no(const std::string& value, const std::string& type_name) {
    return parse(value, std::array{std::pair{"no", yes_no::no}, std::pair{"yes", yes_no::yes}},
                 type_name);
}

logging parse_logging(const std::string& value) {
    return parse(value,
                 std::array{std::pair{"enabled", logging::enabled},
                            std::pair{"disabled", logging::disabled}},
                 "logging");
}

ipversion parse_ipversion(const std::string& value) {
    return parse(value,
                 std::array{std::pair{"IPv4", ipversion::ipv4}, std::pair{"IPv6", ipversion::ipv6}},
                 "ipversion");
}

channel parse_channel(const std::string& value) {
    return parse(
        value,
        std::array{std::pair{"disable", channel::disable}, std::pair{"enable", channel::enable}},
        "channel");
}

duration_since_last_message parse_duration_since_last_message(const std::string& value) {
    using d = duration_since_last_message;
    return parse(value,
                 std::array{std::pair{"disable", d::disable}, std::pair{"enable", d::enable}},
                 "duration_since_last_message");
}

retain_last_message parse_retain_last_message(const std::string& value) {
    using r = retain_last_message;
    return parse(value,
                 std::array{std::pair{"dismiss", r::dismiss}, std::pair{"retain", r::retain}},
                 "retain_last_message");
}

channel_type parse_channel_type(const std::string& value) {
    using t = channel_type;
    return parse(value,
                 std::array{std::pair{"absolute_integer", t::absolute_integer},
                            std::pair{"absolute_float", t::absolute_float},
                            std::pair{"delta_counter", t::delta_counter}},
                 "channel_type");
}

}  // namespace corvanis::monitoring_modules::mqtt::settings
