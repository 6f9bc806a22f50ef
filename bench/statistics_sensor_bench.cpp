// The statistics sensor beside a minimal Paho subscriber under one paced load: a loopback
// mosquitto, 256-byte payloads at QoS 0, 25,000 and 50,000 messages per second for a few
// seconds each. Reports per round the messages each side counted, the ratio sensor/raw, the
// CPU seconds each spent per million messages and the ratio of those, then the medians.
//
// Method. Each subscriber runs in a child process of its own (this program's --subscriber
// mode) and both are subscribed to "bench/#" at the same time, so they see the very same
// publisher stream from the same broker under the same machine load; alternating runs would
// give each side a different stream and different neighbours on a shared machine. A process
// of its own lets each side measure its own CPU with getrusage(RUSAGE_SELF), from the moment
// it is subscribed until its count has been still for 500 ms after the publisher ended. The
// sensor sits on a container built as the module builds it (real Paho client from the
// module's client factory, host log at its default threshold, a host that drops what it is
// sent) and is counted only through its scans: "Messages Received" summed over scans every
// 500 ms. The publisher is a third process (--pace mode feeding mosquitto_pub -l). Each round
// starts fresh subscribers. On a small machine the broker drops QoS 0 messages for whichever
// subscriber falls behind; both sides are exposed to that alike, so compare medians of rounds.
//   statistics_sensor_bench [--seconds 4] [--rounds 3]
#include <MQTTAsync.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/sensors/statistics_sensor.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/process.h"

namespace {

using namespace corvanis::monitoring_modules;
using bench::module_container;
using namespace std::chrono_literals;
namespace fs = std::filesystem;
namespace tavo = libtavohelper;

constexpr int payload_size = 256;
constexpr auto poll_interval = 500ms;
const char* const filter = "bench/#";

double process_cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// ---- subscriber processes -------------------------------------------------------------------

// Reports readiness with a file in dir, then polls `count_so_far` until the parent's "stop"
// file is there and one poll saw nothing new; prints the count and the CPU spent meanwhile.
template <class Count>
int measure_until_stopped(const fs::path& dir, const std::string& name, Count count_so_far) {
    const double cpu_before = process_cpu_seconds();
    std::ofstream(dir / (name + ".ready")) << "ready\n";
    long last = -1;
    for (bool stopping = false;;) {
        std::this_thread::sleep_for(poll_interval);
        const long now = count_so_far();
        if (stopping && now == last) break;
        stopping = stopping || fs::exists(dir / "stop");
        last = now;
    }
    const double cpu = process_cpu_seconds() - cpu_before;
    std::printf("result %ld %.6f\n", last, cpu);
    return 0;
}

// The least a Paho subscriber can do: count and free.
struct raw_subscriber {
    MQTTAsync handle = nullptr;
    std::atomic<long> received{0};

    static int arrived(void* context, char* topic, int, MQTTAsync_message* message) {
        static_cast<raw_subscriber*>(context)->received.fetch_add(1, std::memory_order_relaxed);
        MQTTAsync_freeMessage(&message);
        MQTTAsync_free(topic);
        return 1;
    }
    static void connected(void* context, MQTTAsync_successData*) {
        static_cast<std::promise<void>*>(context)->set_value();
    }

