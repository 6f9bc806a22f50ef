// What one scrape of a large probe costs: /metrics and /api/status rendered from a board of
// N sensors with three channels and a full sparkline history each, in-process and over
// HTTP on loopback. Build in Release and read the medians:
//   status_endpoints_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only
#include <benchmark/benchmark.h>
#include <httplib.h>

#include <string>

#include "host/http_endpoint.h"
#include "host/metrics.h"
#include "host/status_board.h"
#include "host/status_page.h"

namespace {

using namespace corvanis::monitoring_modules::host;

void fill(status_board& board, int sensors) {
    for (int id = 1; id <= sensors; ++id) {
        board.add_sensor(id, "sensor " + std::to_string(id), "statistics_sensor",
                         "MQTT Statistics");
        for (int round = 0; round < 60; ++round) {
            scan_view scan;
            scan.sensor_id = id;
            scan.kind = "statistics_sensor";
            scan.duration = std::chrono::milliseconds(3);
            scan.time = std::chrono::system_clock::now();
            for (int c = 0; c < 3; ++c) {
                channel_view channel;
                channel.id = c;
                channel.name = "Channel " + std::to_string(c);
                channel.unit = "#";
                channel.integer_value = round * c;
                scan.channels.push_back(channel);
            }
            board.record(scan);
        }
    }
}

void metrics_text(benchmark::State& state) {
    status_board board;
    fill(board, static_cast<int>(state.range(0)));
    std::string out;
    for (auto _ : state) {
        out.clear();
        render_metrics(board, {}, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["bytes"] = static_cast<double>(out.size());
}
BENCHMARK(metrics_text)->Arg(10000)->Unit(benchmark::kMillisecond);

void status_api_json(benchmark::State& state) {
    status_board board;
    fill(board, static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(status_json(board, {}));
}
BENCHMARK(status_api_json)->Arg(10000)->Unit(benchmark::kMillisecond);

void metrics_over_http(benchmark::State& state) {
    status_board board;
    fill(board, static_cast<int>(state.range(0)));
    http_endpoint endpoint(parse_listen_address("127.0.0.1:0"), board, {});
    httplib::Client client("127.0.0.1", endpoint.port());
    for (auto _ : state) {
        const auto response = client.Get("/metrics");
        if (!response || response->status != 200) state.SkipWithError("no answer");
    }
}
BENCHMARK(metrics_over_http)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
