// End to end through libMQTT.so's exports against a local mosquitto: the statistics
// and round-trip sensors, the connect check and the notification service.
#include <gtest/gtest.h>

#include <thread>

#include "mqtt/sensors/testing/module_host.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/mqtt_peer.h"

namespace ts = corvanis::monitoring_modules::test_support;
using module_testing::module_host;
using module_testing::settings_block;
using module_testing::value_of;
using namespace std::chrono_literals;

namespace {

constexpr int dispatch_ok = 0;
constexpr int dispatch_creation_failed = 7;
constexpr int dispatch_notification_failed = 9;
constexpr int response_error = 3;

class sensors_e2e : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!ts::mosquitto_available()) GTEST_SKIP() << "mosquitto not installed";
    }
    int port(const ts::mosquitto_broker& b) const { return static_cast<int>(b.port()); }

    // Lines the sensors' message handlers wrote, once the host asked for trace lines.
    static std::size_t received_lines(module_host& host) {
        std::size_t n = 0;
        for (const auto& t : host.log_texts())
            if (t.rfind("Received on topic \"", 0) == 0) ++n;
        return n;
    }
    static bool wait_received(module_host& host, std::size_t count) {
        return host.wait_for([&](const auto&) { return received_lines(host) >= count; }, 5s);
    }
};

TEST_F(sensors_e2e, statistics_counts_per_interval_across_a_wildcard_filter) {
    ts::mosquitto_broker broker;
    module_host host;
    host.set_log_threshold(7);
    ASSERT_EQ(
        host.create(1, settings_block("statistics_sensor", port(broker),
                                      {{"statistics.connection_statistics.topic", "plant/#"}})),
        dispatch_ok);
    ts::mqtt_peer peer(broker, "publisher");
    for (int i = 0; i < 10; ++i) peer.publish("plant/a", "12345");
    peer.publish("plant/b/c", "");           // an empty payload counts as a message of 0 bytes
    peer.publish("elsewhere/a", "ignored");  // outside the filter
    ASSERT_TRUE(wait_received(host, 11)) << received_lines(host);

    ASSERT_EQ(host.scan(1), dispatch_ok);
    auto r = host.last_scan_result(1);
    EXPECT_EQ(r.response_code(), 0);
    EXPECT_EQ(value_of(r, 0), 11);  // messages
    EXPECT_EQ(value_of(r, 1), 50);  // payload bytes
    EXPECT_EQ(value_of(r, 2), 2);   // active topics
    ASSERT_EQ(r.definitions_size(), 3);
    EXPECT_EQ(r.definitions(0).key(), "channel.count_messages_received");

    // A quiet interval reports zeros.
    ASSERT_EQ(host.scan(1), dispatch_ok);
    r = host.last_scan_result(1);
    EXPECT_EQ(value_of(r, 0), 0);
    EXPECT_EQ(value_of(r, 1), 0);
    EXPECT_EQ(value_of(r, 2), 0);

    // Without the broker the scan is an error result with the lost-connection message.
    broker.stop();
    ASSERT_TRUE(host.wait_for(
        [&](const auto&) {
            host.scan(1);
            return host.last_scan_result(1).response_code() == response_error;
        },
        5s));
    EXPECT_EQ(host.last_scan_result(1).message().key(), "error.connection_lost");
    EXPECT_EQ(host.destroy(1), dispatch_ok);
}

TEST_F(sensors_e2e, two_statistics_sensors_share_one_client_and_each_counts_once) {
    ts::mosquitto_broker broker;
    module_host host;
    host.set_log_threshold(7);
    ASSERT_EQ(host.create(1, settings_block("statistics_sensor", port(broker),
                                            {{"statistics.connection_statistics.topic", "a/#"}})),
              dispatch_ok);
    ASSERT_EQ(host.create(2, settings_block("statistics_sensor", port(broker),
                                            {{"statistics.connection_statistics.topic", "a/+"}})),
              dispatch_ok);
    const auto texts = host.log_texts();
    EXPECT_NE(std::find(texts.begin(), texts.end(), "  Number of active Clients    : 1"),
              texts.end());
    ts::mqtt_peer peer(broker, "publisher");
    peer.publish("a/b", "xy");
    ASSERT_TRUE(wait_received(host, 2));
    host.scan(1);
    host.scan(2);
    EXPECT_EQ(value_of(host.last_scan_result(1), 0), 1);
    EXPECT_EQ(value_of(host.last_scan_result(2), 0), 1);
}

