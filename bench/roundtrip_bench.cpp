// The round-trip sensor's "Round Trip Time" beside the same round trip written directly
// against Paho, on one loopback mosquitto in one run.
//
// The sensor's time starts just before its publish (QoS 1, 1 KiB), which returns once the
// broker has acknowledged, and ends when the scan thread wakes after the subscription's
// handler has handed the payload over; it is reported in whole milliseconds, truncated. The
// raw trip covers the same interval: steady clock before MQTTAsync_sendMessage, then wait for
// the acknowledgement and for the arrival (signalled from the message callback after copying
// the payload). Each raw trip repeats the sensor's whole sequence, so both start from the same
// state: a new subscriber (QoS 2 subscription) and a new publisher client, one second of quiet,
// one publish. Sensor scans and raw trips alternate (sensor first on even iterations).
//
// Two settings of the library. Idle: nothing else in the process, as in a module with just
// this sensor. The library's receive thread then polls in one-second rounds, rests 100 ms after
// an idle round and adds a new connection only when a round ends, so a one-second quiet lines
// the publish up with the rest and a second client waits for the round. Awake: another client
// receives a message every 2 ms, which ends each round early; this isolates what the sensor
// itself adds and is the fair comparison. A last series times back-to-back trips on connected
// clients: the loopback floor.
//   roundtrip_bench [--iterations 30] [--idle-iterations 10]
#include <MQTTAsync.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/sensors/roundtrip_sensor.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "tests/support/mosquitto_broker.h"

namespace {

using namespace corvanis::monitoring_modules;
using bench::module_container;
using namespace std::chrono_literals;
namespace tavo = libtavohelper;
using steady = std::chrono::steady_clock;

constexpr std::size_t payload_length = 1024;
constexpr auto request_limit = 5s;

// One Paho client, connected by the constructor; waits for each request it makes.
class raw_client {
  public:
    raw_client(const std::string& uri, const std::string& client_id) {
        MQTTAsync_createOptions create = MQTTAsync_createOptions_initializer;
        create.MQTTVersion = MQTTVERSION_3_1_1;
        MQTTAsync_createWithOptions(&handle_, uri.c_str(), client_id.c_str(),
                                    MQTTCLIENT_PERSISTENCE_NONE, nullptr, &create);
        MQTTAsync_setCallbacks(handle_, this, nullptr, &arrived, nullptr);
        MQTTAsync_connectOptions connect = MQTTAsync_connectOptions_initializer;
        connect.MQTTVersion = MQTTVERSION_3_1_1;
        std::promise<bool> done;
        connect.onSuccess = &succeeded;
        connect.onFailure = &failed;
        connect.context = &done;
        check(MQTTAsync_connect(handle_, &connect), done, "connect");
    }
    ~raw_client() {
        MQTTAsync_disconnectOptions disconnect = MQTTAsync_disconnectOptions_initializer;
        MQTTAsync_disconnect(handle_, &disconnect);
        MQTTAsync_destroy(&handle_);
    }
    raw_client(const raw_client&) = delete;
    raw_client& operator=(const raw_client&) = delete;

    void subscribe(const std::string& topic) {
        std::promise<bool> done;
        auto options = response_options(done);
        check(MQTTAsync_subscribe(handle_, topic.c_str(), 2, &options), done, "subscribe");
    }
    // Returns once the broker has acknowledged (QoS 1), or once written (QoS 0).
    void publish(const std::string& topic, const std::string& payload, int qos = 1) {
        MQTTAsync_message message = MQTTAsync_message_initializer;
        message.payload = const_cast<char*>(payload.data());
        message.payloadlen = static_cast<int>(payload.size());
        message.qos = qos;
        std::promise<bool> done;
        auto options = response_options(done);
        check(MQTTAsync_sendMessage(handle_, topic.c_str(), &message, &options), done, "publish");
    }
    // The next message that arrives; call expect() before the publish that sends it.
    std::future<std::string> expect() {
        std::lock_guard lock(mutex_);
        next_ = std::promise<std::string>();
        waiting_ = true;
        return next_.get_future();
    }

