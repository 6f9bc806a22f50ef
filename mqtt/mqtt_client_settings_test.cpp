#include <gtest/gtest.h>

#include <functional>

#include "liblog/memory_logger.h"
#include "mqtt/mqtt_client_settings.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
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

std::size_t hash(const mqtt::mqtt_client_settings& s) {
    return std::hash<mqtt::mqtt_client_settings>{}(s);
}

TEST(mqtt_client_settings, defaults_suit_a_sensor_on_a_plain_broker) {
    const mqtt::mqtt_client_settings s;
    EXPECT_EQ(s.connection.port, 1883);
    EXPECT_EQ(s.connection.client_id_suffix_length, 0);
    EXPECT_EQ(s.connection.connect_timeout, 10u);
    EXPECT_EQ(s.session.keep_alive_interval, 60u);
    EXPECT_TRUE(s.session.clean_session);
    EXPECT_TRUE(s.session.automatic_reconnect);
    EXPECT_FALSE(s.tls.use_tls);
}

TEST(mqtt_client_settings, connect_timeout_and_logger_are_not_part_of_the_key) {
    auto a = sample();
    auto b = sample();
    b.connection.connect_timeout = 99;
    b.logger = std::make_shared<corvanis::monitoring_modules::liblog::null_logger>();
    EXPECT_EQ(a, b);
    EXPECT_EQ(hash(a), hash(b));
    EXPECT_EQ(a.connection, b.connection);
    EXPECT_EQ(std::hash<mqtt::connection_group>{}(a.connection),
              std::hash<mqtt::connection_group>{}(b.connection));
}

TEST(mqtt_client_settings, every_identity_field_changes_equality_and_hash) {
    const std::vector<std::pair<const char*, std::function<void(mqtt::mqtt_client_settings&)>>>
        changes = {
            {"host", [](auto& s) { s.connection.host = "other"; }},
            {"port", [](auto& s) { s.connection.port = 1883; }},
            {"client_id", [](auto& s) { s.connection.client_id = "KESH_2"; }},
            {"suffix length", [](auto& s) { s.connection.client_id_suffix_length = 8; }},
            {"username", [](auto& s) { s.connection.username = "bob"; }},
            {"password", [](auto& s) { s.connection.password = secure_string("other"); }},
            {"keep alive", [](auto& s) { s.session.keep_alive_interval = 30; }},
            {"clean session", [](auto& s) { s.session.clean_session = false; }},
            {"reconnect", [](auto& s) { s.session.automatic_reconnect = false; }},
            {"use tls", [](auto& s) { s.tls.use_tls = false; }},
            {"ca", [](auto& s) { s.tls.ca_certificate = "CA2"; }},
            {"client cert", [](auto& s) { s.tls.client_certificate = "CERT"; }},
            {"client key", [](auto& s) { s.tls.client_key = "KEY"; }},
            {"key password", [](auto& s) { s.tls.client_key_password = secure_string("pw"); }},
        };
    const auto base = sample();
    for (const auto& [name, change] : changes) {
        auto changed = sample();
        change(changed);
        EXPECT_NE(base, changed) << name;
        EXPECT_NE(hash(base), hash(changed)) << name;
    }
}

// Reference values computed independently of this code from the documented formula.
TEST(mqtt_client_settings, hash_follows_the_documented_combination) {
    EXPECT_EQ(mqtt::hash_combine(0, 1), 0x9e3779baULL);
    mqtt::session_group session;  // 60, true, true
    EXPECT_EQ(std::hash<mqtt::session_group>{}(session), 0xa16fb5369d8ULL);
}

}  // namespace
