#include "mqtt/settings/connection_settings.h"

#include <algorithm>

#include "libtavohelper/settings/kinds.h"
#include "mqtt/exceptions.h"

namespace corvanis::monitoring_modules::mqtt::settings {

namespace kinds = libtavohelper::settings;

namespace {

// Random characters after the "KESH_" prefix keep the client ids of different
// connection settings apart at the broker.
constexpr std::uint8_t client_id_suffix_length = 8;

std::string text(const sensor_data_wrapper& data, const std::string& k) {
    return kinds::kind_string::parse_and_validate(data.get_value(k));
}

std::int64_t integer(const sensor_data_wrapper& data, const std::string& k,
                     kinds::kind_integer::validation_rules rules) {
    return kinds::kind_integer::parse_and_validate(data.get_value(k), rules).value();
}

secure_string secret(const sensor_data_wrapper& data, const std::string& k) {
    return kinds::kind_securestring::parse_and_validate(data.get_secure_value(k).plain());
}

}  // namespace

std::int64_t workable_timeout_s(std::int64_t seconds) {
    return std::clamp(seconds, min_timeout_s, max_timeout_s);
}

std::string key(const std::string& section, const std::string& group, const std::string& setting) {
    return section + '.' + group + '.' + setting;
}

host_settings read_host_settings(const sensor_data_wrapper& data) {
    host_settings s;
    s.host = text(data, "host");
    s.logging = parse_logging(data.get_value("logging"));
    s.interval = integer(data, "interval", {.minimum = 1});
    s.timeout =
        workable_timeout_s(integer(data, "timeout", {.minimum = 0, .maximum = max_timeout_s}));
    s.corvaniscloudapikey = secret(data, "corvaniscloudapikey");
    s.ipversion = parse_ipversion(data.get_value("ipversion"));
    return s;
}

user_credentials read_user_credentials(const sensor_data_wrapper& data,
                                       const std::string& section) {
    const auto k = [&](const char* setting) {
        return key(section, names::user_credentials, setting);
    };
    user_credentials c;
    c.active = parse_yes_no(data.get_value(k("active")), "active");
    c.user = text(data, k("user"));
    c.password = secret(data, k("password"));
    return c;
}

std::int64_t read_port(const sensor_data_wrapper& data, const std::string& section) {
    return integer(data, key(section, names::connection_mqtt, "port"),
                   {.minimum = 1, .maximum = 65535});
}

tls read_tls(const sensor_data_wrapper& data, const std::string& section) {
    const auto k = [&](const char* setting) { return key(section, names::tls, setting); };
    tls t;
    t.active = parse_yes_no(data.get_value(k("active")), "active");
    t.server_auth_active =
        parse_yes_no(data.get_value(k("server_auth_active")), "server_auth_active");
    t.ca_certificate = text(data, k("ca_certificate"));
    t.client_auth_active =
        parse_yes_no(data.get_value(k("client_auth_active")), "client_auth_active");
    t.client_certificate = text(data, k("client_certificate"));
    t.client_key = text(data, k("client_key"));
    t.client_key_password = secret(data, k("client_key_password"));
    return t;
}

connection_settings::connection_settings(const sensor_data_wrapper& data)
    : host(read_host_settings(data)),
      credentials(read_user_credentials(data, names::credentials)),
      port(read_port(data, names::credentials)),
      tls(read_tls(data, names::credentials)) {}

roundtrip_sensor::roundtrip_sensor(const sensor_data_wrapper& data) : connection_settings(data) {
    const auto k = [](const char* setting) {
        return key(names::roundtrip, names::connection_roundtrip, setting);
    };
    roundtrip.topic = text(data, k("topic"));
    roundtrip.use_custom_settings =
        parse_yes_no(data.get_value(k("use_custom_settings")), "use_custom_settings");
    roundtrip.client_id = text(data, k("client_id"));
}

statistics_sensor::statistics_sensor(const sensor_data_wrapper& data)
    : connection_settings(data),
      topic(text(data, key(names::statistics, names::connection_statistics, "topic"))) {}

mqtt_notification::mqtt_notification(const sensor_data_wrapper& data)
    : host(text(data, names::connection + ".host")),
      port(integer(data, names::connection + ".port", {.minimum = 0, .maximum = 65535})),
      client_id(text(data, names::connection + ".client_id")),
      credentials(read_user_credentials(data, names::credentials)),
      tls(read_tls(data, names::credentials)) {}

void apply_tls(const settings::tls& tls, mqtt_client_settings& out) {
    if (tls.active != yes_no::yes) {
        return;
    }
    out.tls.use_tls = true;
    if (tls.server_auth_active == yes_no::yes) {
        if (tls.ca_certificate.empty()) {
            throw exceptions::server_authentication_activated_but_ca_is_empty(
                messages::server_authentication_activated_but_ca_is_empty());
        }
        out.tls.ca_certificate = tls.ca_certificate;
    }
    if (tls.client_auth_active != yes_no::yes) {
        return;
    }
    if (tls.client_certificate.empty()) {
        throw exceptions::client_authentication_activated_but_certificate_is_empty(
            messages::client_authentication_activated_but_certificate_is_empty());
    }
    out.tls.client_certificate = tls.client_certificate;
    out.tls.client_key = tls.client_key;  // may be empty: the certificate file may hold the key
    out.tls.client_key_password = tls.client_key_password;
}

namespace {
void apply_credentials(const user_credentials& c, mqtt_client_settings& out) {
    if (c.active == yes_no::yes) {
        out.connection.username = c.user;
        out.connection.password = c.password;
    }
}
}  // namespace

mqtt_client_settings to_client_settings(const connection_settings& settings) {
    mqtt_client_settings out;
    out.connection.host = settings.host.host;
    out.connection.port = settings.port;
    out.connection.connect_timeout = static_cast<std::uint64_t>(settings.host.timeout);
    out.connection.client_id = "KESH_";
    out.connection.client_id_suffix_length = client_id_suffix_length;
    apply_credentials(settings.credentials, out);
    apply_tls(settings.tls, out);
    return out;
}

mqtt_client_settings to_client_settings(const mqtt_notification& settings,
                                        std::uint64_t timeout_s) {
    mqtt_client_settings out;
    out.connection.host = settings.host;
    out.connection.port = settings.port;
    out.connection.client_id = settings.client_id;
    out.connection.connect_timeout = static_cast<std::uint64_t>(workable_timeout_s(
        static_cast<std::int64_t>(std::min<std::uint64_t>(timeout_s, max_timeout_s))));
    out.session.automatic_reconnect = false;
    apply_credentials(settings.credentials, out);
    apply_tls(settings.tls, out);
    return out;
}

std::string expand_sensorid(const std::string& text, int sensor_id, liblog::log_interface& log) {
    static const std::string placeholder = "%sensorid";
    log.log(liblog::severity::debug, "Expanding string: " + text);
    const std::string id = std::to_string(sensor_id);
    std::string out;
    std::size_t pos = 0;
    for (std::size_t hit; (hit = text.find(placeholder, pos)) != std::string::npos;
         pos = hit + placeholder.size()) {
        out.append(text, pos, hit - pos).append(id);
    }
    out.append(text, pos);
    log.log(liblog::severity::debug, "Expanded string: " + out);
    return out;
}

}  // namespace corvanis::monitoring_modules::mqtt::settings
