// One subscribe-custom scan of a 1 KiB payload (a sensor message and ten channels) through
// libjsonparser, beside the same parse and queries written against jsoncons directly.
// Build in Release; compare the medians of scan_with_compiled_paths and bare_jsoncons_*.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <jsoncons/json.hpp>
#include <jsoncons_ext/jsonpath/jsonpath.hpp>

#include "libjsonparser/jsonpath_parser.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;

namespace {

const std::string payload = R"({
  "device": {"id": "plant-7/line-2/press-04", "firmware": "4.2.17", "uptime_s": 8640123},
  "status": {"state": "running", "message": "Pressing cycle 1832 completed within tolerance",
             "since": "2024-05-01T12:00:00Z"},
  "readings": {
    "temperature": {"value": 71.25, "unit": "C", "quality": "good"},
    "humidity": {"value": 38.5, "unit": "%", "quality": "good"},
    "pressure": {"value": 1013.2, "unit": "hPa", "quality": "good"},
    "vibration": {"value": "0.042", "unit": "g", "quality": "uncertain"}
  },
  "counters": {"cycles": 1832, "rejects": 7, "energy_wh": 5234871.5, "messages": 99812},
  "battery": {"level": 87, "voltage": 3.71, "charging": false},
  "signal": {"rssi": -67, "snr": 9.5, "channel": 11},
  "sensors": [
    {"id": "co2", "value": 612, "unit": "ppm"}, {"id": "voc", "value": 0.31, "unit": "mg/m3"},
    {"id": "pm25", "value": 4.2, "unit": "ug/m3"}, {"id": "noise", "value": 58.1, "unit": "dB"}
  ],
  "location": {"site": "Werk Nord", "hall": "B", "lat": 52.5201, "lon": 13.4049},
  "tags": ["press", "hydraulic", "line-2", "shift-b"]
})";

struct channel {
    const char* path;
    bool integer;  // otherwise float or counter: both are read as double
};

const std::vector<channel> channels = {
    {"$.readings.temperature.value", false},
    {"$.readings.humidity.value", false},
    {"$.readings.pressure.value", false},
    {"$.readings.vibration.value", false},
    {"$.counters.cycles", true},
    {"$.counters.energy_wh", false},
    {"$.battery.level", true},
    {"$.signal.rssi", true},
    {"$.sensors[?(@.id == 'co2')].value", true},
    {"$.counters.messages", true},
};
const char* const message_path = "$.status.message";

// What the sensor keeps per channel.
struct compiled_sensor {
    jp::compiled_jsonpath message{message_path};
    std::vector<jp::compiled_jsonpath> channels;
    compiled_sensor() {
        for (const auto& c : ::channels) channels.emplace_back(c.path);
    }
};

void scan_with_compiled_paths(benchmark::State& state) {
    const compiled_sensor sensor;
    for (auto _ : state) {
        // As the sensor would: the registered factory, then the compiled paths when the
        // parser is the JSONPath one.
        const auto parser = jp::make_jsonpath_parser(payload);
        const auto& jsonpath = dynamic_cast<const jp::jsonpath_parser&>(*parser);
        auto message = jsonpath.query_text(sensor.message);
        benchmark::DoNotOptimize(message);
        for (std::size_t i = 0; i < channels.size(); ++i) {
            if (channels[i].integer) {
                benchmark::DoNotOptimize(jsonpath.query_int64(sensor.channels[i]));
            } else {
                benchmark::DoNotOptimize(jsonpath.query_double(sensor.channels[i]));
            }
        }
    }
    state.counters["payload_bytes"] = static_cast<double>(payload.size());
}

void scan_with_path_texts(benchmark::State& state) {
    for (auto _ : state) {
        const auto parser = jp::make_jsonpath_parser(payload);
        auto message = parser->query_text(message_path);
        benchmark::DoNotOptimize(message);
        for (const auto& c : channels) {
            if (c.integer) {
                benchmark::DoNotOptimize(parser->query_int64(c.path));
            } else {
                benchmark::DoNotOptimize(parser->query_double(c.path));
            }
        }
    }
}

// The same work with jsoncons alone: precompiled expressions, one value per query, and
// the text-to-number step that vibration's string value needs.
template <class Json>
void bare_jsoncons(benchmark::State& state) {
    namespace jsonpath = jsoncons::jsonpath;
    const auto message = jsonpath::make_expression<Json>(message_path);
    std::vector<jsonpath::jsonpath_expression<Json>> compiled;
    for (const auto& c : channels) compiled.push_back(jsonpath::make_expression<Json>(c.path));
    for (auto _ : state) {
        const auto document = Json::parse(payload);
        const auto text = message.evaluate(document);
        auto message_text = text.at(0).template as<std::string>();
        benchmark::DoNotOptimize(message_text);
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const auto result = compiled[i].evaluate(document);
            if (result.size() != 1) throw std::runtime_error("unexpected result");
            const auto& value = result.at(0);
            if (channels[i].integer) {
                benchmark::DoNotOptimize(value.template as<std::int64_t>());
            } else if (value.is_string()) {
                benchmark::DoNotOptimize(std::stod(value.template as<std::string>()));
            } else {
                benchmark::DoNotOptimize(value.template as<double>());
            }
        }
    }
}

void bare_jsoncons_ojson(benchmark::State& state) {
    bare_jsoncons<jsoncons::ojson>(state);
}
void bare_jsoncons_json(benchmark::State& state) {
    bare_jsoncons<jsoncons::json>(state);
}

void parse_only_ojson(benchmark::State& state) {
    for (auto _ : state) {
        auto document = jsoncons::ojson::parse(payload);
        benchmark::DoNotOptimize(document);
    }
}

}  // namespace

BENCHMARK(bare_jsoncons_ojson);
BENCHMARK(bare_jsoncons_json);
BENCHMARK(scan_with_compiled_paths);
BENCHMARK(scan_with_path_texts);
BENCHMARK(parse_only_ojson);
