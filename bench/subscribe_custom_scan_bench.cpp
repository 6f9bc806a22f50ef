// One subscribe-custom scan (receipt, evaluation of a sensor message and ten channels over a
// 1 KiB payload, the result serialised for the host) beside the same parse and queries
// written against jsoncons directly. Build in Release and compare the medians:
//   subscribe_custom_scan_bench --benchmark_repetitions=10 --benchmark_report_aggregates_only
#include <benchmark/benchmark.h>

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <jsoncons/json.hpp>
#include <jsoncons_ext/jsonpath/jsonpath.hpp>

#include "libtavohelper/module/logs.h"
#include "mqtt/sensors/subscribe_custom_sensor.h"

namespace {

using namespace corvanis::monitoring_modules;
namespace tavo = libtavohelper;

const std::string payload = R"({
  "device": {"id": "plant-7/line-2/press-04", "firmware": "4.2.17", "uptime_s": 8640123},
  "status": {"state": "running", "message": "Pressing cycle 1832 completed within tolerance"},
  "readings": {
    "temperature": {"value": 71.25, "unit": "C", "quality": "good"},
    "humidity": {"value": 38.5, "unit": "%", "quality": "good"},
    "pressure": {"value": 1013.2, "unit": "hPa", "quality": "good"},
    "vibration": {"value": "0.042", "unit": "g", "quality": "uncertain"}
  },
  "counters": {"cycles": 1832, "rejects": 7, "energy_wh": 5234871.5, "messages": 99812},
  "battery": {"level": 87, "voltage": 3.71},
  "signal": {"rssi": -67, "channel": 11},
  "sensors": [
    {"id": "co2", "value": 612, "unit": "ppm"}, {"id": "voc", "value": 0.31, "unit": "mg/m3"},
    {"id": "pm25", "value": 4.2, "unit": "ug/m3"}, {"id": "noise", "value": 58.1, "unit": "dB"}
  ],
  "location": {"site": "Werk Nord", "hall": "B", "lat": 52.5201, "lon": 13.4049},
  "tags": ["press", "hydraulic", "line-2", "shift-b"]
})";

enum class kind { integer, floating, counter };
struct channel {
    const char* path;
    kind type;
};
const std::vector<channel> channels = {
    {"$.readings.temperature.value", kind::floating},
    {"$.readings.humidity.value", kind::floating},
    {"$.readings.pressure.value", kind::floating},
    {"$.readings.vibration.value", kind::floating},
    {"$.counters.cycles", kind::counter},
    {"$.counters.energy_wh", kind::counter},
    {"$.battery.level", kind::integer},
    {"$.signal.rssi", kind::integer},
    {"$.sensors[?(@.id == 'co2')].value", kind::integer},
    {"$.counters.messages", kind::counter},
};
const char* const message_path = "$.status.message";

struct fake_client : mqtt::mqtt_client_interface {
    std::shared_ptr<mqtt::topic_subscription_interface> subscription;
    void subscribe(const std::shared_ptr<mqtt::topic_subscription_interface>& s) override {
        subscription = s;
    }
    void unsubscribe(const std::shared_ptr<mqtt::topic_subscription_interface>&) override {}
    void publish(const std::string&, const std::string&, const mqtt::quality_of_service&,
                 bool) override {}
    std::uint32_t get_active_client_count() const override { return 1; }
    std::int64_t get_connect_duration() const override { return 0; }
    bool is_connected() const override { return true; }
    std::string get_client_id() const override { return "bench"; }
    std::uint64_t get_subscribed_topic_count() const override { return 1; }
    void add_logger(const std::shared_ptr<liblog::log_interface>&, int) override {}
    void remove_logger(const std::shared_ptr<liblog::log_interface>&) override {}
};

// A host that takes every message and keeps none.
struct null_host : tavo::messaging::message_service_interface {
    using message_service_interface::send;
    void send(const std::vector<char>& bytes) override { benchmark::DoNotOptimize(bytes.data()); }
};

std::map<std::string, std::string> settings() {
    const std::string types[] = {"absolute_integer", "absolute_float", "delta_counter"};
    const std::string p = "subscribe_custom.connection_subscribe_custom.";
    std::map<std::string, std::string> m = {{p + "topic", "plant/#"},
                                            {p + "duration_since_last_message", "disable"},
                                            {p + "retain_last_message", "dismiss"},
                                            {p + "message_path", message_path}};
    std::istringstream common(
        "host=127.0.0.1 logging=disabled interval=60 timeout=5 corvaniscloudapikey= "
        "ipversion=IPv4 credentials.user_credentials.active=no credentials.user_credentials.user= "
        "credentials.user_credentials.password= credentials.connection_mqtt.port=1883 "
        "credentials.tls.active=no credentials.tls.server_auth_active=no "
        "credentials.tls.ca_certificate= credentials.tls.client_auth_active=no "
        "credentials.tls.client_certificate= credentials.tls.client_key= "
        "credentials.tls.client_key_password=");
    for (std::string kv; common >> kv;) m[kv.substr(0, kv.find('='))] = kv.substr(kv.find('=') + 1);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const auto c = p + "channel" + std::to_string(i + 1);
        if (i > 0) m[c] = "enable";
        m[c + "_jsonpath"] = channels[i].path;
        m[c + "_name"] = "Channel " + std::to_string(i + 1);
        m[c + "_unit"] = "";
        m[c + "_type"] = types[static_cast<int>(channels[i].type)];
        m[c + "_scale_factor"] = "1";
    }
    return m;
}

