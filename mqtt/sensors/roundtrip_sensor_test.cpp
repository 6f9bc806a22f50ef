#include "mqtt/sensors/roundtrip_sensor.h"

#include <gtest/gtest.h>

#include "mqtt/exceptions.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "mqtt/testing/recording_host.h"
#include "tests/support/expectations.h"

namespace {

using namespace corvanis::monitoring_modules;
using libtavohelper::responses::channel_value;
using libtavohelper::responses::scan_response_codes;
using mqtt::sensors::roundtrip_state;
using mqtt::testing::failure;
using mqtt::testing::operation;
using mqtt::testing::sample_settings;
using result_type = libtavohelper::responses::sensor_scan_result;

constexpr int round_trip_time = 0;
constexpr int publish_connection_time = 1;
constexpr int subscribe_connection_time = 2;
constexpr int state_channel = 3;

std::unique_ptr<mqtt::sensors::roundtrip_sensor> make(mqtt::testing::recording_host& host, int id,
                                                      const std::string& timeout = "5") {
    auto settings = sample_settings("roundtrip_sensor");
    settings["timeout"] = timeout;
    return std::make_unique<mqtt::sensors::roundtrip_sensor>(
        id, libtavohelper::settings::sensor_data_wrapper("roundtrip_sensor", settings),
        host.container());
}

result_type scan(mqtt::testing::recording_host& host, mqtt::sensors::roundtrip_sensor& sensor) {
    sensor.scan();
    return host.last_scan_result(sensor.get_id());
}

long state_of(const result_type& r) {
    return static_cast<long>(std::get<std::int64_t>(r.values().at(state_channel)));
}

TEST(roundtrip, an_echoed_payload_completes_through_two_clients_of_its_own) {
    mqtt::testing::recording_host host;
    host.broker().configure([](auto& b) {
        b.connect_duration = 7;
        b.delays[operation::publish] = std::chrono::milliseconds(50);  // inside the measured span
    });
    auto sensor = make(host, 5);
    const auto r = scan(host, *sensor);
    EXPECT_EQ(r.response_code(), scan_response_codes::ok) << r.response_message().render();
    EXPECT_EQ(state_of(r), static_cast<long>(roundtrip_state::roundtrip_complete));
    EXPECT_EQ(r.values().at(publish_connection_time), channel_value(std::int64_t{7}));
    EXPECT_EQ(r.values().at(subscribe_connection_time), channel_value(std::int64_t{7}));
    EXPECT_GE(std::get<std::int64_t>(r.values().at(round_trip_time)), 50);

    // Subscriber first, then publisher; both ids and the topic carry the instance's tag.
    const auto history = host.broker().history();
    const auto& clients = history.connects;
    ASSERT_EQ(clients.size(), 2u);
    const std::string subscriber = clients[0].connection.client_id;
    ASSERT_EQ(subscriber.size(), std::string("KESH_5S").size() + 3) << subscriber;
    const std::string tag = subscriber.substr(7);
    EXPECT_EQ(subscriber, "KESH_5S" + tag);
    EXPECT_EQ(clients[1].connection.client_id, "KESH_5P" + tag);
    for (const auto& c : clients) {
        EXPECT_FALSE(c.session.automatic_reconnect);
        EXPECT_EQ(c.connection.client_id_suffix_length, 0u);
    }
    const auto& sent = history.publications;
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].client_id, "KESH_5P" + tag);
    EXPECT_EQ(sent[0].topic, "KESH/roundtrip/5_" + tag);
    EXPECT_EQ(sent[0].payload.size(), 1024u);
    EXPECT_EQ(sent[0].qos, mqtt::quality_of_service::at_least_once);
    EXPECT_FALSE(sent[0].retained);
    EXPECT_EQ(history.subscribed, std::vector<std::string>{sent[0].topic});
    EXPECT_EQ(history.unsubscribed, std::vector<std::string>{sent[0].topic});
    EXPECT_EQ(history.live_clients, 0u);  // released after the scan

    // A second instance with equal settings keeps apart by its own tag; payloads differ too.
    auto other = make(host, 5);
    EXPECT_EQ(state_of(scan(host, *other)), static_cast<long>(roundtrip_state::roundtrip_complete));
    const auto both = host.broker().history().publications;
    EXPECT_NE(both[1].topic, both[0].topic);
    EXPECT_NE(both[1].payload, both[0].payload);
}

// The state names the stage that failed; the scan still reports it with the failure's text.
// Refused publishes and lost messages come from a real broker in the end-to-end table; here,
// the faults a broker cannot produce.
TEST(roundtrip, the_state_tells_which_stage_failed) {
    using mqtt::exceptions::mqttasync_disconnected;
    const auto disconnected = [] {
        return failure<mqttasync_disconnected>(mqtt::messages::mqttasync_disconnected());
    };
    struct row {
        const char* name;
        std::function<void(mqtt::testing::fake_broker&)> fault;
        roundtrip_state state;
        std::string key;  // of the scan's message
    };
    const std::vector<row> rows = {
        {"subscribe failed", [&](auto& b) { b.fail_next(operation::subscribe, disconnected()); },
         roundtrip_state::subscriber_could_not_connect, "error.mqttasync_disconnected"},
        {"publish failed without a message",
         [](auto& b) {
             b.fail_next(operation::publish, std::make_exception_ptr(std::runtime_error("boom")));
         },
         roundtrip_state::message_not_sent, "libi18n.error.generic"},
        {"payload altered",
         [](auto& b) {
             b.configure([](auto& c) { c.route = [](std::string p) { return p.substr(1); }; });
         },
         roundtrip_state::message_not_received, "error.payload_corrupted"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        mqtt::testing::recording_host host;
        r.fault(host.broker());
        auto sensor = make(host, 1, "1");
        const auto result = scan(host, *sensor);
        EXPECT_EQ(state_of(result), static_cast<long>(r.state));
        EXPECT_EQ(result.response_code(), scan_response_codes::error);
        EXPECT_EQ(result.response_message().key(), r.key);
        EXPECT_FALSE(result.response_message().render().empty());
        EXPECT_EQ(result.values().count(round_trip_time),
                  r.state == roundtrip_state::message_not_received);
        EXPECT_EQ(host.broker().history().live_clients, 0u);
    }
}

TEST(roundtrip, a_topic_with_wildcards_is_refused_at_creation) {
    mqtt::testing::recording_host host;
    auto settings = sample_settings("roundtrip_sensor");
    settings["roundtrip.connection_roundtrip.topic"] = "rt/+/x";
    EXPECT_THROW_KEY(
        mqtt::sensors::roundtrip_sensor(
            1, libtavohelper::settings::sensor_data_wrapper("roundtrip_sensor", settings),
            host.container()),
        "error.publish_topic_wildcard");
}

}  // namespace