TEST_F(sensors_e2e, creation_failures_reach_the_host_as_error_results) {
    ts::mosquitto_broker broker;
    module_host host;
    EXPECT_EQ(host.create(1, settings_block("statistics_sensor", port(broker),
                                            {{"statistics.connection_statistics.topic", "a/#/b"}})),
              dispatch_creation_failed);
    EXPECT_EQ(host.last_scan_result(1).message().key(), "error.invalid_topic");
    EXPECT_EQ(host.last_scan_result(1).message().args(0), "a/#/b");
    EXPECT_EQ(host.create(2, settings_block("statistics_sensor", port(broker),
                                            {{"credentials.tls.active", "yes"},
                                             {"credentials.tls.server_auth_active", "yes"},
                                             {"statistics.connection_statistics.topic", "a"}})),
              dispatch_creation_failed);
    EXPECT_EQ(host.last_scan_result(2).message().key(),
              "error.server_authentication_activated_but_ca_is_empty");
}

TEST_F(sensors_e2e, roundtrip_completes_and_reports_its_times) {
    ts::mosquitto_broker broker;
    module_host host;
    ASSERT_EQ(host.create(5, settings_block("roundtrip_sensor", port(broker))), dispatch_ok);
    ASSERT_EQ(host.scan(5), dispatch_ok);
    const auto r = host.last_scan_result(5);
    EXPECT_EQ(r.response_code(), 0) << r.message().text();
    EXPECT_EQ(value_of(r, 3), 4);  // roundtrip_complete
    EXPECT_GE(value_of(r, 0), 0);
    EXPECT_LT(value_of(r, 0), 5000);
    EXPECT_GE(value_of(r, 1), 0);
    EXPECT_GE(value_of(r, 2), 0);
    ASSERT_EQ(r.definitions_size(), 4);
    EXPECT_EQ(r.definitions(3).lookup(), "rttstate");
}

TEST_F(sensors_e2e, roundtrip_states_for_refusal_and_for_a_message_that_never_returns) {
    ts::mosquitto_broker secured({.users = {{"alice", "s3cret"}}});
    module_host host;
    ASSERT_EQ(host.create(1, settings_block("roundtrip_sensor", port(secured),
                                            {{"credentials.user_credentials.active", "yes"},
                                             {"credentials.user_credentials.user", "alice"},
                                             {"credentials.user_credentials.password", "wrong"}})),
              dispatch_ok);
    host.scan(1);
    auto r = host.last_scan_result(1);
    EXPECT_EQ(value_of(r, 3), 0);  // subscriber_could_not_connect
    EXPECT_EQ(r.response_code(), response_error);
    EXPECT_EQ(r.message().text(),
              "The sensor could not establish a connection to the MQTT broker (server). Check your "
              "credentials for MQTT.");

    // The broker acknowledges publishes to $SYS but never delivers them.
    ts::mosquitto_broker broker;
    ASSERT_EQ(host.create(2, settings_block("roundtrip_sensor", port(broker),
                                            {{"timeout", "1"},
                                             {"roundtrip.connection_roundtrip.topic", "$SYS/rt"}})),
              dispatch_ok);
    host.scan(2);
    r = host.last_scan_result(2);
    EXPECT_EQ(value_of(r, 3), 3);  // message_not_received
    EXPECT_EQ(r.message().key(), "error.timeout");
    EXPECT_FALSE(module_testing::has_value(r, 0));
}

