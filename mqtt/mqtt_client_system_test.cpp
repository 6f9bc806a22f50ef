// The client against a real mosquitto on 127.0.0.1.
#include <gtest/gtest.h>

#include <thread>

#include "mqtt/client_test_util.h"
#include "mqtt/exceptions.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/mqtt_peer.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ts = corvanis::monitoring_modules::test_support;
using corvanis::monitoring_modules::liblog::severity;
using corvanis::monitoring_modules::libtavohelper::settings::secure_string;
using mqtt::testing::client_log;
using mqtt::testing::recorded_subscription;
using ::testing::PrintToString;
using ts::failure_of;
using namespace std::chrono_literals;

namespace {

class client_system : public mqtt::testing::broker_client_test {
  protected:
    mqtt::mqtt_client_settings settings_for(const ts::mosquitto_broker& broker,
                                            const std::string& id = "sys") const {
        auto s = broker_client_test::settings_for(broker.port(), id, 5);
        s.connection.host = broker.host();
        s.session.automatic_reconnect = false;
        s.tls.use_tls = broker.uses_tls();
        return s;
    }
    static std::unique_ptr<mqtt::mqtt_client_paho> make(mqtt::mqtt_client_settings s,
                                                        mqtt::reconnect_options reconnect = {}) {
        return broker_client_test::make(std::move(s), std::move(reconnect));
    }
};

TEST_F(client_system, a_connected_client_delivers_both_ways_and_unsubscribes_before_leaving) {
    ts::mosquitto_broker broker;
    ts::mqtt_peer peer(broker);
    peer.publish("s/kept", "kept", 1, true);
    peer.subscribe("s/from-client", 2);
    auto client = make(settings_for(broker));
    EXPECT_TRUE(client->is_connected());
    EXPECT_TRUE(log->has(severity::notice, "MQTT Client - sys: Connected to: " + broker.uri() +
                                               " - MQTT Version: 4"));

    // The retained message comes right after the acknowledgement: it must find the subscription.
    recorded_subscription own("s/#");
    client->subscribe(own.subscription);
    EXPECT_TRUE(log->has(severity::info, "Subscribed to 's/#'"));
    ASSERT_TRUE(own.wait_for(1));
    EXPECT_EQ(own.messages()[0]->payload_view(), "kept");
    peer.publish("s/from-peer", "hello", 1);
    for (const auto qos :
         {mqtt::quality_of_service::at_most_once, mqtt::quality_of_service::at_least_once,
          mqtt::quality_of_service::exactly_once}) {
        client->publish("s/from-client", "q" + std::to_string(static_cast<int>(qos)), qos, false);
    }
    ASSERT_TRUE(own.wait_for(5));
    EXPECT_EQ(own.messages()[1]->payload_view(), "hello");
    const auto seen = peer.wait_for_messages(3, 5s);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[2].payload, "q2");
    EXPECT_EQ(seen[2].qos, 2);

    const std::string too_long(mqtt::mqtt_client_paho::max_payload_size + 1, 'x');
    EXPECT_THROW_KEY(
        client->publish("big", too_long, mqtt::quality_of_service::at_most_once, false),
        "error.message_too_long");
    EXPECT_EQ(log->count("Publish message on: 'big'"), 0u);

    client.reset();
    const auto unsubscribe = log->index_of("Unsubscribe from 's/#'");
    const auto unsubscribed = log->index_of("Unsubscribed topic 's/#'");
    const auto disconnect = log->index_of("Disconnect from broker.");
    EXPECT_GE(unsubscribe, 0);
    EXPECT_LT(unsubscribe, unsubscribed);
    EXPECT_LT(unsubscribed, disconnect);
    EXPECT_LT(disconnect, log->index_of("Cleaning up."));
    EXPECT_TRUE(no_thread_left());
}

TEST_F(client_system, credentials_are_checked_by_the_broker_and_never_logged) {
    ts::mosquitto_broker broker({.users = {{"alice", "s3cret-pw"}}});
    const struct {
        const char* user;
        const char* password;
        const char* failure_key;  // nullptr: connects
    } table[] = {
        {"alice", "s3cret-pw", nullptr},
        {"alice", "wrong-pw", "error.login_refused_at"},
        {"", "", "error.login_refused_at"},
    };
    for (const auto& row : table) {
        auto s = settings_for(broker, "cred-" + std::to_string(&row - table));
        s.connection.username = row.user;
        s.connection.password = secure_string(row.password);
        if (row.failure_key == nullptr) {
            EXPECT_TRUE(make(s)->is_connected());
        } else {
            EXPECT_THROW_KEY(make(s), row.failure_key);
        }
    }
    EXPECT_TRUE(log->has(severity::error, "Initial connection attempt failed: "));
    EXPECT_EQ(log->count("s3cret-pw"), 0u);
    EXPECT_EQ(log->count("wrong-pw"), 0u);
    EXPECT_TRUE(no_thread_left());
}

