// The client against brokers that fail: restarted with other passwords, frozen by SIGSTOP, and,
// for what a real broker cannot do, a relay that cuts or stalls connections.
#include <gtest/gtest.h>

#include <thread>

#include "mqtt/client_test_util.h"
#include "mqtt/exceptions.h"
#include "tests/support/fault_proxy.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/mqtt_peer.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ts = corvanis::monitoring_modules::test_support;
using corvanis::monitoring_modules::liblog::severity;
using corvanis::monitoring_modules::libtavohelper::settings::secure_string;
using mqtt::testing::client_log;
using mqtt::testing::recorded_subscription;
using ::testing::PrintToString;
using namespace std::chrono_literals;

namespace {

class client_faults : public mqtt::testing::broker_client_test {
  protected:
    mqtt::mqtt_client_settings settings_for(std::int64_t port, const std::string& id,
                                            std::shared_ptr<client_log> to = nullptr) const {
        auto s = broker_client_test::settings_for(port, id, 2);
        if (to) s.logger = to;
        return s;
    }
    static std::unique_ptr<mqtt::mqtt_client_paho> make(mqtt::mqtt_client_settings s) {
        return broker_client_test::make(std::move(s), mqtt::reconnect_options{{50ms}, {}});
    }
    // The failure a scan of the client would report now, as its message key.
    static std::string scan_key(const mqtt::mqtt_client_interface& client) {
        try {
            client.throw_if_disconnected();
        } catch (const corvanis::monitoring_modules::libi18n::i18n_exception& e) {
            return e.message().key();
        }
        return "connected";
    }
};

// A loss while the reconnect re-subscribes goes back to the back-off; the client ends connected
// with its subscription at the broker, however many times that happens.
TEST_F(client_faults, a_loss_during_resubscription_is_retried_until_subscribed) {
    ts::mosquitto_broker broker;
    const struct {
        const char* name;
        bool every;
        std::size_t cuts;
    } table[] = {{"next subscribe cut", false, 1}, {"three subscribes cut", true, 3}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        ts::fault_proxy proxy(broker.host(), static_cast<int>(broker.port()));
        auto client = make(settings_for(proxy.port(), row.name));
        recorded_subscription own("r/#");
        client->subscribe(own.subscription);
        const auto subscribed_before = log->count("Subscribed to 'r/#'");

        proxy.cut_on_subscribe(row.every);
        proxy.cut();
        ASSERT_TRUE(ts::eventually([&] { return proxy.cut_on_packet_count() >= row.cuts; }, 30s));
        proxy.pass();
        ASSERT_TRUE(log->wait_for("Subscribed to 'r/#'", subscribed_before + 1))
            << PrintToString(log->lines());
        EXPECT_TRUE(client->is_connected());
        EXPECT_GE(proxy.accepted(), row.cuts + 2);
        ts::mqtt_peer(broker).publish("r/after", "back", 1);
        ASSERT_TRUE(own.wait_for(1));
        EXPECT_EQ(scan_key(*client), "connected");
    }
    EXPECT_TRUE(no_thread_left());
}

// Each failed reconnect is logged with its typed reason, and scans report that reason, not a
// bare loss; once the broker takes the password again the client is back.
TEST_F(client_faults, refused_reconnects_are_reported_with_their_reason) {
    ts::mosquitto_broker broker({.users = {{"alice", "first-pw"}}});
    auto s = settings_for(broker.port(), "refused");
    s.connection.username = "alice";
    s.connection.password = secure_string("first-pw");
    auto client = make(s);
    ASSERT_TRUE(client->is_connected());
    EXPECT_EQ(scan_key(*client), "connected");

    broker.set_users({{"alice", "second-pw"}});
    broker.stop();
    broker.start();
    ASSERT_TRUE(log->wait_for("Connection attempt failed: ", 2)) << PrintToString(log->lines());
    EXPECT_TRUE(log->has(severity::warning,
                         "Connection attempt failed: The broker at " + broker.host() + ":" +
                             std::to_string(broker.port()) + " refused the login."))
        << PrintToString(log->lines());
    EXPECT_EQ(scan_key(*client), "error.login_refused_at");
    // Callers still tell a refusal by its type.
    EXPECT_THROW(client->throw_if_disconnected(), mqtt::exceptions::not_authorized);

    broker.set_users({{"alice", "first-pw"}});
    broker.stop();
    broker.start();
    ASSERT_TRUE(ts::eventually([&] { return client->is_connected(); }, 20s));
    EXPECT_EQ(scan_key(*client), "connected");
    EXPECT_EQ(log->count("first-pw"), 0u);
    client.reset();
    EXPECT_TRUE(no_thread_left());
}

// With the broker frozen and its connection open, every request ends with the typed timeout
// and the client still goes away, leaving no thread behind.
TEST_F(client_faults, a_frozen_broker_ends_each_request_with_a_timeout) {
    ts::mosquitto_broker broker;
    auto client = make(settings_for(broker.port(), "frozen"));
    recorded_subscription kept("k");
    recorded_subscription added("a");
    client->subscribe(kept.subscription);
    broker.freeze();
    const struct {
        const char* name;
        std::function<void()> request;
    } table[] = {
        {"subscribe", [&] { client->subscribe(added.subscription); }},
        {"publish",
         [&] { client->publish("p", "x", mqtt::quality_of_service::at_least_once, false); }},
        {"unsubscribe", [&] { client->unsubscribe(kept.subscription); }},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        EXPECT_THROW_KEY(row.request(), "error.timeout");
    }
    EXPECT_TRUE(
        log->has(severity::error, "no answer from " + broker.uri() + " to subscribe to 'a'"));
    const auto teardown_start = std::chrono::steady_clock::now();
    client.reset();
    RecordProperty("teardown_ms",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now() - teardown_start)
                                        .count()));
    EXPECT_TRUE(no_thread_left());
    broker.thaw();
}