    explicit raw_subscriber(const std::string& uri) {
        MQTTAsync_createOptions create = MQTTAsync_createOptions_initializer;
        create.MQTTVersion = MQTTVERSION_3_1_1;
        MQTTAsync_createWithOptions(&handle, uri.c_str(), "bench-raw-statistics",
                                    MQTTCLIENT_PERSISTENCE_NONE, nullptr, &create);
        MQTTAsync_setCallbacks(handle, this, nullptr, &arrived, nullptr);
        MQTTAsync_connectOptions connect = MQTTAsync_connectOptions_initializer;
        connect.MQTTVersion = MQTTVERSION_3_1_1;
        std::promise<void> done;
        connect.onSuccess = &connected;
        connect.context = &done;
        MQTTAsync_connect(handle, &connect);
        done.get_future().wait();
        // QoS 2 like the client's subscriptions; a QoS 0 stream arrives at QoS 0 either way.
        MQTTAsync_responseOptions response = MQTTAsync_responseOptions_initializer;
        MQTTAsync_subscribe(handle, filter, 2, &response);
        MQTTAsync_waitForCompletion(handle, response.token, 5000);
    }
    ~raw_subscriber() {
        MQTTAsync_disconnectOptions disconnect = MQTTAsync_disconnectOptions_initializer;
        MQTTAsync_disconnect(handle, &disconnect);
        MQTTAsync_destroy(&handle);
    }
};

// Exposes the scan's own work, so the count can be read from its result.
struct scanned_sensor : mqtt::sensors::statistics_sensor {
    using statistics_sensor::statistics_sensor;
    using statistics_sensor::work;
};

int run_sensor(int port, const fs::path& dir) {
    auto container = module_container();
    auto settings = mqtt::testing::sample_settings("statistics_sensor", port);
    settings["statistics.connection_statistics.topic"] = filter;
    scanned_sensor sensor(1, tavo::settings::sensor_data_wrapper("statistics_sensor", settings),
                          container);
    long total = 0;
    return measure_until_stopped(dir, "sensor", [&] {
        try {
            const auto result = sensor.work();
            total += static_cast<long>(std::get<std::int64_t>(result.values().at(0)));
        } catch (const std::exception& e) {
            std::fprintf(stderr, "scan failed: %s\n", e.what());  // counted by the next scan
        }
        return total;
    });
}

int run_raw(int port, const fs::path& dir) {
    raw_subscriber subscriber("tcp://127.0.0.1:" + std::to_string(port));
    return measure_until_stopped(dir, "raw", [&] { return subscriber.received.load(); });
}

// ---- the parent: broker, publisher, rounds ------------------------------------------------

struct side {
    long counted = 0;
    double cpu_seconds = 0;
    double cpu_per_million() const {
        return counted > 0 ? cpu_seconds / static_cast<double>(counted) * 1e6 : 0;
    }
};

struct round_result {
    long sent = 0;
    side sensor, raw;
    double count_ratio() const {
        return raw.counted > 0
                   ? static_cast<double>(sensor.counted) / static_cast<double>(raw.counted)
                   : 0;
    }
    double cpu_ratio() const {
        return raw.cpu_per_million() > 0 ? sensor.cpu_per_million() / raw.cpu_per_million() : 0;
    }
};

std::string self_path() {
    char self[4096] = {};
    const auto length = ::readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (length <= 0) throw std::runtime_error("cannot find this program");
    return self;
}

bool wait_for_file(const fs::path& file, std::chrono::milliseconds limit) {
    for (auto waited = 0ms; waited < limit; waited += 20ms) {
        if (fs::exists(file)) return true;
        std::this_thread::sleep_for(20ms);
    }
    return false;
}

side read_side(const fs::path& output) {
    std::ifstream in(output);
    side s;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string tag;
        if (words >> tag && tag == "result") words >> s.counted >> s.cpu_seconds;
    }
    return s;
}

round_result run_round(const test_support::mosquitto_broker& broker, long rate, long seconds) {
    const std::string self = self_path();
    const std::string port = std::to_string(broker.port());
    test_support::temp_dir dir("statistics-bench");
    const auto dir_text = dir.path().string();
    const pid_t sensor = test_support::spawn({self, "--subscriber", "sensor", port, dir_text},
                                             dir.path() / "sensor.out", true);
    const pid_t raw = test_support::spawn({self, "--subscriber", "raw", port, dir_text},
                                          dir.path() / "raw.out", true);
    if (!wait_for_file(dir.path() / "sensor.ready", 10s) ||
        !wait_for_file(dir.path() / "raw.ready", 10s)) {
        test_support::wait_for_exit(sensor, 0);
        test_support::wait_for_exit(raw, 0);
        throw std::runtime_error("a subscriber did not come up");
    }
    round_result r;
    r.sent = rate * seconds;
    const std::string command = "\"" + self + "\" --pace " + std::to_string(rate) + " " +
                                std::to_string(r.sent) + " | mosquitto_pub -h 127.0.0.1 -p " +
                                port + " -t bench/load -q 0 -l";
    test_support::wait_for_exit(
        test_support::spawn({"sh", "-c", command}, dir.path() / "pub.out", true),
        static_cast<int>(seconds * 1000 + 30000));
    std::ofstream(dir.path() / "stop") << "stop\n";
    test_support::wait_for_exit(sensor, 30000);
    test_support::wait_for_exit(raw, 30000);
    r.sensor = read_side(dir.path() / "sensor.out");
    r.raw = read_side(dir.path() / "raw.out");
    return r;
}

