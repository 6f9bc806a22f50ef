// Messages per second that one subscriber takes from a loopback mosquitto at a paced rate
// (256-byte payloads, QoS 0 and 1), and the CPU this process spends per million messages:
// the client with one topic subscription beside a minimal subscriber written directly against
// the Paho library. The publisher is another process (this program's --pace mode feeding
// mosquitto_pub -l), so the CPU measured here is the subscriber's alone. About 15 s in all:
//   mqtt_throughput_bench
#include <MQTTAsync.h>
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "bench/bench_support.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/topic_subscription.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/process.h"

namespace {

using namespace corvanis::monitoring_modules;
using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

constexpr int payload_size = 256;
constexpr auto run_length = 1s;

test_support::mosquitto_broker& broker() {
    static test_support::mosquitto_broker instance;
    return instance;
}

double process_cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// What a subscriber saw: how many, and when the first and the last arrived.
struct tally {
    std::atomic<long> received{0};
    std::atomic<steady::rep> first{0};
    std::atomic<steady::rep> last{0};

    void count() {
        const auto now = steady::now().time_since_epoch().count();
        if (received.fetch_add(1, std::memory_order_relaxed) == 0) first = now;
        last.store(now, std::memory_order_relaxed);
    }
};

// Publishes rate messages per second for run_length, measures, and reports the counters.
void measure(benchmark::State& state, tally& seen) {
    const long rate = state.range(0);
    const int qos = static_cast<int>(state.range(1));
    const long count = rate * std::chrono::duration_cast<std::chrono::seconds>(run_length).count();
    char self[4096] = {};
    const auto length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) {
        state.SkipWithError("cannot find this program");
        return;
    }
    const std::string command = std::string("\"") + self + "\" --pace " + std::to_string(rate) +
                                " " + std::to_string(count) + " | mosquitto_pub -h 127.0.0.1 -p " +
                                std::to_string(broker().port()) + " -t bench/load -q " +
                                std::to_string(qos) + " -l";
    test_support::temp_dir dir("mqtt-bench");
    const double cpu_before = process_cpu_seconds();
    for (auto _ : state) {
        const pid_t publisher = test_support::spawn({"sh", "-c", command}, dir.path() / "pub.log");
        test_support::wait_for_exit(publisher, 60000);
        // Then wait until nothing more arrives for half a second.
        for (long before = -1; seen.received != before;) {
            before = seen.received;
            std::this_thread::sleep_for(500ms);
        }
    }
    const double cpu = process_cpu_seconds() - cpu_before;
    const long received = seen.received;
    const double span =
        std::chrono::duration<double>(steady::duration(seen.last - seen.first)).count();
    state.counters["sent"] = static_cast<double>(count);
    state.counters["received"] = static_cast<double>(received);
    state.counters["msgs_per_s"] = span > 0 ? static_cast<double>(received) / span : 0;
    state.counters["cpu_s_per_M"] = received > 0 ? cpu / static_cast<double>(received) * 1e6 : 0;
}

void receive_client(benchmark::State& state) {
    tally seen;
    mqtt::mqtt_client_settings settings;
    settings.connection.host = broker().host();
    settings.connection.port = broker().port();
    settings.connection.client_id = "bench-client";
    settings.session.automatic_reconnect = false;
    auto container = std::make_shared<libtavohelper::module::service_container>();
    mqtt::mqtt_client_paho client(settings, container);
    auto subscription = std::make_shared<mqtt::topic_subscription>(
        "bench/#", mqtt::quality_of_service::exactly_once, [&](auto) { seen.count(); });
    client.subscribe(subscription);
    measure(state, seen);
}

// The least a Paho subscriber can do: count and free.
struct raw_subscriber {
    MQTTAsync handle = nullptr;
    tally* seen;

    static int arrived(void* context, char* topic, int, MQTTAsync_message* message) {
        static_cast<raw_subscriber*>(context)->seen->count();
        MQTTAsync_freeMessage(&message);
        MQTTAsync_free(topic);
        return 1;
    }
    static void done(void* context, MQTTAsync_successData*) {
        static_cast<std::promise<void>*>(context)->set_value();
    }

    explicit raw_subscriber(tally& t) : seen(&t) {
        MQTTAsync_createOptions create = MQTTAsync_createOptions_initializer;
        create.MQTTVersion = MQTTVERSION_3_1_1;
        MQTTAsync_createWithOptions(&handle, broker().uri().c_str(), "bench-raw",
                                    MQTTCLIENT_PERSISTENCE_NONE, nullptr, &create);
        MQTTAsync_setCallbacks(handle, this, nullptr, &arrived, nullptr);
        MQTTAsync_connectOptions connect = MQTTAsync_connectOptions_initializer;
        connect.MQTTVersion = MQTTVERSION_3_1_1;
        std::promise<void> connected;
        connect.onSuccess = &done;
        connect.context = &connected;
        MQTTAsync_connect(handle, &connect);
        connected.get_future().wait();
        MQTTAsync_responseOptions response = MQTTAsync_responseOptions_initializer;
        MQTTAsync_subscribe(handle, "bench/#", 2, &response);
        MQTTAsync_waitForCompletion(handle, response.token, 5000);
    }
    ~raw_subscriber() {
        MQTTAsync_disconnectOptions disconnect = MQTTAsync_disconnectOptions_initializer;
        MQTTAsync_disconnect(handle, &disconnect);
        MQTTAsync_destroy(&handle);
    }
};

void receive_raw_paho(benchmark::State& state) {
    tally seen;
    raw_subscriber subscriber(seen);
    measure(state, seen);
}

void rates(benchmark::internal::Benchmark* b) {
    for (const long rate : {25000L, 50000L}) {
        for (const long qos : {0L, 1L}) b->Args({rate, qos});
    }
    b->ArgNames({"rate", "qos"})->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace

BENCHMARK(receive_client)->Apply(rates);
BENCHMARK(receive_raw_paho)->Apply(rates);

int main(int argc, char** argv) {
    if (argc == 4 && std::string(argv[1]) == "--pace") {
        return bench::pace(std::stol(argv[2]), std::stol(argv[3]), payload_size);
    }
    if (!test_support::mosquitto_available() ||
        test_support::find_program("mosquitto_pub").empty()) {
        std::fprintf(stderr, "mosquitto and mosquitto_pub are needed\n");
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
