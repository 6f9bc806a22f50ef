// The round-trip sensor's channels beside the broker's own figures, on one loopback mosquitto
// (TCP and TLS listeners), in one run.
//
// The broker's own figures come from raw sockets, without the MQTT library: a TCP connect plus
// CONNECT/CONNACK (over TLS: plus the handshake, through OpenSSL), and a 1 KiB QoS 1 publish
// timed from before the send to the later of its PUBACK and its arrival at a subscriber; also
// sent at once after a new subscriber's SUBACK, which shows the broker's small-write batching
// (the forward waits for the subscriber's delayed TCP acknowledgement; the sensor lets that pass).
// The sensor's figures are the medians of its "Subscriber Connection Time", "Publisher Connection
// Time" and "Round Trip Time" over a series of scans, in two settings of the process: alone (the
// module holds no other client) and beside two idle statistics sensors (their clients connected,
// their topics quiet), where the library's receive thread polls in one-second rounds.
// With --unpaced the module runs without its poll pacer, which gives the figures before it.
//   roundtrip_bench [--scans 20] [--unpaced]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "mqtt/poll_pacer.h"
#include "mqtt/sensors/roundtrip_sensor.h"
#include "mqtt/sensors/statistics_sensor.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "tests/support/mosquitto_broker.h"

namespace {

using namespace corvanis::monitoring_modules;
namespace tavo = libtavohelper;
using steady = std::chrono::steady_clock;

constexpr std::size_t payload_length = 1024;
constexpr int raw_samples = 200;

double ms_since(steady::time_point start) {
    return std::chrono::duration<double, std::milli>(steady::now() - start).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const auto n = v.size();
    return n == 0 ? 0 : n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

// ---------------------------------------------------------------------------------------------
// The broker's own figures: MQTT 3.1.1 over a plain or TLS socket, nothing else in between

std::string remaining_length(std::size_t n) {
    std::string out;
    do {
        char byte = static_cast<char>(n % 128);
        n /= 128;
        if (n > 0) byte = static_cast<char>(byte | 0x80);
        out += byte;
    } while (n > 0);
    return out;
}

std::string utf8(const std::string& s) {
    return std::string{static_cast<char>(s.size() >> 8), static_cast<char>(s.size() & 0xff)} + s;
}

std::string packet(char type, const std::string& body) {
    return type + remaining_length(body.size()) + body;
}

class wire_client {
  public:
    // Connects (TCP, TLS when ctx is set) and completes CONNECT/CONNACK.
    wire_client(int port, SSL_CTX* ctx, const std::string& client_id) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("raw connect failed");
        }
        if (ctx != nullptr) {
            ssl_ = SSL_new(ctx);
            SSL_set_fd(ssl_, fd_);
            if (SSL_connect(ssl_) != 1) throw std::runtime_error("raw TLS handshake failed");
        }
        write(packet('\x10',
                     utf8("MQTT") + std::string{'\x04', '\x02', '\x00', '\x3c'} + utf8(client_id)));
        if (read_packet().first != '\x20') throw std::runtime_error("raw CONNACK missing");
    }
    ~wire_client() {
        if (ssl_ != nullptr) SSL_free(ssl_);
        ::close(fd_);
    }
    wire_client(const wire_client&) = delete;
    wire_client& operator=(const wire_client&) = delete;

    void subscribe(const std::string& topic) {
        write(packet('\x82', std::string{'\x00', '\x01'} + utf8(topic) + '\x01'));
        if (read_packet().first != '\x90') throw std::runtime_error("raw SUBACK missing");
    }
    void publish(const std::string& topic, const std::string& payload) {
        write(packet('\x32', utf8(topic) + std::string{'\x00', '\x02'} + payload));
    }
    void expect_puback() {
        if (read_packet().first != '\x40') throw std::runtime_error("raw PUBACK missing");
    }
    // The payload of the next PUBLISH (QoS 1, acknowledged here).
    std::string receive() {
        auto [type, body] = read_packet();
        if ((type & 0xf0) != 0x30) throw std::runtime_error("raw PUBLISH missing");
        const std::size_t topic_length =
            static_cast<std::size_t>(static_cast<unsigned char>(body[0])) << 8 |
            static_cast<unsigned char>(body[1]);
        const std::string id = body.substr(2 + topic_length, 2);
        write(packet('\x40', id));
        return body.substr(4 + topic_length);
    }

