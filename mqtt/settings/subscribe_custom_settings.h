#pragma once

#include <array>
#include <optional>
#include <string>

#include "mqtt/settings/connection_settings.h"

namespace corvanis::monitoring_modules::mqtt::settings {

inline constexpr int custom_channel_count = 10;
// Compiling a JSONPath takes time quadratic in its length; real paths are far shorter.
inline constexpr std::size_t max_jsonpath_length = 2048;

struct custom_channel_settings {
    std::optional<settings::channel> enabled;  // absent for channel #1, which is always active
    std::string jsonpath;                      // at most max_jsonpath_length characters
    std::string name;                          // at most 32 characters
    std::string unit;                          // at most 32 characters
    channel_type type = channel_type::absolute_float;
    double scale_factor = 1.0;

    bool active() const { return !enabled || *enabled == settings::channel::enable; }
};

// The subscribe-custom sensor's settings. Every channel's settings are read and
// must parse, enabled or not. Throws the framework's setting errors, or
// std::bad_optional_access for an empty scale factor.
struct subscribe_custom_sensor : connection_settings {
    std::array<custom_channel_settings, custom_channel_count> channels;  // [0] is channel #1
    std::string topic;
    settings::duration_since_last_message duration_since_last_message;
    settings::retain_last_message retain_last_message;
    std::string message_path;  // empty: no sensor message; at most max_jsonpath_length

    explicit subscribe_custom_sensor(const sensor_data_wrapper& data);
};

}  // namespace corvanis::monitoring_modules::mqtt::settings
