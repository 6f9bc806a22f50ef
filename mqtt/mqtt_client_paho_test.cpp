// The client without a broker: construction against a closed port, and the library's
// callbacks driven directly with synthetic structures.
#include <MQTTAsync.h>
#include <gtest/gtest.h>

#include <cstring>

#include "mqtt/client_test_util.h"
#include "mqtt/paho_callbacks.h"
#include "tests/support/process.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ts = corvanis::monitoring_modules::test_support;
using corvanis::monitoring_modules::liblog::severity;
using mqtt::paho_callbacks;
using mqtt::testing::client_log;
using mqtt::testing::recorded_subscription;
using namespace std::chrono_literals;
using waits = std::vector<std::chrono::milliseconds>;

namespace {

// A client that never reaches a broker and retries rarely, unless told otherwise.
struct offline_client {
    std::shared_ptr<client_log> log = std::make_shared<client_log>();
    std::unique_ptr<mqtt::mqtt_client_paho> client;

    explicit offline_client(mqtt::mqtt_client_settings settings = {},
                            mqtt::reconnect_options reconnect = {{1h}, {}}) {
        settings.connection.host = "127.0.0.1";
        settings.connection.port = ts::free_port();
        if (settings.connection.client_id.empty()) settings.connection.client_id = "unit";
        settings.logger = log;
        client = std::make_unique<mqtt::mqtt_client_paho>(settings, mqtt::testing::make_container(),
                                                          reconnect);
    }
    void* context() { return client.get(); }

    // Hands the client a message as the library does, in memory the library may free.
    void arrive(const std::string& topic, const std::string& payload, int topic_length = -1) {
        auto* name = static_cast<char*>(MQTTAsync_malloc(topic.size() + 1));
        std::memcpy(name, topic.c_str(), topic.size() + 1);
        auto* message =
            static_cast<MQTTAsync_message*>(MQTTAsync_malloc(sizeof(MQTTAsync_message)));
        *message = MQTTAsync_message_initializer;
        message->payloadlen = static_cast<int>(payload.size());
        message->payload = MQTTAsync_malloc(payload.size() + 1);
        std::memcpy(message->payload, payload.data(), payload.size());
        const int length = topic_length < 0 ? static_cast<int>(topic.size()) : topic_length;
        EXPECT_EQ(paho_callbacks::on_message_arrived(context(), name, length, message), 1);
    }
};

// Collects the back-off waits the reconnect thread reports.
struct backoff_log {
    std::mutex mutex;
    waits seen;
    mqtt::reconnect_options options(waits table) {
        return {std::move(table), [this](std::chrono::milliseconds wait) {
                    std::lock_guard lock(mutex);
                    seen.push_back(wait);
                }};
    }
    std::size_t size() {
        std::lock_guard lock(mutex);
        return seen.size();
    }
};

TEST(mqtt_client_paho, each_client_draws_its_suffix_and_is_counted_while_alive) {
    mqtt::mqtt_client_settings settings;
    settings.connection.client_id = "KESH_7";
    settings.connection.client_id_suffix_length = 4;
    offline_client a(settings);
    const auto id = a.client->get_client_id();
    ASSERT_EQ(id.size(), 10u);
    EXPECT_EQ(id.substr(0, 6), "KESH_7");
    EXPECT_EQ(
        id.find_first_not_of(corvanis::monitoring_modules::libstringutils::default_alphabet(), 6),
        std::string::npos);
    EXPECT_FALSE(a.client->is_connected());
    EXPECT_THROW_KEY(a.client->publish("t", "x", mqtt::quality_of_service::at_least_once, false),
                     "error.could_not_publish_not_connected");
    EXPECT_TRUE(
        a.log->has(severity::info, "MQTT Client - " + id + ": Working with MQTT version: 4"));
    EXPECT_TRUE(a.log->has(severity::debug, "with options: server_uri: tcp://127.0.0.1:"));
    const auto with_a = a.client->get_active_client_count();
    {
        offline_client b(settings);
        EXPECT_NE(b.client->get_client_id(), id);
        EXPECT_EQ(b.client->get_active_client_count(), with_a + 1);
    }
    EXPECT_EQ(a.client->get_active_client_count(), with_a);
}

TEST(mqtt_client_paho, the_topic_length_decides_the_topic_and_an_empty_payload_arrives_empty) {
    offline_client c;
    recorded_subscription all("#");
    c.client->subscribe(all.subscription);
    c.arrive("a/b", "", 0);     // zero: up to the terminating zero byte
    c.arrive("a/bcd", "2", 3);  // otherwise exactly that many bytes
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all.messages()[0]->topic, "a/b");
    EXPECT_TRUE(all.messages()[0]->payload.empty());
    EXPECT_EQ(all.messages()[1]->topic, "a/b");
    EXPECT_TRUE(c.log->has(severity::debug, "Received empty message on topic: a/b"));
}

