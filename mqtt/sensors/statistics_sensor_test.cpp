#include "mqtt/sensors/statistics_sensor.h"

#include <gtest/gtest.h>

#include "mqtt/exceptions.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "mqtt/testing/recording_host.h"
#include "tests/support/expectations.h"

namespace {

using namespace corvanis::monitoring_modules;
using libtavohelper::responses::channel_value;
using libtavohelper::responses::scan_response_codes;
using mqtt::testing::failure;
using mqtt::testing::operation;
using mqtt::testing::sample_settings;
using mqtt::testing::with;

struct statistics : ::testing::Test {
    mqtt::testing::recording_host host;

    std::unique_ptr<mqtt::sensors::statistics_sensor> make(int id, const std::string& filter) {
        return std::make_unique<mqtt::sensors::statistics_sensor>(
            id,
            libtavohelper::settings::sensor_data_wrapper(
                "statistics_sensor", with(sample_settings("statistics_sensor"),
                                          {{"statistics.connection_statistics.topic", filter}})),
            host.container());
    }
    // Messages, bytes and topics of a fresh scan.
    std::map<int, channel_value> scan(mqtt::sensors::statistics_sensor& sensor) {
        sensor.scan();
        return host.last_scan_result(sensor.get_id()).values();
    }
    static std::map<int, channel_value> counts(long messages, long bytes, long topics) {
        return {{0, messages}, {1, bytes}, {2, topics}};
    }
};

TEST_F(statistics, counts_per_interval_across_a_wildcard_filter) {
    auto sensor = make(1, "plant/#");
    EXPECT_EQ(host.broker().history().subscribed, std::vector<std::string>{"plant/#"});
    for (int i = 0; i < 10; ++i) host.broker().publish("plant/a", "12345");
    host.broker().publish("plant/b/c", "");  // a message of 0 bytes still counts
    host.broker().publish("elsewhere/a", "ignored");
    EXPECT_EQ(scan(*sensor), counts(11, 50, 2));
    EXPECT_EQ(scan(*sensor), counts(0, 0, 0));  // a quiet interval
    host.broker().publish("plant/a", "1");
    EXPECT_EQ(scan(*sensor), counts(1, 1, 1));
}

// A scan that finds the client disconnected reports the loss and keeps what arrived for the
// next scan that can report it.
TEST_F(statistics, a_lost_connection_fails_the_scan_and_keeps_the_counts) {
    auto sensor = make(1, "a/#");
    host.broker().publish("a/b", "xyz");
    host.broker().configure([](auto& b) { b.connected = false; });
    sensor->scan();
    const auto failed = host.last_scan_result(1);
    EXPECT_EQ(failed.response_code(), scan_response_codes::error);
    EXPECT_EQ(failed.response_message().key(), "error.connection_lost");
    EXPECT_TRUE(failed.values().empty());
    host.broker().configure([](auto& b) { b.connected = true; });
    EXPECT_EQ(scan(*sensor), counts(1, 3, 1));
}

TEST_F(statistics, creation_fails_with_the_cause_and_leaves_no_client_behind) {
    struct row {
        const char* filter;
        std::optional<operation> refused;
        std::string key;
    };
    const std::vector<row> rows = {
        {"a/#/b", std::nullopt, "error.invalid_topic"},
        {"a/#", operation::connect, "error.not_authorized"},
        {"a/#", operation::subscribe, "error.mqttasync_disconnected"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.key);
        if (r.refused == operation::connect)
            host.broker().fail_next(operation::connect, failure<mqtt::exceptions::not_authorized>(
                                                            mqtt::messages::not_authorized()));
        if (r.refused == operation::subscribe)
            host.broker().fail_next(operation::subscribe,
                                    failure<mqtt::exceptions::mqttasync_disconnected>(
                                        mqtt::messages::mqttasync_disconnected()));
        EXPECT_THROW_KEY(make(1, r.filter), r.key);
        EXPECT_EQ(host.broker().history().live_clients, 0u);
    }
}

TEST_F(statistics, destruction_unsubscribes_and_survives_a_failed_unsubscribe) {
    for (const bool refused : {false, true}) {
        if (refused)
            host.broker().fail_next(
                operation::unsubscribe,
                failure<mqtt::exceptions::connection_lost>(mqtt::messages::connection_lost()));
        make(1, "a/#").reset();
        EXPECT_EQ(host.broker().history().live_clients, 0u);
    }
    EXPECT_EQ(host.broker().history().unsubscribed, (std::vector<std::string>{"a/#", "a/#"}));
    const auto texts = host.log_texts();
    EXPECT_EQ(
        std::count(texts.begin(), texts.end(),
                   "Unsubscribe failed: The connection to the MQTT broker (server) was lost."),
        1);
}

}  // namespace
