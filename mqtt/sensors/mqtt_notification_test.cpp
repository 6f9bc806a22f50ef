#include "mqtt/sensors/mqtt_notification.h"

#include <gtest/gtest.h>

#include "libtavohelper/settings/sensor_data_wrapper.h"
#include "mqtt/exceptions.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "mqtt/testing/recording_host.h"
#include "tests/support/expectations.h"

namespace {

using namespace corvanis::monitoring_modules;
using liblog::severity;
using mqtt::testing::failure;
using mqtt::testing::operation;

struct notification : ::testing::Test {
    mqtt::testing::recording_host host;
    std::shared_ptr<liblog::memory_logger> log = std::make_shared<liblog::memory_logger>();
    mqtt::testing::settings_map settings = mqtt::testing::sample_settings("mqtt_notification");
    std::string target = "alerts/disk";

    void send() {
        mqtt::sensors::mqtt_notification(host.container())
            .send_notification(
                {target, "disk full on srv1", 9},
                libtavohelper::settings::sensor_data_wrapper("mqtt_notification", settings), log);
    }
    std::vector<std::string> texts() const { return mqtt::testing::texts(*log); }
};

TEST_F(notification, publishes_the_text_on_the_target_with_the_request_timeout) {
    send();
    const auto history = host.broker().history();
    const auto& sent = history.publications;
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].topic, "alerts/disk");
    EXPECT_EQ(sent[0].payload, "disk full on srv1");
    EXPECT_EQ(sent[0].qos, mqtt::quality_of_service::at_least_once);
    EXPECT_FALSE(sent[0].retained);
    const auto& client = history.connects.at(0);
    EXPECT_EQ(client.connection.client_id, "module-test-notifier");  // as given, no prefix
    EXPECT_EQ(client.connection.connect_timeout, 9u);
    EXPECT_FALSE(client.session.automatic_reconnect);

    // The client's own lines below notices stay out of the answer to the host.
    const auto t = texts();
    EXPECT_EQ(t.front(), "send_notification start");
    EXPECT_EQ(t.back(), "send_notification finished");
    EXPECT_EQ(std::count(t.begin(), t.end(), "MQTT Client - module-test-notifier: Connected"), 0);
}

// A target no broker would take is refused before connecting: it would cost the connection.
TEST_F(notification, a_failure_is_logged_and_rethrown_to_the_host) {
    struct row {
        const char* name;
        std::function<void(notification&)> fault;
        std::string key;
    };
    const std::vector<row> rows = {
        {"wildcard target", [](notification& n) { n.target = "alerts/#"; },
         "error.publish_topic_wildcard"},
        {"empty target", [](notification& n) { n.target = ""; }, "error.publish_topic_empty"},
        {"refused",
         [](notification& n) {
             n.host.broker().fail_next(
                 operation::connect,
                 failure<mqtt::exceptions::not_authorized>(mqtt::messages::not_authorized()));
         },
         "error.not_authorized"},
        {"not published",
         [](notification& n) {
             n.host.broker().fail_next(operation::publish,
                                       failure<mqtt::exceptions::could_not_publish_not_connected>(
                                           mqtt::messages::could_not_publish_not_connected()));
         },
         "error.could_not_publish_not_connected"},
        {"server authentication without a CA",
         [](notification& n) {
             n.settings["credentials.tls.active"] = "yes";
             n.settings["credentials.tls.server_auth_active"] = "yes";
         },
         "error.server_authentication_activated_but_ca_is_empty"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        log->clear();
        target = "alerts/disk";
        r.fault(*this);
        const auto connects = host.broker().history().connects.size();
        EXPECT_THROW_KEY(send(), r.key);
        if (target != "alerts/disk") {
            EXPECT_EQ(host.broker().history().connects.size(), connects);
        }
        EXPECT_TRUE(texts().back().starts_with("send_notification failed: ")) << texts().back();
        EXPECT_EQ(host.broker().history().live_clients, 0u);
    }
    EXPECT_TRUE(host.broker().history().publications.empty());
}

}  // namespace