// Subscriptions of several threads on one client wait for the broker side by side: with the
// broker frozen every request goes out before the first one's wait ends, each ends with its own
// timeout and leaves no filter behind; with the broker answering each filter receives.
TEST_F(client_faults, subscriptions_on_one_client_are_in_flight_together) {
    constexpr int threads = 4;
    for (const bool frozen : {true, false}) {
        SCOPED_TRACE(frozen ? "frozen broker" : "answering broker");
        ts::mosquitto_broker broker;
        auto own_log = std::make_shared<client_log>();
        auto client = make(settings_for(broker.port(), "together", own_log));
        std::vector<std::unique_ptr<recorded_subscription>> filters;
        for (int i = 0; i < threads; ++i)
            filters.push_back(std::make_unique<recorded_subscription>("t/" + std::to_string(i)));
        if (frozen) broker.freeze();
        std::vector<std::string> outcomes(threads);
        {
            std::vector<std::jthread> callers;
            for (int i = 0; i < threads; ++i) {
                callers.emplace_back([&, i] {
                    try {
                        client->subscribe(filters[i]->subscription);
                        outcomes[i] = "subscribed";
                    } catch (const corvanis::monitoring_modules::libi18n::i18n_exception& e) {
                        outcomes[i] = e.message().key();
                    }
                });
            }
        }
        const std::string expected = frozen ? "error.timeout" : "subscribed";
        EXPECT_EQ(outcomes, std::vector<std::string>(threads, expected));
        if (frozen) {
            const auto requests = own_log->find("in method MQTTAsync_subscribe()");
            const auto answers = own_log->find("no answer from");
            ASSERT_EQ(requests.size(), static_cast<std::size_t>(threads));
            ASSERT_EQ(answers.size(), static_cast<std::size_t>(threads));
            EXPECT_LT(requests.back(), answers.front()) << PrintToString(own_log->lines());
            EXPECT_EQ(client->get_subscribed_topic_count(), 0u);
            broker.thaw();
        } else {
            ts::mqtt_peer peer(broker);
            for (int i = 0; i < threads; ++i) peer.publish("t/" + std::to_string(i), "x");
            for (const auto& f : filters) EXPECT_TRUE(f->wait_for(1));
        }
        client.reset();
    }
    EXPECT_TRUE(no_thread_left());
}

