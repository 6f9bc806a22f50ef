#pragma once
// Complete settings of each kind, as a host form sends them with nothing changed: the base
// of tests that read, convert or send settings and then change a few of them.

#include <map>
#include <string>

namespace corvanis::monitoring_modules::mqtt::testing {

using settings_map = std::map<std::string, std::string>;

// `kind` is one of "statistics_sensor", "roundtrip_sensor", "subscribe_custom_sensor",
// "mqtt_connect_check", "mqtt_notification"; the broker is 127.0.0.1:`port`.
inline settings_map sample_settings(const std::string& kind, int port = 1883) {
    settings_map m = {{"host", "127.0.0.1"},
                      {"logging", "disabled"},
                      {"interval", "60"},
                      {"timeout", "5"},
                      {"corvaniscloudapikey", ""},
                      {"ipversion", "IPv4"},
                      {"credentials.user_credentials.active", "no"},
                      {"credentials.user_credentials.user", ""},
                      {"credentials.user_credentials.password", ""},
                      {"credentials.connection_mqtt.port", std::to_string(port)},
                      {"credentials.tls.active", "no"},
                      {"credentials.tls.server_auth_active", "no"},
                      {"credentials.tls.ca_certificate", ""},
                      {"credentials.tls.client_auth_active", "no"},
                      {"credentials.tls.client_certificate", ""},
                      {"credentials.tls.client_key", ""},
                      {"credentials.tls.client_key_password", ""}};
    if (kind == "roundtrip_sensor") {
        m["roundtrip.connection_roundtrip.topic"] = "KESH/roundtrip/%sensorid";
        m["roundtrip.connection_roundtrip.use_custom_settings"] = "no";
        m["roundtrip.connection_roundtrip.client_id"] = "KESH_%sensorid";
    } else if (kind == "statistics_sensor") {
        m["statistics.connection_statistics.topic"] = "#";
    } else if (kind == "subscribe_custom_sensor") {
        const std::string p = "subscribe_custom.connection_subscribe_custom.";
        for (int n = 1; n <= 10; ++n) {
            const auto c = p + "channel" + std::to_string(n);
            if (n > 1) m[c] = "disable";
            m[c + "_jsonpath"] = "";
            m[c + "_name"] = "";
            m[c + "_unit"] = "";
            m[c + "_type"] = "absolute_float";
            m[c + "_scale_factor"] = "1";
        }
        m[p + "topic"] = "#";
        m[p + "duration_since_last_message"] = "disable";
        m[p + "retain_last_message"] = "dismiss";
        m[p + "message_path"] = "";
    } else if (kind == "mqtt_notification") {
        m["connection.host"] = "127.0.0.1";
        m["connection.port"] = std::to_string(port);
        m["connection.client_id"] = "module-test-notifier";
    }
    return m;
}

// `m` with `changes` applied.
inline settings_map with(settings_map m, const settings_map& changes) {
    for (const auto& [k, v] : changes) m[k] = v;
    return m;
}

}  // namespace corvanis::monitoring_modules::mqtt::testing