template <class Get>
double median_of(const std::vector<round_result>& rounds, Get get) {
    std::vector<double> v;
    for (const auto& r : rounds) v.push_back(static_cast<double>(get(r)));
    std::sort(v.begin(), v.end());
    const auto n = v.size();
    return n == 0 ? 0 : n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

void print_row(const char* label, double sent, double sensor, double raw, double count_ratio,
               double sensor_cpu, double raw_cpu, double cpu_ratio) {
    std::printf("%-10s %9.0f %9.0f %9.0f %8.3f %12.3f %12.3f %8.3f\n", label, sent, sensor, raw,
                count_ratio, sensor_cpu, raw_cpu, cpu_ratio);
}

int run_parent(long seconds, int rounds) {
    if (!test_support::mosquitto_available() ||
        test_support::find_program("mosquitto_pub").empty()) {
        std::fprintf(stderr, "mosquitto and mosquitto_pub are needed\n");
        return 1;
    }
    test_support::mosquitto_broker broker;
    std::printf("%-10s %9s %9s %9s %8s %12s %12s %8s\n", "rate", "sent", "sensor", "raw", "ratio",
                "sensor_cpu/M", "raw_cpu/M", "ratio");
    for (const long rate : {25000L, 50000L}) {
        std::vector<round_result> results;
        for (int i = 0; i < rounds; ++i) {
            const auto r = run_round(broker, rate, seconds);
            results.push_back(r);
            print_row(std::to_string(rate).c_str(), static_cast<double>(r.sent),
                      static_cast<double>(r.sensor.counted), static_cast<double>(r.raw.counted),
                      r.count_ratio(), r.sensor.cpu_per_million(), r.raw.cpu_per_million(),
                      r.cpu_ratio());
            std::fflush(stdout);
        }
        const std::string label = "median " + std::to_string(rate / 1000) + "k";
        print_row(label.c_str(), median_of(results, [](auto& r) { return r.sent; }),
                  median_of(results, [](auto& r) { return r.sensor.counted; }),
                  median_of(results, [](auto& r) { return r.raw.counted; }),
                  median_of(results, [](auto& r) { return r.count_ratio(); }),
                  median_of(results, [](auto& r) { return r.sensor.cpu_per_million(); }),
                  median_of(results, [](auto& r) { return r.raw.cpu_per_million(); }),
                  median_of(results, [](auto& r) { return r.cpu_ratio(); }));
    }
    std::printf("ratio: sensor/raw (counted, goal >= 0.95; CPU s per million, goal <= 1.2)\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() == 3 && args[0] == "--pace") {
            return bench::pace(std::stol(args[1]), std::stol(args[2]), payload_size);
        }
        if (args.size() == 4 && args[0] == "--subscriber") {
            const int port = std::stoi(args[2]);
            return args[1] == "sensor" ? run_sensor(port, args[3]) : run_raw(port, args[3]);
        }
        long seconds = 4;
        int rounds = 3;
        for (std::size_t i = 0; i + 1 < args.size(); i += 2) {
            if (args[i] == "--seconds") seconds = std::stol(args[i + 1]);
            if (args[i] == "--rounds") rounds = std::stoi(args[i + 1]);
        }
        return run_parent(seconds, rounds);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
