// Cost of handing one received message to the matching subscriptions of a client that holds
// 1, 100 or 10,000 distinct topic filters: the client's dispatch (filters indexed by topic
// level) beside a walk that asks every filter's regular expression. No broker: the client
// points at a closed port and retries once an hour. Run from a Release build:
//   mqtt_dispatch_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only
#include <MQTTAsync.h>
#include <benchmark/benchmark.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/paho_callbacks.h"
#include "mqtt/topic_subscription.h"
#include "tests/support/process.h"

namespace {

using namespace corvanis::monitoring_modules;
using namespace std::chrono_literals;

// Filters of four shapes, each naming its own device, so every one is distinct.
std::string filter_for(int i) {
    const std::string id = std::to_string(i);
    switch (i % 4) {
        case 0:
            return "site/" + id + "/temperature";
        case 1:
            return "site/" + id + "/+/value";
        case 2:
            return "site/" + id + "/#";
        default:
            return "+/" + id + "/status";
    }
}

// Topics that each hit one filter of the shape with the same number, and one that hits none.
std::vector<std::shared_ptr<const mqtt::received_message>> messages_for(int filters) {
    std::vector<std::shared_ptr<const mqtt::received_message>> messages;
    for (int k = 0; k < 64; ++k) {
        const int shape = k % 5;
        const std::string id =
            std::to_string(filters < 4 ? 0 : (k * 7919 % (filters / 4)) * 4 + shape);
        const std::string topics[] = {"site/" + id + "/temperature", "site/" + id + "/pump/value",
                                      "site/" + id + "/a/b", "plant/" + id + "/status",
                                      "other/" + id + "/x"};
        auto message = std::make_shared<mqtt::received_message>();
        message->topic = topics[shape];
        message->payload.assign(256, 'p');
        messages.push_back(std::move(message));
    }
    return messages;
}

struct counting_subscriptions {
    std::atomic<std::uint64_t> delivered{0};
    std::vector<std::shared_ptr<mqtt::topic_subscription>> subscriptions;

    explicit counting_subscriptions(int filters) {
        for (int i = 0; i < filters; ++i) {
            subscriptions.push_back(std::make_shared<mqtt::topic_subscription>(
                filter_for(i), mqtt::quality_of_service::at_most_once,
                [this](auto) { delivered.fetch_add(1, std::memory_order_relaxed); }));
        }
    }
};

// A client with `filters` counting subscriptions and no broker behind it: messages are fed
// to its callbacks directly.
struct subscribed_client {
    static mqtt::mqtt_client_settings settings() {
        mqtt::mqtt_client_settings s;
        s.connection.host = "127.0.0.1";
        s.connection.port = test_support::free_port();
        s.connection.client_id = "bench";
        return s;
    }
    explicit subscribed_client(int filters) : subs(filters) {
        for (const auto& s : subs.subscriptions) client.subscribe(s);
    }
    mqtt::mqtt_client_paho client{
        settings(), std::make_shared<libtavohelper::module::service_container>(), {{1h}, {}}};
    counting_subscriptions subs;
};

void dispatch_indexed(benchmark::State& state) {
    const int filters = static_cast<int>(state.range(0));
    subscribed_client subscribed(filters);
    auto& client = subscribed.client;
    auto& subs = subscribed.subs;
    const auto messages = messages_for(filters);
    std::size_t next = 0;
    for (auto _ : state) {
        mqtt::paho_callbacks::dispatch(&client, messages[next++ % messages.size()]);
    }
    state.counters["deliveries_per_message"] =
        static_cast<double>(subs.delivered) / static_cast<double>(state.iterations());
}

void dispatch_regex_walk(benchmark::State& state) {
    const int filters = static_cast<int>(state.range(0));
    counting_subscriptions subs(filters);
    const auto messages = messages_for(filters);
    std::size_t next = 0;
    for (auto _ : state) {
        const auto& message = messages[next++ % messages.size()];
        for (const auto& s : subs.subscriptions) {
            if (s->matches(message->topic)) s->receive(message);
        }
    }
    state.counters["deliveries_per_message"] =
        static_cast<double>(subs.delivered) / static_cast<double>(state.iterations());
}

// The whole message-arrived path: the library's message copied, timestamped, dispatched, freed.
void message_arrived(benchmark::State& state) {
    const int filters = static_cast<int>(state.range(0));
    subscribed_client subscribed(filters);
    auto& client = subscribed.client;
    const auto messages = messages_for(filters);
    std::size_t next = 0;
    for (auto _ : state) {
        const auto& m = messages[next++ % messages.size()];
        auto* topic = static_cast<char*>(MQTTAsync_malloc(m->topic.size() + 1));
        std::copy(m->topic.c_str(), m->topic.c_str() + m->topic.size() + 1, topic);
        auto* message =
            static_cast<MQTTAsync_message*>(MQTTAsync_malloc(sizeof(MQTTAsync_message)));
        *message = MQTTAsync_message_initializer;
        message->payloadlen = static_cast<int>(m->payload.size());
        message->payload = MQTTAsync_malloc(m->payload.size());
        std::copy(m->payload.begin(), m->payload.end(), static_cast<char*>(message->payload));
        mqtt::paho_callbacks::on_message_arrived(&client, topic, 0, message);
    }
}

}  // namespace

BENCHMARK(dispatch_indexed)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(dispatch_regex_walk)->Arg(1)->Arg(100)->Arg(10000);
BENCHMARK(message_arrived)->Arg(10000);
