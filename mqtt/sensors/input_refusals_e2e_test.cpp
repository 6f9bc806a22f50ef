// Settings and requests that could crash the host, hang it or mislead its user are refused
// when a sensor is made or a notification is asked for, before any connection: with no broker
// listening, a refusal that names the problem proves no connection was tried.
#include <gtest/gtest.h>

#include "mqtt/sensors/testing/module_host.h"
#include "tests/support/mosquitto_broker.h"

namespace {

namespace ts = corvanis::monitoring_modules::test_support;
using module_testing::module_host;
using module_testing::settings_block;
using module_testing::settings_map;

constexpr int dispatch_creation_failed = 7;
constexpr int dispatch_notification_failed = 9;

class input_refusals_e2e : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!ts::mosquitto_available()) GTEST_SKIP() << "mosquitto not installed";
        ts::mosquitto_broker gone;  // a port nothing listens on once it stops
        port_ = static_cast<int>(gone.port());
    }
    int port_ = 0;
};

TEST_F(input_refusals_e2e, sensors_refuse_unusable_settings_at_creation) {
    const std::string custom = "subscribe_custom.connection_subscribe_custom.";
    const std::string statistics_topic = "statistics.connection_statistics.topic";
    const std::string roundtrip_topic = "roundtrip.connection_roundtrip.topic";
    const struct {
        const char* kind;
        settings_map settings;
        const char* key;
    } rows[] = {
        {"statistics_sensor",
         {{statistics_topic, std::string(100'000, 'a')}},
         "error.topic_too_long"},
        {"subscribe_custom_sensor",
         {{custom + "topic", std::string("p\0q", 3)}},
         "error.topic_contains_nul"},
        {"roundtrip_sensor", {{roundtrip_topic, "rt/+/x"}}, "error.publish_topic_wildcard"},
        {"subscribe_custom_sensor",
         {{custom + "channel1_jsonpath", "temp"}},
         "error.channel_jsonpath_invalid"},
        {"subscribe_custom_sensor",
         {{custom + "channel1_jsonpath", std::string(300'000, '$')}},
         "libtavohelper.error.string_too_long"},
        {"statistics_sensor",
         {{statistics_topic, "a"}, {"timeout", "18446744073709551"}},
         "libtavohelper.error.setting_invalid_bigger_max"},
    };
    module_host host;
    int id = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.kind) + " " + row.key);
        ++id;
        EXPECT_EQ(host.create(id, settings_block(row.kind, port_, row.settings)),
                  dispatch_creation_failed);
        EXPECT_EQ(host.last_scan_result(id).message().key(), row.key);
    }
}

TEST_F(input_refusals_e2e, notifications_refuse_topics_that_cannot_be_published_to) {
    const struct {
        std::string target;
        const char* key;
    } rows[] = {
        {"alerts/#", "error.publish_topic_wildcard"},
        {"", "error.publish_topic_empty"},
    };
    module_host host;
    int id = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        auto block = settings_block("mqtt_notification", port_);
        block.mutable_notification()->set_target(row.target);
        block.mutable_notification()->set_message("disk full");
        block.mutable_notification()->set_timeout_s(5);
        EXPECT_EQ(host.meta_scan(++id, 1, block), dispatch_notification_failed);
        const auto responses = host.notification_responses();
        ASSERT_FALSE(responses.empty());
        EXPECT_EQ(responses.back().message().key(), row.key);
    }
}

}  // namespace