// Server verification needs a CA; a broker that requires a client certificate gets one.
TEST_F(client_system, tls_verifies_against_the_given_ca_and_presents_the_client_certificate) {
    ts::mosquitto_broker broker({.require_client_certificate = true});
    const auto& tls = broker.tls();
    const struct {
        const char* name;
        std::string ca;
        std::string certificate;
        std::string key;
        std::string key_password;
        const char* failure;  // nullptr: connects; else the key and a part of the message
    } table[] = {
        {"verified", tls.ca_certificate, tls.client_certificate, tls.client_key, "", nullptr},
        {"no ca", "", tls.client_certificate, tls.client_key, "", nullptr},
        {"encrypted key", tls.ca_certificate, tls.client_certificate, tls.client_key_encrypted,
         tls.client_key_password, nullptr},
        {"key inside cert", tls.ca_certificate, tls.client_certificate + tls.client_key, "", "",
         nullptr},
        {"wrong key password", tls.ca_certificate, tls.client_certificate, tls.client_key_encrypted,
         "nope", "error.tls_failure_at bad decrypt"},
    };
    for (const auto& row : table) {
        auto s = settings_for(broker, row.name);
        s.tls.ca_certificate = row.ca;
        s.tls.client_certificate = row.certificate;
        s.tls.client_key = row.key;
        s.tls.client_key_password = secure_string(row.key_password);
        if (row.failure == nullptr) {
            EXPECT_TRUE(make(s)->is_connected()) << row.name;
        } else {
            const std::string expected = row.failure;
            const auto space = expected.find(' ');
            const auto got = failure_of([&] { make(s); });
            EXPECT_TRUE(got.starts_with(expected.substr(0, space) + ": The TLS connection to " +
                                        broker.host() + ":" + std::to_string(broker.port())) &&
                        got.find(expected.substr(space + 1)) != std::string::npos)
                << got;
        }
    }
    EXPECT_TRUE(
        log->has(severity::debug, "MQTT Client - no ca: Do not verify server certificate "));
    EXPECT_TRUE(log->has(severity::error, "MQTT Client - wrong key password: TLS error: "));
    EXPECT_EQ(log->count(tls.client_key_password), 0u);
    EXPECT_EQ(log->count("PRIVATE KEY"), 0u);
    EXPECT_TRUE(no_thread_left());
    EXPECT_EQ(ts::open_descriptors_matching("memfd:mqtt-tls"), 0u);
}

// Without reconnecting the failure reaches the caller. With it, subscriptions made meanwhile are
// made at the broker once it is up (a loss later on: the fault tests).
TEST_F(client_system, a_broker_down_fails_fast_or_is_waited_for) {
    ts::mosquitto_broker broker;
    broker.stop();
    auto s = settings_for(broker, "gone");
    EXPECT_THROW_KEY(make(s), "error.connection_refused_at");
    EXPECT_TRUE(log->has(severity::error,
                         "MQTT Client - gone: Initial connection attempt failed: "
                         "The connection to " +
                             broker.host() + ":" + std::to_string(broker.port()) + " was refused"));
    EXPECT_TRUE(no_thread_left());

    s.session.automatic_reconnect = true;
    auto client = make(s, {{20ms}, {}});
    EXPECT_FALSE(client->is_connected());
    recorded_subscription own("l/#");
    client->subscribe(own.subscription);
    EXPECT_TRUE(log->wait_for("Start reconnecting ..."));
    EXPECT_EQ(log->count("Subscribed to"), 0u);
    broker.start();
    ASSERT_TRUE(log->wait_for("Subscribed to 'l/#'")) << PrintToString(log->lines());
    ts::mqtt_peer(broker).publish("l/x", "up");
    ASSERT_TRUE(own.wait_for(1));
    client.reset();
    EXPECT_TRUE(no_thread_left());
}

// A message matching several filters is one object, delivered once to each subscription; the
// same subscription twice and a null one add nothing. A filter stays at the broker until its
// last subscription goes, one whose owner is gone included.
TEST_F(client_system, filters_and_messages_are_shared_among_subscriptions) {
    ts::mosquitto_broker broker;
    auto client = make(settings_for(broker));
    recorded_subscription first("d");
    recorded_subscription second("d");
    recorded_subscription all("#");
    auto gone = std::make_unique<recorded_subscription>("d");
    for (auto* s : {&first, &second, gone.get(), &all, &all}) client->subscribe(s->subscription);
    client->subscribe(nullptr);
    EXPECT_EQ(log->count("Subscribed to 'd'"), 3u);  // one broker request per subscription
    EXPECT_EQ(client->get_subscribed_topic_count(), 2u);

    gone.reset();
    ts::mqtt_peer peer(broker);
    client->unsubscribe(first.subscription);
    EXPECT_TRUE(
        log->has(severity::warning, "Found unreferenced weak_ptr during unsubscribe for topic: d"));
    EXPECT_EQ(log->count("Unsubscribed topic 'd'"), 0u);
    peer.publish("d", "1", 2);
    ASSERT_TRUE(second.wait_for(1));

    client->unsubscribe(second.subscription);
    EXPECT_EQ(log->count("Unsubscribed topic 'd'"), 1u);
    EXPECT_EQ(client->get_subscribed_topic_count(), 1u);
    peer.publish("d", "2", 2);
    peer.publish("m", "marker", 2);  // after it, no copy of the others can still be on its way
    ASSERT_TRUE(all.wait_for(3));
    EXPECT_EQ(all.size(), 3u);
    EXPECT_EQ(all.messages()[2]->payload_view(), "marker");
    EXPECT_EQ(all.messages()[0], second.messages()[0]);
    EXPECT_EQ(second.size(), 1u);
    EXPECT_EQ(first.size(), 0u);
}

}  // namespace