TEST_F(sensors_e2e, connect_check_with_credentials_and_tls) {
    ts::mosquitto_broker secured({.users = {{"alice", "s3cret"}}});
    ts::mosquitto_broker tls({.tls = true});
    module_host host;
    const module_testing::settings_map alice = {
        {"credentials.user_credentials.active", "yes"},
        {"credentials.user_credentials.user", "alice"},
        {"credentials.user_credentials.password", "s3cret"}};
    auto wrong = alice;
    wrong["credentials.user_credentials.password"] = "nope";
    const module_testing::settings_map verified = {
        {"credentials.tls.active", "yes"},
        {"credentials.tls.server_auth_active", "yes"},
        {"credentials.tls.ca_certificate", tls.tls().ca_certificate}};
    auto other_ca = verified;
    other_ca["credentials.tls.ca_certificate"] = tls.tls().other_ca_certificate;

    struct row {
        const char* name;
        int port;
        module_testing::settings_map settings;
        bool success;
        const char* key;  // of the failure's message
    };
    const row rows[] = {
        {"right password", port(secured), alice, true, ""},
        {"wrong password", port(secured), wrong, false, "error.not_authorized"},
        {"no password", port(secured), {}, false, "error.not_authorized"},
        {"TLS verified", port(tls), verified, true, ""},
        {"TLS unverified", port(tls), {{"credentials.tls.active", "yes"}}, true, ""},
        {"TLS wrong CA", port(tls), other_ca, false, "error.tls_failure_at"},
        {"TLS without CA",
         port(tls),
         {{"credentials.tls.active", "yes"}, {"credentials.tls.server_auth_active", "yes"}},
         false,
         "error.server_authentication_activated_but_ca_is_empty"},
    };
    int id = 0;
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        host.clear();
        ASSERT_EQ(host.check(++id, settings_block("mqtt_connect_check", r.port, r.settings)),
                  dispatch_ok);
        const auto results = host.check_results();
        ASSERT_EQ(results.size(), 1u);
        EXPECT_EQ(results[0].success(), r.success);
        EXPECT_EQ(results[0].message().key(), r.key);
    }
}

TEST_F(sensors_e2e, notification_is_delivered_and_answers_with_its_log) {
    ts::mosquitto_broker broker;
    ts::mqtt_peer subscriber(broker, "watcher");
    subscriber.subscribe("alerts/#");
    module_host host;
    auto block = settings_block("mqtt_notification", port(broker));
    auto* n = block.mutable_notification();
    n->set_target("alerts/disk");
    n->set_message("disk full on srv1");
    n->set_timeout_s(5);
    ASSERT_EQ(host.meta_scan(1, 1, block), dispatch_ok);
    const auto got = subscriber.wait_for_messages(1, 5s);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].topic, "alerts/disk");
    EXPECT_EQ(got[0].payload, "disk full on srv1");
    auto responses = host.notification_responses();
    ASSERT_EQ(responses.size(), 1u);
    EXPECT_TRUE(responses[0].success());
    std::vector<std::string> lines;
    for (const auto& l : responses[0].lines()) lines.push_back(l.text());
    EXPECT_EQ(lines.front(), "send_notification start");
    EXPECT_EQ(lines.back(), "send_notification finished");

    (*block.mutable_settings())["credentials.tls.active"] = "yes";
    (*block.mutable_settings())["credentials.tls.server_auth_active"] = "yes";
    EXPECT_EQ(host.meta_scan(2, 1, block), dispatch_notification_failed);
    responses = host.notification_responses();
    ASSERT_EQ(responses.size(), 2u);
    EXPECT_FALSE(responses[1].success());
    EXPECT_EQ(responses[1].message().key(),
              "error.server_authentication_activated_but_ca_is_empty");
    EXPECT_EQ(responses[1]
                  .lines(responses[1].lines_size() - 1)
                  .text()
                  .rfind("send_notification failed: ", 0),
              0u);
}

}  // namespace