  private:
    static int arrived(void* context, char* topic, int, MQTTAsync_message* message) {
        auto& self = *static_cast<raw_client*>(context);
        {
            std::lock_guard lock(self.mutex_);
            if (self.waiting_) {
                self.waiting_ = false;
                self.next_.set_value(std::string(static_cast<const char*>(message->payload),
                                                 static_cast<std::size_t>(message->payloadlen)));
            }
        }
        MQTTAsync_freeMessage(&message);
        MQTTAsync_free(topic);
        return 1;
    }
    static void succeeded(void* context, MQTTAsync_successData*) {
        static_cast<std::promise<bool>*>(context)->set_value(true);
    }
    static void failed(void* context, MQTTAsync_failureData*) {
        static_cast<std::promise<bool>*>(context)->set_value(false);
    }
    static MQTTAsync_responseOptions response_options(std::promise<bool>& done) {
        MQTTAsync_responseOptions options = MQTTAsync_responseOptions_initializer;
        options.onSuccess = &succeeded;
        options.onFailure = &failed;
        options.context = &done;
        return options;
    }
    // The promise must outlive the callback: on a time-out the program gives up altogether.
    static void check(int rc, std::promise<bool>& done, const char* what) {
        auto result = done.get_future();
        if (rc != MQTTASYNC_SUCCESS ||
            result.wait_for(request_limit) != std::future_status::ready || !result.get()) {
            std::fprintf(stderr, "raw %s failed (%d)\n", what, rc);
            std::quick_exit(1);
        }
    }

    MQTTAsync handle_ = nullptr;
    std::mutex mutex_;
    bool waiting_ = false;            // guarded by mutex_
    std::promise<std::string> next_;  // guarded by mutex_
};

double ms_since(steady::time_point start) {
    return std::chrono::duration<double, std::milli>(steady::now() - start).count();
}

// One publish timed from before the send to the later of acknowledgement and arrival.
double timed_trip(raw_client& publisher, raw_client& subscriber, const std::string& topic,
                  const std::string& payload) {
    auto arrival = subscriber.expect();
    const auto start = steady::now();
    publisher.publish(topic, payload);
    if (arrival.wait_for(request_limit) != std::future_status::ready) {
        throw std::runtime_error("raw message did not come back");
    }
    const auto elapsed = ms_since(start);
    if (arrival.get() != payload) throw std::runtime_error("raw payload differs");
    return elapsed;
}

// One trip's figures, in milliseconds.
struct trip {
    double round_trip = 0;
    double publisher_connect = 0;
    double subscriber_connect = 0;
};

// The sensor's sequence without the sensor: new clients, subscribe, a second of quiet, publish.
trip raw_cold_trip(const std::string& uri, const std::string& name, const std::string& payload) {
    const std::string topic = "bench/raw/" + name;
    trip t;
    auto start = steady::now();
    raw_client subscriber(uri, "bench-raw-S" + name);
    t.subscriber_connect = ms_since(start);
    subscriber.subscribe(topic);
    start = steady::now();
    raw_client publisher(uri, "bench-raw-P" + name);
    t.publisher_connect = ms_since(start);
    std::this_thread::sleep_for(1s);
    t.round_trip = timed_trip(publisher, subscriber, topic, payload);
    return t;
}

// Keeps the library's receive thread busy: a message to itself every 2 ms, until destroyed.
class ticker {
  public:
    explicit ticker(const std::string& uri) : client_(uri, "bench-ticker") {
        client_.subscribe("bench/tick");
        thread_ = std::thread([this] {
            while (!stop_) {
                client_.publish("bench/tick", "t", 0);
                std::this_thread::sleep_for(2ms);
            }
        });
    }
    ~ticker() {
        stop_ = true;
        thread_.join();
    }

