#pragma once

#include <cstdint>
#include <string>

#include "liblog/log_interface.h"
#include "libtavohelper/settings/secure_string.h"
#include "libtavohelper/settings/sensor_data_wrapper.h"
#include "mqtt/mqtt_client_settings.h"
#include "mqtt/settings/selections.h"

namespace corvanis::monitoring_modules::mqtt::settings {

using libtavohelper::settings::secure_string;
using libtavohelper::settings::sensor_data_wrapper;

// Section and group names, shared by every reader.
namespace names {
inline const std::string credentials = "credentials";
inline const std::string roundtrip = "roundtrip";
inline const std::string statistics = "statistics";
inline const std::string subscribe_custom = "subscribe_custom";
inline const std::string user_credentials = "user_credentials";
inline const std::string connection_mqtt = "connection_mqtt";
inline const std::string tls = "tls";
inline const std::string connection_roundtrip = "connection_roundtrip";
inline const std::string connection_statistics = "connection_statistics";
inline const std::string connection_subscribe_custom = "connection_subscribe_custom";
inline const std::string connection = "connection";
}  // namespace names

// "<section>.<group>.<setting>"
std::string key(const std::string& section, const std::string& group, const std::string& setting);

// Every reader throws the framework's setting errors: setting_not_available for a
// missing key, setting_selection_parse_error, setting_invalid* and string_too_long.

// "timeout" in seconds bounds every wait for the broker, also the teardown of a client, so
// it has a ceiling: larger values are refused. 0, which a host form may allow, stands for
// the smallest workable wait rather than failing every connect.
inline constexpr std::int64_t min_timeout_s = 1;
inline constexpr std::int64_t max_timeout_s = 300;
// `seconds` brought into [min_timeout_s, max_timeout_s].
std::int64_t workable_timeout_s(std::int64_t seconds);

// The host's own settings, without prefix.
struct host_settings {
    std::string host;
    settings::logging logging;
    std::int64_t interval;
    std::int64_t timeout;  // min_timeout_s..max_timeout_s; a 0 setting reads as min_timeout_s
    secure_string corvaniscloudapikey;
    settings::ipversion ipversion;
};
host_settings read_host_settings(const sensor_data_wrapper& data);

struct user_credentials {
    yes_no active = yes_no::no;
    std::string user;
    secure_string password;
};
user_credentials read_user_credentials(const sensor_data_wrapper& data, const std::string& section);

// connection_mqtt.port: 1..65535.
std::int64_t read_port(const sensor_data_wrapper& data, const std::string& section);

struct tls {
    yes_no active = yes_no::no;
    yes_no server_auth_active = yes_no::no;
    std::string ca_certificate;
    yes_no client_auth_active = yes_no::no;
    std::string client_certificate;
    std::string client_key;
    secure_string client_key_password;
};
tls read_tls(const sensor_data_wrapper& data, const std::string& section);

// What every sensor and the check share: host settings, credentials, port and TLS.
struct connection_settings {
    host_settings host;
    settings::user_credentials credentials;
    std::int64_t port;
    settings::tls tls;

    explicit connection_settings(const sensor_data_wrapper& data);
};

struct connection_roundtrip {
    std::string topic;
    yes_no use_custom_settings;
    std::string client_id;
};

struct roundtrip_sensor : connection_settings {
    connection_roundtrip roundtrip;
    explicit roundtrip_sensor(const sensor_data_wrapper& data);
};

struct statistics_sensor : connection_settings {
    std::string topic;
    explicit statistics_sensor(const sensor_data_wrapper& data);
};

struct mqtt_connect_check : connection_settings {
    explicit mqtt_connect_check(const sensor_data_wrapper& data) : connection_settings(data) {}
};

// The notification's broker: connection.host, connection.port (0..65535) and
// connection.client_id, then the credentials section's user_credentials and tls groups.
struct mqtt_notification {
    std::string host;
    std::int64_t port;
    std::string client_id;
    settings::user_credentials credentials;
    settings::tls tls;

    explicit mqtt_notification(const sensor_data_wrapper& data);
};

// Host, port, timeout, the "KESH_" client id prefix, credentials when active and TLS.
// Throws the TLS consistency errors.
mqtt_client_settings to_client_settings(const connection_settings& settings);
// Copies the TLS material into `out` when TLS is active; throws the consistency errors.
void apply_tls(const settings::tls& tls, mqtt_client_settings& out);
// The request's timeout goes through workable_timeout_s: a notification is not refused for it.
mqtt_client_settings to_client_settings(const mqtt_notification& settings, std::uint64_t timeout_s);

// Replaces every "%sensorid" by the id, logging the text before and after.
std::string expand_sensorid(const std::string& text, int sensor_id, liblog::log_interface& log);

}  // namespace corvanis::monitoring_modules::mqtt::settings
