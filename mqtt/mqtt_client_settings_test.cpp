#include <gtest/gtest.h>

#include <functional>

#include "liblog/memory_logger.h"
#include "mqtt/mqtt_client_settings.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace lg = corvanis::monitoring_modules::liblog;
using corvanis::monitoring_modules::libtavohelper::settings::secure_string;

namespace {

mqtt::mqtt_client_settings sample() {
    mqtt::mqtt_client_settings s;
    s.connection.host = "broker.example";
    s.connection.port = 8883;
    s.connection.client_id = "KESH_1";
    s.connection.username = "alice";
    s.connection.password = secure_string("s3cret");
    s.tls.use_tls = true;
    s.tls.ca_certificate = "CA";
    return s;
}

// Connect timeout and logger are left out of the key, so that sensors differing only in them
// share a client; every other field is part of it.
TEST(mqtt_client_settings, every_field_but_timeout_and_logger_changes_equality_and_hash) {
    using change = std::function<void(mqtt::mqtt_client_settings&)>;
    const struct {
        const char* name;
        change apply;
        bool same_key;
    } table[] = {
        {"connect timeout", [](auto& s) { s.connection.connect_timeout = 99; }, true},
        {"logger", [](auto& s) { s.logger = std::make_shared<lg::null_logger>(); }, true},
        {"host", [](auto& s) { s.connection.host = "other"; }, false},
        {"port", [](auto& s) { s.connection.port = 1883; }, false},
        {"client_id", [](auto& s) { s.connection.client_id = "KESH_2"; }, false},
        {"suffix length", [](auto& s) { s.connection.client_id_suffix_length = 8; }, false},
        {"username", [](auto& s) { s.connection.username = "bob"; }, false},
        {"password", [](auto& s) { s.connection.password = secure_string("other"); }, false},
        {"keep alive", [](auto& s) { s.session.keep_alive_interval = 30; }, false},
        {"clean session", [](auto& s) { s.session.clean_session = false; }, false},
        {"reconnect", [](auto& s) { s.session.automatic_reconnect = false; }, false},
        {"use tls", [](auto& s) { s.tls.use_tls = false; }, false},
        {"ca", [](auto& s) { s.tls.ca_certificate = "CA2"; }, false},
        {"client cert", [](auto& s) { s.tls.client_certificate = "CERT"; }, false},
        {"client key", [](auto& s) { s.tls.client_key = "KEY"; }, false},
        {"key password", [](auto& s) { s.tls.client_key_password = secure_string("pw"); }, false},
    };
    const auto base = sample();
    const std::hash<mqtt::mqtt_client_settings> hash;
    for (const auto& row : table) {
        auto changed = sample();
        row.apply(changed);
        EXPECT_EQ(base == changed, row.same_key) << row.name;
        EXPECT_EQ(hash(base) == hash(changed), row.same_key) << row.name;
    }
}

}  // namespace