// A broker that stops answering is noticed through the keep-alive the timeout bounds; an idle
// healthy one, watched as long, never is.
TEST_F(client_faults, a_frozen_broker_is_noticed_and_an_idle_one_is_not) {
    ts::mosquitto_broker frozen;
    ts::mosquitto_broker idle;
    auto idle_log = std::make_shared<client_log>();
    auto watched = make(settings_for(frozen.port(), "watched"));
    auto quiet = make(settings_for(idle.port(), "quiet", idle_log));
    frozen.freeze();
    ASSERT_TRUE(log->wait_for(": Connection lost")) << PrintToString(log->lines());
    EXPECT_EQ(scan_key(*watched), "error.connection_lost");
    EXPECT_TRUE(quiet->is_connected());
    EXPECT_EQ(idle_log->count("Connection lost"), 0u);
    frozen.thaw();
    ASSERT_TRUE(ts::eventually([&] { return watched->is_connected(); }, 20s));
}

// A peer that accepts TCP and never answers fails the first attempt with the connect timeout,
// naming the address; with reconnecting the client is made anyway and scans report that.
TEST_F(client_faults, a_silent_peer_fails_the_connect_with_a_timeout) {
    ts::mosquitto_broker broker;
    auto proxy = std::make_unique<ts::fault_proxy>(broker.host(), static_cast<int>(broker.port()));
    proxy->silent();
    auto s = settings_for(proxy->port(), "silent");
    s.connection.connect_timeout = 1;
    s.session.automatic_reconnect = false;
    try {
        make(s);
        ADD_FAILURE() << "connected to a silent peer";
    } catch (const mqtt::exceptions::tcp_connection_timeout& e) {
        EXPECT_EQ(e.message().key(), "error.no_answer_at");
        EXPECT_EQ(e.message().args(),
                  (std::vector<std::string>{"127.0.0.1:" + std::to_string(proxy->port()), "1"}));
    }
    s.session.automatic_reconnect = true;
    auto client = make(s);
    EXPECT_EQ(scan_key(*client), "error.no_answer_at");
    client.reset();
    proxy.reset();
    EXPECT_TRUE(no_thread_left());
}

// A refused subscription names the broker and the filter, is not kept, and refuses again when a
// reconnect makes it anew.
TEST_F(client_faults, a_refused_subscription_names_the_broker_and_the_filter) {
    ts::mosquitto_broker broker;
    auto proxy = std::make_unique<ts::fault_proxy>(broker.host(), static_cast<int>(broker.port()));
    auto client = make(settings_for(proxy->port(), "refusing"));
    recorded_subscription kept("kept/#");
    client->subscribe(kept.subscription);
    proxy->refuse_subscriptions();
    recorded_subscription refused("plant/+/temperature");
    const auto address = "127.0.0.1:" + std::to_string(proxy->port());
    try {
        client->subscribe(refused.subscription);
        ADD_FAILURE() << "subscribed";
    } catch (const mqtt::exceptions::subscription_refused& e) {
        EXPECT_EQ(e.message().key(), "error.subscription_refused");
        EXPECT_EQ(e.message().args(), (std::vector<std::string>{address, "plant/+/temperature"}));
    }
    EXPECT_EQ(client->get_subscribed_topic_count(), 1u);
    proxy->cut();
    ASSERT_TRUE(log->wait_for("Reconnect failed: The broker at " + address +
                              " refused the subscription to 'kept/#'."))
        << PrintToString(log->lines());
    // Connected again, but a scan must not read OK while the filter receives nothing.
    EXPECT_EQ(scan_key(*client), "error.subscription_refused");
    proxy->pass();
    ASSERT_TRUE(log->wait_for("Subscribed to 'kept/#'", 2)) << PrintToString(log->lines());
    ASSERT_TRUE(ts::eventually([&] { return client->subscriptions_in_place(); }));
    EXPECT_EQ(scan_key(*client), "connected");
    client.reset();
    proxy.reset();
    EXPECT_TRUE(no_thread_left());
}