  private:
    raw_client client_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// Exposes the scan's own work, so the channels can be read from its result.
struct scanned_sensor : mqtt::sensors::roundtrip_sensor {
    using roundtrip_sensor::roundtrip_sensor;
    using roundtrip_sensor::work;
};

// The channels of one scan; throws unless the round trip completed.
trip sensor_trip(scanned_sensor& sensor) {
    const auto result = sensor.work();
    const auto& values = result.values();
    const auto value = [&](int channel) {
        const auto found = values.find(channel);
        if (found == values.end()) {
            throw std::runtime_error("sensor scan did not complete: " +
                                     result.response_message().render_or_default());
        }
        return static_cast<double>(std::get<std::int64_t>(found->second));
    };
    if (value(3) != 4) throw std::runtime_error("sensor scan did not complete");
    return {value(0), value(1), value(2)};
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const auto n = v.size();
    return n == 0 ? 0 : n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

double mean(const std::vector<double>& v) {
    double sum = 0;
    for (const double x : v) sum += x;
    return v.empty() ? 0 : sum / static_cast<double>(v.size());
}

// Whole milliseconds, truncated, as the sensor reports them.
std::vector<double> truncated(const std::vector<double>& v) {
    std::vector<double> out;
    for (const double x : v) out.push_back(static_cast<double>(static_cast<long>(x)));
    return out;
}

std::string histogram(const std::vector<double>& whole_ms) {
    long zero = 0, one = 0, more = 0;
    for (const double x : whole_ms) (x < 1 ? zero : x < 2 ? one : more) += 1;
    return "0ms:" + std::to_string(zero) + " 1ms:" + std::to_string(one) +
           " >=2ms:" + std::to_string(more);
}

void print_row(const std::string& label, const std::vector<double>& ms, bool whole) {
    std::printf("  %-38s %10.*f %10.3f", label.c_str(), whole ? 0 : 3, median(ms), mean(ms));
    if (whole) std::printf("  %s", histogram(ms).c_str());
    std::printf("\n");
}

// Sensor scans and raw trips, alternating; prints both and their difference.
template <class Scan, class Raw>
void compare(const char* title, int iterations, Scan scan, Raw raw) {
    std::vector<trip> sensor, direct;
    for (int i = 0; i < iterations; ++i) {
        if (i % 2 == 0) sensor.push_back(scan());
        direct.push_back(raw(i));
        if (i % 2 == 1) sensor.push_back(scan());
    }
    const auto column = [](const std::vector<trip>& trips, double trip::*field) {
        std::vector<double> v;
        for (const auto& t : trips) v.push_back(t.*field);
        return v;
    };
    const auto sensor_rtt = column(sensor, &trip::round_trip);
    const auto raw_rtt = column(direct, &trip::round_trip);
    const auto raw_whole = truncated(raw_rtt);
    std::printf("%s, %d of each\n", title, iterations);
    print_row("sensor \"Round Trip Time\"", sensor_rtt, true);
    print_row("raw, same interval", raw_rtt, false);
    print_row("raw, truncated as the sensor", raw_whole, true);
    std::printf(
        "  difference sensor - raw: medians %+.3f ms (both whole ms), %+.3f ms (raw exact);"
        " means of whole ms %+.3f ms\n",
        median(sensor_rtt) - median(raw_whole), median(sensor_rtt) - median(raw_rtt),
        mean(sensor_rtt) - mean(raw_whole));
    print_row("sensor subscriber connection", column(sensor, &trip::subscriber_connect), false);
    print_row("raw subscriber connection", column(direct, &trip::subscriber_connect), false);
    print_row("sensor publisher connection", column(sensor, &trip::publisher_connect), false);
    print_row("raw publisher connection", column(direct, &trip::publisher_connect), false);
}

int run(int iterations, int idle_iterations) {
    if (!test_support::mosquitto_available()) {
        std::fprintf(stderr, "mosquitto is needed\n");
        return 1;
    }
    test_support::mosquitto_broker broker;
    auto container = module_container();
    scanned_sensor sensor(
        1,
        tavo::settings::sensor_data_wrapper(
            "roundtrip_sensor",
            mqtt::testing::sample_settings("roundtrip_sensor", static_cast<int>(broker.port()))),
        container);
    const std::string payload =
        libstringutils::make_random_string_generator()->generate(payload_length);
    const auto scan = [&] { return sensor_trip(sensor); };
    const auto raw = [&](const char* prefix) {
        return [&, prefix](int i) {
            return raw_cold_trip(broker.uri(), prefix + std::to_string(i), payload);
        };
    };

    std::printf("1 KiB at QoS 1 on a loopback mosquitto\n  %-38s %10s %10s  %s\n", "", "median ms",
                "mean ms", "whole ms");
    compare("library idle", idle_iterations, scan, raw("i"));
    {
        const ticker awake(broker.uri());
        compare("library awake", iterations, scan, raw("a"));
    }
    std::vector<double> warm_ms;
    {
        raw_client subscriber(broker.uri(), "bench-raw-warm-S");
        subscriber.subscribe("bench/warm");
        raw_client publisher(broker.uri(), "bench-raw-warm-P");
        for (int i = 0; i < 1000; ++i) {
            warm_ms.push_back(timed_trip(publisher, subscriber, "bench/warm", payload));
        }
    }
    std::printf("floor\n");
    print_row("raw, 1000 back to back", warm_ms, false);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int iterations = 30;
    int idle_iterations = 10;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::string(argv[i]) == "--iterations") iterations = std::stoi(argv[i + 1]);
        if (std::string(argv[i]) == "--idle-iterations") idle_iterations = std::stoi(argv[i + 1]);
    }
    try {
        return run(iterations, idle_iterations);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
