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

TEST_F(sensors_e2e, statistics_counts_across_a_wildcard_filter_and_reports_a_lost_broker) {
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
    const auto r = host.last_scan_result(1);
    EXPECT_EQ(r.response_code(), 0);
    EXPECT_EQ(value_of(r, 0), 11);  // messages
    EXPECT_EQ(value_of(r, 1), 50);  // payload bytes
    EXPECT_EQ(value_of(r, 2), 2);   // active topics
    ASSERT_EQ(r.definitions_size(), 3);
    EXPECT_EQ(r.definitions(0).key(), "channel.count_messages_received");

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
        {"TLS verified", port(tls), verified, true, ""},
        {"TLS wrong CA", port(tls), other_ca, false, "error.tls_failure_at"},
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
}

}  // namespace