  private:
    void write(const std::string& bytes) {
        const long n = ssl_ != nullptr
                           ? SSL_write(ssl_, bytes.data(), static_cast<int>(bytes.size()))
                           : ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n != static_cast<long>(bytes.size())) throw std::runtime_error("raw write");
    }
    void read(char* data, std::size_t size) {
        for (std::size_t got = 0; got < size;) {
            const auto n = ssl_ != nullptr
                               ? SSL_read(ssl_, data + got, static_cast<int>(size - got))
                               : ::recv(fd_, data + got, size - got, 0);
            if (n <= 0) throw std::runtime_error("raw read");
            got += static_cast<std::size_t>(n);
        }
    }
    std::pair<char, std::string> read_packet() {
        char type = 0;
        read(&type, 1);
        std::size_t length = 0;
        for (int shift = 0;; shift += 7) {
            char byte = 0;
            read(&byte, 1);
            length |= static_cast<std::size_t>(byte & 0x7f) << shift;
            if ((byte & 0x80) == 0) break;
        }
        std::string body(length, '\0');
        read(body.data(), length);
        return {type, body};
    }

    int fd_ = -1;
    SSL* ssl_ = nullptr;
};

struct broker_figures {
    double connect = 0;      // TCP (+ TLS) + CONNECT/CONNACK
    double round_trip = 0;   // publish to arrival, PUBACK included
    double right_after = 0;  // the same, sent at once after a new subscriber's SUBACK
};

double timed_publish(wire_client& publisher, wire_client& subscriber, const std::string& topic,
                     const std::string& payload) {
    const auto start = steady::now();
    publisher.publish(topic, payload);
    publisher.expect_puback();
    if (subscriber.receive() != payload) throw std::runtime_error("raw payload differs");
    return ms_since(start);
}

broker_figures measure_broker(int port, SSL_CTX* ctx, const std::string& payload) {
    std::vector<double> connects, trips, right_after;
    for (int i = 0; i < raw_samples / 10; ++i) {
        const auto start = steady::now();
        wire_client c(port, ctx, "bench-raw-c" + std::to_string(i));
        connects.push_back(ms_since(start));
    }
    for (int i = 0; i < raw_samples / 20; ++i) {
        const std::string topic = "bench/raw/fresh" + std::to_string(i);
        wire_client subscriber(port, ctx, "bench-raw-fs" + std::to_string(i));
        subscriber.subscribe(topic);
        wire_client publisher(port, ctx, "bench-raw-fp" + std::to_string(i));
        right_after.push_back(timed_publish(publisher, subscriber, topic, payload));
    }
    wire_client subscriber(port, ctx, "bench-raw-s");
    subscriber.subscribe("bench/raw");
    wire_client publisher(port, ctx, "bench-raw-p");
    for (int i = 0; i < raw_samples; ++i) {
        trips.push_back(timed_publish(publisher, subscriber, "bench/raw", payload));
    }
    return {median(connects), median(trips), median(right_after)};
}

// ---------------------------------------------------------------------------------------------
// The sensor

// Exposes the scan's own work, so the channels can be read from its result.
struct scanned_sensor : mqtt::sensors::roundtrip_sensor {
    using roundtrip_sensor::roundtrip_sensor;
    using roundtrip_sensor::work;
};

struct sensor_figures {
    double round_trip = 0;
    double publisher_connect = 0;
    double subscriber_connect = 0;
};

mqtt::testing::settings_map with_broker(const std::string& kind,
                                        const test_support::mosquitto_broker& broker) {
    auto m = mqtt::testing::sample_settings(kind, static_cast<int>(broker.port()));
    if (broker.uses_tls()) {
        m["credentials.tls.active"] = "yes";
        m["credentials.tls.server_auth_active"] = "yes";
        m["credentials.tls.ca_certificate"] = broker.tls().ca_certificate;
    }
    return m;
}

