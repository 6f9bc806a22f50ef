#include "mqtt/settings/subscribe_custom_settings.h"

#include "libtavohelper/settings/kinds.h"

namespace corvanis::monitoring_modules::mqtt::settings {

namespace kinds = libtavohelper::settings;

namespace {

std::string k(const std::string& setting) {
    return key(names::subscribe_custom, names::connection_subscribe_custom, setting);
}

std::string text(const sensor_data_wrapper& data, const std::string& setting,
                 std::optional<std::size_t> max_length = std::nullopt) {
    return kinds::kind_string::parse_and_validate(data.get_value(k(setting)),
                                                  {.max_length = max_length, .name = setting});
}

custom_channel_settings read_channel(const sensor_data_wrapper& data, int number) {
    const std::string prefix = "channel" + std::to_string(number);
    custom_channel_settings c;
    if (number > 1) {
        c.enabled = parse_channel(data.get_value(k(prefix)));
    }
    c.jsonpath = text(data, prefix + "_jsonpath", max_jsonpath_length);
    c.name = text(data, prefix + "_name", 32);
    c.unit = text(data, prefix + "_unit", 32);
    c.type = parse_channel_type(data.get_value(k(prefix + "_type")));
    c.scale_factor =
        kinds::kind_float::parse_and_validate(data.get_value(k(prefix + "_scale_factor"))).value();
    return c;
}

}  // namespace

subscribe_custom_sensor::subscribe_custom_sensor(const sensor_data_wrapper& data)
    : connection_settings(data) {
    for (int n = 1; n <= custom_channel_count; ++n) {
        channels[n - 1] = read_channel(data, n);
    }
    topic = text(data, "topic");
    duration_since_last_message =
        parse_duration_since_last_message(data.get_value(k("duration_since_last_message")));
    retain_last_message = parse_retain_last_message(data.get_value(k("retain_last_message")));
    message_path = text(data, "message_path", max_jsonpath_length);
}

}  // namespace corvanis::monitoring_modules::mqtt::settings