// Exposes the scan's own work, without the frame's banners and the result's encoding.
struct work_only : mqtt::sensors::subscribe_custom_sensor {
    using subscribe_custom_sensor::subscribe_custom_sensor;
    using subscribe_custom_sensor::work;
};

// A sensor on a fake client; `run` delivers one message and scans.
template <class Run>
void with_sensor(benchmark::State& state, Run run) {
    auto container = std::make_shared<tavo::module::service_container>();
    container->register_factory<tavo::messaging::message_service_interface>(std::function(
        [] { return std::unique_ptr<tavo::messaging::message_service_interface>(new null_host); }));
    tavo::module::register_sensor_log(container);
    fake_client* client = nullptr;
    container->register_factory<mqtt::mqtt_client_interface, mqtt::mqtt_client_settings>(
        std::function([&client](mqtt::mqtt_client_settings) {
            auto made = std::make_unique<fake_client>();
            client = made.get();
            return std::unique_ptr<mqtt::mqtt_client_interface>(std::move(made));
        }));
    container->register_factory<libparser::parser_interface, std::string>(
        std::function<std::unique_ptr<libparser::parser_interface>(std::string)>(
            libjsonparser::make_jsonpath_parser));
    work_only sensor(1, tavo::settings::sensor_data_wrapper("subscribe_custom_sensor", settings()),
                     container);
    const auto message = std::make_shared<mqtt::received_message>(mqtt::received_message{
        "plant/7", {payload.begin(), payload.end()}, std::chrono::system_clock::now()});

    for (auto _ : state) run(*client->subscription, message, sensor);
    state.counters["payload_bytes"] = static_cast<double>(payload.size());
}

// What the host sees: banners, evaluation, the result encoded and sent.
void sensor_scan(benchmark::State& state) {
    with_sensor(state, [](auto& subscription, const auto& message, work_only& sensor) {
        subscription.receive(message);
        sensor.scan();
    });
}

void sensor_work(benchmark::State& state) {
    with_sensor(state, [](auto& subscription, const auto& message, work_only& sensor) {
        subscription.receive(message);
        auto result = sensor.work();
        benchmark::DoNotOptimize(&result);
    });
}

// The same parse and queries with jsoncons alone: precompiled expressions, one value per
// query, the string-to-number step that vibration needs, and nothing sent anywhere.
void bare_jsoncons(benchmark::State& state) {
    namespace jsonpath = jsoncons::jsonpath;
    using json = jsoncons::ojson;
    const auto message = jsonpath::make_expression<json>(message_path);
    std::vector<jsonpath::jsonpath_expression<json>> compiled;
    for (const auto& c : channels) compiled.push_back(jsonpath::make_expression<json>(c.path));
    for (auto _ : state) {
        const auto document = json::parse(payload);
        auto text = message.evaluate(document).at(0).as<std::string>();
        benchmark::DoNotOptimize(text);
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const auto result = compiled[i].evaluate(document);
            if (result.size() != 1) throw std::runtime_error("unexpected result");
            const auto& value = result.at(0);
            if (channels[i].type == kind::integer) {
                benchmark::DoNotOptimize(value.as<std::int64_t>());
            } else if (value.is_string()) {
                benchmark::DoNotOptimize(std::stod(value.as<std::string>()));
            } else {
                benchmark::DoNotOptimize(value.as<double>());
            }
        }
    }
}

// The query layer alone, as the sensor drives it: where the sensor's own share begins.
void query_layer(benchmark::State& state) {
    const libjsonparser::compiled_jsonpath message(message_path);
    std::vector<libjsonparser::compiled_jsonpath> compiled;
    for (const auto& c : channels) compiled.emplace_back(c.path);
    for (auto _ : state) {
        const auto parser = libjsonparser::make_jsonpath_parser(payload);
        const auto& jsonpath = dynamic_cast<const libjsonparser::jsonpath_parser&>(*parser);
        auto text = jsonpath.query_text(message);
        benchmark::DoNotOptimize(text);
        for (std::size_t i = 0; i < channels.size(); ++i) {
            if (channels[i].type == kind::integer) {
                benchmark::DoNotOptimize(jsonpath.query_int64(compiled[i]));
            } else {
                benchmark::DoNotOptimize(jsonpath.query_double(compiled[i]));
            }
        }
    }
}

}  // namespace

BENCHMARK(sensor_scan);
BENCHMARK(sensor_work);
BENCHMARK(query_layer);
BENCHMARK(bare_jsoncons);