sensor_figures measure_sensor(const test_support::mosquitto_broker& broker, bool paced,
                              bool beside_idle, int scans) {
    auto container = bench::module_container();
    if (paced) container->add_instance(std::make_shared<mqtt::poll_pacer>());
    std::vector<std::unique_ptr<mqtt::sensors::statistics_sensor>> idle;
    if (beside_idle) {
        for (int id = 11; id <= 12; ++id) {
            auto m = with_broker("statistics_sensor", broker);
            m["statistics.connection_statistics.topic"] = "bench/idle/" + std::to_string(id);
            idle.push_back(std::make_unique<mqtt::sensors::statistics_sensor>(
                id, tavo::settings::sensor_data_wrapper("statistics_sensor", m), container));
        }
    }
    scanned_sensor sensor(1,
                          tavo::settings::sensor_data_wrapper(
                              "roundtrip_sensor", with_broker("roundtrip_sensor", broker)),
                          container);
    std::vector<double> rtt, pub, sub;
    for (int i = 0; i < scans; ++i) {
        const auto result = sensor.work();
        const auto& values = result.values();
        const auto value = [&](int channel) {
            const auto found = values.find(channel);
            if (found == values.end()) {
                throw std::runtime_error("scan incomplete: " +
                                         result.response_message().render_or_default());
            }
            return static_cast<double>(std::get<std::int64_t>(found->second));
        };
        if (value(3) != 4) {
            throw std::runtime_error("scan failed: " +
                                     result.response_message().render_or_default());
        }
        rtt.push_back(value(0));
        pub.push_back(value(1));
        sub.push_back(value(2));
    }
    return {median(rtt), median(pub), median(sub)};
}

// ---------------------------------------------------------------------------------------------

void report(const char* title, const broker_figures& b, const sensor_figures& s, bool tls) {
    const double connect_limit = tls ? 1.5 * b.connect : b.connect + 5;
    const bool connects_ok =
        s.subscriber_connect <= connect_limit && s.publisher_connect <= connect_limit;
    const bool rtt_ok = s.round_trip <= b.round_trip + 2;
    std::printf("%s\n", title);
    std::printf(
        "  %-44s %9.3f\n",
        tls ? "broker: TCP + TLS handshake + CONNECT/CONNACK" : "broker: TCP + CONNECT/CONNACK",
        b.connect);
    std::printf("  %-44s %9.0f\n", "sensor: Subscriber Connection Time", s.subscriber_connect);
    std::printf("  %-44s %9.0f\n", "sensor: Publisher Connection Time", s.publisher_connect);
    std::printf("  %-44s %9.3f\n", "broker: publish to arrival", b.round_trip);
    std::printf("  %-44s %9.3f\n", "  (right after a new subscriber's SUBACK)", b.right_after);
    std::printf("  %-44s %9.0f\n", "sensor: Round Trip Time", s.round_trip);
    std::printf("  goal: connections <= %.3f ms %s; round trip <= %.3f ms %s\n", connect_limit,
                connects_ok ? "met" : "MISSED", b.round_trip + 2, rtt_ok ? "met" : "MISSED");
}

int run(int scans, bool paced) {
    if (!test_support::mosquitto_available()) {
        std::fprintf(stderr, "mosquitto is needed\n");
        return 1;
    }
    const std::string payload =
        libstringutils::make_random_string_generator()->generate(payload_length);
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> ctx(SSL_CTX_new(TLS_client_method()),
                                                          &SSL_CTX_free);
    SSL_CTX_load_verify_locations(
        ctx.get(), test_support::shared_tls_material().ca_certificate_file().c_str(), nullptr);
    SSL_CTX_set_verify(ctx.get(), SSL_VERIFY_PEER, nullptr);

    std::printf("medians in ms, %d scans per setting, %s\n", scans,
                paced ? "paced" : "unpaced (--unpaced)");
    for (const bool tls : {false, true}) {
        test_support::broker_options options;
        options.tls = tls;
        test_support::mosquitto_broker broker(options);
        const auto b =
            measure_broker(static_cast<int>(broker.port()), tls ? ctx.get() : nullptr, payload);
        for (const bool beside_idle : {false, true}) {
            const auto s = measure_sensor(broker, paced, beside_idle, scans);
            const std::string title = std::string(tls ? "TLS" : "TCP") +
                                      (beside_idle ? ", beside two idle sensors" : ", alone");
            report(title.c_str(), b, s, tls);
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int scans = 20;
    bool paced = true;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--scans" && i + 1 < argc) scans = std::stoi(argv[++i]);
        if (arg == "--unpaced") paced = false;
    }
    try {
        return run(scans, paced);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
