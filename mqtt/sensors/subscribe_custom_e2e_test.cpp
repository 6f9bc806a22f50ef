// The sensor through libMQTT.so's exports, fed by a real broker.
#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <thread>

#include "mqtt/sensors/testing/module_host.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/mqtt_peer.h"

namespace {

namespace ts = corvanis::monitoring_modules::test_support;
using module_testing::module_host;
using module_testing::settings_map;
using module_testing::value_of;
using namespace std::chrono_literals;

constexpr int sensor = 31;

class subscribe_custom_e2e : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!ts::mosquitto_available()) GTEST_SKIP() << "mosquitto not installed";
        broker_ = std::make_unique<ts::mosquitto_broker>();
        peer_ = std::make_unique<ts::mqtt_peer>(*broker_, "e2e-publisher");
        host_ = std::make_unique<module_host>();
        host_->set_log_threshold(7);  // the sensor's receipt lines tell when a message is in
    }

    // Short names: "c<N>_<field>", "c<N>" and the group's own settings.
    module_testing::wire::SettingsBlock block(const settings_map& overrides) {
        settings_map full = {{"topic", "plant/+/state"}};
        for (const auto& [k, v] : overrides) full[k] = v;
        settings_map prefixed;
        for (const auto& [k, v] : full) {
            prefixed["subscribe_custom.connection_subscribe_custom." +
                     (k[0] == 'c' && std::isdigit(k[1]) ? "channel" + k.substr(1) : k)] = v;
        }
        return module_testing::settings_block("subscribe_custom_sensor",
                                              static_cast<int>(broker_->port()), prefixed);
    }

    void publish(const std::string& payload) {
        peer_->publish("plant/7/state", payload);
        const auto line = "payload:\n" + payload;
        ASSERT_TRUE(host_->wait_for(
            [&](const auto& messages) {
                for (const auto& m : messages)
                    if (m.has_log() && m.log().line().text().ends_with(line)) return true;
                return false;
            },
            10s))
            << "the sensor did not receive " << payload;
    }

    module_testing::wire::ScanResult scan() {
        EXPECT_EQ(host_->scan(sensor), 0);
        return host_->last_scan_result(sensor);
    }

    std::unique_ptr<ts::mosquitto_broker> broker_;
    std::unique_ptr<ts::mqtt_peer> peer_;
    std::unique_ptr<module_host> host_;
};

const settings_map three_kinds = {
    {"c1_type", "absolute_integer"}, {"c1_jsonpath", "$.cycles"}, {"c2", "enable"},
    {"c2_jsonpath", "$.t.value"},    {"c2_name", "Temperature"},  {"c3", "enable"},
    {"c3_type", "delta_counter"},    {"c3_jsonpath", "$.energy"}, {"message_path", "$.state"}};

TEST_F(subscribe_custom_e2e, evaluates_only_the_latest_of_two_messages_into_three_kinds) {
    auto settings = three_kinds;
    settings["c5"] = "enable";  // channel 4 stays disabled
    settings["c5_jsonpath"] = "$.cycles";
    ASSERT_EQ(host_->create(sensor, block(settings)), 0);
    publish(R"({"cycles": 1, "t": {"value": 1.5}, "energy": 10.7, "state": "first"})");
    publish(R"({"cycles": 2, "t": {"value": 71.25}, "energy": "20.9 kWh", "state": "second"})");
    const auto r = scan();
    EXPECT_EQ(r.response_code(), 0);
    EXPECT_EQ(r.message().text(), "second");
    EXPECT_EQ(value_of(r, 1), 2);
    EXPECT_EQ(value_of(r, 2), 71.25);
    EXPECT_EQ(value_of(r, 3), 20);
    std::vector<std::pair<int, int>> kinds;
    for (const auto& d : r.definitions()) kinds.emplace_back(d.id(), d.kind());
    EXPECT_EQ(kinds, (std::vector<std::pair<int, int>>{{1, 1}, {2, 3}, {3, 2}, {5, 3}}));
    for (const auto& v : r.values()) EXPECT_EQ(v.has_integer(), v.id() == 1 || v.id() == 3);
}

// A broker the sensor cannot reach is an error at every scan: neither an empty result nor a
// stored one may pass for news. The stored result comes back once the broker does.
TEST_F(subscribe_custom_e2e, a_broker_that_cannot_be_reached_is_an_error_at_every_scan) {
    const auto on = [&](const ts::mosquitto_broker& b, const settings_map& overrides) {
        auto settings = block(three_kinds);
        for (const auto& [k, v] : overrides) {
            auto& map = k.ends_with("password") ? *settings.mutable_secure_settings()
                                                : *settings.mutable_settings();
            map[k] = v;
        }
        (*settings.mutable_settings())["credentials.connection_mqtt.port"] =
            std::to_string(b.port());
        return settings;
    };
    ts::mosquitto_broker gone;
    gone.stop();
    ts::mosquitto_broker guarded({.users = {{"alice", "right"}}});
    auto stored_settings = three_kinds;
    stored_settings["retain_last_message"] = "retain";
    stored_settings["duration_since_last_message"] = "enable";

    ASSERT_EQ(host_->create(sensor, block(stored_settings)), 0);
    publish(R"({"cycles": 9, "t": {"value": 3.5}, "energy": 4, "state": "kept"})");
    ASSERT_EQ(scan().response_code(), 0);
    ASSERT_EQ(host_->create(sensor + 1, on(gone, {})), 0);
    ASSERT_EQ(host_->create(sensor + 2,
                            on(guarded, {{"credentials.user_credentials.active", "yes"},
                                         {"credentials.user_credentials.user", "alice"},
                                         {"credentials.user_credentials.password", "wrong"}})),
              0);
    broker_->stop();

    // The first sensor's client learns of the loss from the closed socket.
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (scan().response_code() == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(100ms);
    for (int id : {sensor, sensor + 1, sensor + 2}) {
        for (int round = 0; round < 2; ++round) {
            ASSERT_EQ(host_->scan(id), 0);
            const auto r = host_->last_scan_result(id);
            EXPECT_EQ(r.response_code(), 3) << id;
            EXPECT_TRUE(r.message().key().starts_with("error.")) << id << " " << r.message().key();
            EXPECT_EQ(r.values_size(), 0) << id;
        }
    }
}

}  // namespace