// Every misconfiguration a connect can meet names the broker and why, as the TLS library or the
// network tells it: thrown at creation, logged, and reported by the scans of a reconnecting
// client.
TEST_F(client_faults, connection_failures_name_the_broker_and_the_reason) {
    const auto& tls = ts::shared_tls_material();
    ts::mosquitto_broker plain;
    ts::mosquitto_broker tls_port({.tls = true});
    ts::mosquitto_broker needs_certificate({.require_client_certificate = true});
    ts::mosquitto_broker other_name(
        {.tls = true, .server_certificate_file = tls.other_name_certificate_file().string()});
    ts::mosquitto_broker expired(
        {.tls = true, .server_certificate_file = tls.expired_certificate_file().string()});
    const auto nothing_listens = static_cast<std::int64_t>(ts::free_port());
    const auto unrelated_key = ts::read_text(tls.server_key_file());
    const auto port = [](const ts::mosquitto_broker& b) { return b.port(); };
    const struct {
        const char* name;
        std::int64_t port;
        bool use_tls;
        std::string ca;
        std::string certificate;
        std::string key;
        const char* key_wanted;
        std::string reason;  // a part of the message after the address
        std::string host = "127.0.0.1";
    } table[] = {
        {"wrong ca", port(tls_port), true, tls.other_ca_certificate, "", "", "error.tls_failure_at",
         "not signed by the CA certificate in the settings"},
        {"garbage ca", port(tls_port), true, "not a certificate", "", "", "error.tls_failure_at",
         "the CA certificate setting holds no PEM certificate"},
        {"ca path", port(tls_port), true, tls.ca_certificate_file().string(), "", "",
         "error.tls_failure_at", "holds a file path"},
        {"other host name", port(other_name), true, tls.ca_certificate, "", "",
         "error.tls_failure_at", "certificate is not issued for 127.0.0.1"},
        {"expired", port(expired), true, tls.ca_certificate, "", "", "error.tls_failure_at",
         "certificate has expired"},
        {"no client certificate", port(needs_certificate), true, tls.ca_certificate, "", "",
         "error.tls_failure_at", "certificate required"},
        {"key of another certificate", port(needs_certificate), true, tls.ca_certificate,
         tls.client_certificate, unrelated_key, "error.tls_failure_at",
         "the client key does not match the client certificate"},
        {"plain to tls", port(tls_port), false, "", "", "", "error.tls_expected_at",
         "the port expects TLS"},
        {"refused", nothing_listens, false, "", "", "", "error.connection_refused_at",
         "was refused"},
        {"unknown host", port(plain), false, "", "", "", "error.host_not_found",
         "no-such-host.invalid", "no-such-host.invalid"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.name);
        auto s = settings_for(row.port, row.name);
        s.connection.host = row.host;
        s.tls.use_tls = row.use_tls;
        s.tls.ca_certificate = row.ca;
        s.tls.client_certificate = row.certificate;
        s.tls.client_key = row.key;
        const auto address = row.host + ":" + std::to_string(row.port);
        for (const bool reconnecting : {false, true}) {
            s.session.automatic_reconnect = reconnecting;
            std::string text;
            try {
                auto client = make(s);
                EXPECT_TRUE(reconnecting) << "connected";
                client->throw_if_disconnected();
            } catch (const mqtt::exceptions::client_failure& e) {
                EXPECT_EQ(e.message().key(), row.key_wanted) << e.what();
                text = e.what();
            }
            SCOPED_TRACE(text);
            EXPECT_NE(text.find(row.key_wanted == std::string("error.host_not_found") ? row.host
                                                                                      : address),
                      std::string::npos);
            EXPECT_NE(text.find(row.reason), std::string::npos);
            if (!reconnecting) {
                EXPECT_TRUE(
                    log->has(severity::error, "MQTT Client - " + std::string(row.name) +
                                                  ": Initial connection attempt failed: " + text));
            }
        }
    }
    EXPECT_TRUE(no_thread_left());
}

}  // namespace