TEST(mqtt_client_paho, a_throwing_handler_stops_this_message_only) {
    offline_client c;
    const auto qos = mqtt::quality_of_service::at_most_once;
    auto thrower = std::make_shared<mqtt::topic_subscription>(
        "t", qos, [](auto) { throw std::runtime_error("boom"); });
    auto odd = std::make_shared<mqtt::topic_subscription>("u", qos, [](auto) { throw 42; });
    c.client->subscribe(thrower);
    c.client->subscribe(odd);
    c.arrive("t", "1");
    c.arrive("u", "1");
    EXPECT_TRUE(c.log->has(severity::warning, "Exception in on_message_arrived: boom"));
    EXPECT_TRUE(c.log->has(severity::warning, "Undefined exception in on_message_arrived"));
    recorded_subscription later("t");
    c.client->unsubscribe(thrower);
    c.client->subscribe(later.subscription);
    c.arrive("t", "2");
    EXPECT_EQ(later.size(), 1u);
}

TEST(mqtt_client_paho, a_subscription_whose_owner_is_gone_is_pruned_by_the_next_message) {
    offline_client c;
    auto gone = std::make_unique<recorded_subscription>("p/+");
    recorded_subscription kept("p/+");
    c.client->subscribe(gone->subscription);
    c.client->subscribe(kept.subscription);
    gone.reset();
    c.arrive("p/1", "x");
    EXPECT_TRUE(
        c.log->has(severity::warning, "Found weak pointer without reference for topic: p/+"));
    EXPECT_TRUE(c.log->has(severity::debug, "Removing unreferenced weak_ptr for topic: p/+"));
    c.arrive("p/2", "x");
    EXPECT_EQ(c.log->count("Found weak pointer without reference"), 1u);
    EXPECT_EQ(kept.size(), 2u);
    EXPECT_EQ(c.client->get_subscribed_topic_count(), 1u);
    c.client->unsubscribe(kept.subscription);  // offline: nothing to undo at a broker
    EXPECT_EQ(c.client->get_subscribed_topic_count(), 0u);
}

TEST(mqtt_client_paho, the_back_off_runs_through_its_table_and_stays_at_the_end) {
    EXPECT_EQ(mqtt::reconnect_options{}.backoff, (waits{1s, 2s, 5s, 10s, 30s, 60s}));
    backoff_log backoff;
    offline_client c({}, backoff.options({1ms, 2ms, 3ms, 4ms, 5ms, 6ms}));
    ASSERT_TRUE(ts::eventually([&] { return backoff.size() >= 9; }));
    c.client.reset();
    EXPECT_EQ(waits(backoff.seen.begin(), backoff.seen.begin() + 9),
              (waits{1ms, 2ms, 3ms, 4ms, 5ms, 6ms, 6ms, 6ms, 6ms}));
}

// A loss while reconnecting starts no second reconnect. A successful connect ends the wait at
// once, so that subscriptions come back without the rest of it; the destructor does not wait
// out the hour either.
TEST(mqtt_client_paho, one_reconnect_at_a_time_and_a_successful_connect_ends_its_wait) {
    backoff_log backoff;
    offline_client c({}, backoff.options({1h, 2h}));
    ASSERT_TRUE(ts::eventually([&] { return backoff.size() == 1; }));
    char lost[] = "peer closed";
    paho_callbacks::on_connection_lost(c.context(), lost);
    paho_callbacks::on_connection_lost(c.context(), nullptr);
    EXPECT_TRUE(c.log->has(severity::info, "Connection lost - Cause: peer closed"));
    EXPECT_EQ(c.log->count(": Connection lost"), 2u);
    EXPECT_EQ(c.log->count("Reconnect already in progress."), 2u);
    EXPECT_EQ(c.log->count("Start reconnecting ..."), 1u);

    char cause[] = "automatic reconnect";
    paho_callbacks::on_connected(c.context(), cause);
    ASSERT_TRUE(ts::eventually([&] { return backoff.size() == 2; }));
    EXPECT_TRUE(c.log->has(severity::info, "Connection established: automatic reconnect"));
    c.client.reset();
    EXPECT_EQ(backoff.seen, (waits{1h, 2h}));
}

}  // namespace
