// The operator-facing outputs of run: metrics text, status JSON and page, shards, log lines.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cmath>
#include <jsoncons/json.hpp>
#include <thread>

#include "host/errors.h"
#include "host/http_endpoint.h"
#include "host/log_style.h"
#include "host/metrics.h"
#include "host/shard.h"
#include "host/status_board.h"
#include "host/status_page.h"

namespace corvanis::monitoring_modules::host {
namespace {

channel_view channel(int id, const std::string& name, double value, bool integer = false) {
    channel_view c;
    c.id = id;
    c.name = name;
    c.integer = integer;
    c.integer_value = static_cast<std::int64_t>(value);
    c.floating_value = value;
    return c;
}

scan_view scan(int id, const std::string& state, std::vector<channel_view> channels) {
    scan_view s;
    s.sensor_id = id;
    s.kind = "statistics_sensor";
    s.state = state;
    s.response_code = state == "error" ? 3 : 0;
    s.error = state == "error";
    s.channels = std::move(channels);
    s.duration = std::chrono::milliseconds(250);
    s.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1700000000123));
    return s;
}

std::string metrics_of(const status_board& board) {
    std::string out;
    render_metrics(board, {"1.0", "2.0", 6, "1/2"}, out);
    return out;
}

bool has_line(const std::string& text, const std::string& line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(operations_test, metrics_show_each_sensor_and_channel_as_operators_read_them) {
    status_board board;
    board.add_sensor(1, "boiler \"north\"\\\nroom", "statistics_sensor", "MQTT Statistics");
    board.add_sensor(2, "", "statistics_sensor", "");
    board.add_sensor(3, "", "statistics_sensor", "");
    auto counter = channel(1, "Starts", 4, true);
    counter.counter = true;
    counter.raw = 140;
    auto first = channel(2, "Resets", 0, true);  // a counter's first scan: raw only
    first.counter = true;
    first.raw = 9;
    first.has_value = false;
    board.record(scan(1, "ok",
                      {channel(0, "Temp", 21.5), counter, first, channel(3, "Bad", NAN),
                       channel(4, "Big", INFINITY)}));
    board.record(scan(2, "error", {}));
    const auto text = metrics_of(board);

    const std::string boiler =
        R"(sensor="boiler \"north\"\\\nroom",id="1",kind="statistics_sensor")";
    const std::string no_name = R"(sensor="3",id="3",kind="statistics_sensor")";
    const struct {
        std::string line;
        bool present;
    } rows[] = {
        {"tavo_sensor_state{" + boiler + "} 0", true},
        {R"(tavo_sensor_state{sensor="2",id="2",kind="statistics_sensor"} 2)", true},
        {"tavo_sensor_state{" + no_name + "} 3", true},  // never scanned
        {"tavo_scan_duration_seconds{" + boiler + "} 0.25", true},
        {"tavo_last_scan_timestamp_seconds{" + boiler + "} 1700000000.123", true},
        {"tavo_channel_value{" + boiler + R"(,channel="Temp",unit=""} 21.5)", true},
        {"tavo_channel_value{" + boiler + R"(,channel="Starts",unit=""} 4)", true},
        {"tavo_channel_raw_total{" + boiler + R"(,channel="Starts",unit=""} 140)", true},
        {"tavo_channel_raw_total{" + boiler + R"(,channel="Resets",unit=""} 9)", true},
        {"tavo_channel_value{" + boiler + R"(,channel="Resets",unit=""} 0)", false},
        {"tavo_channel_value{" + boiler + R"(,channel="Bad",unit=""} NaN)", true},
        {"tavo_channel_value{" + boiler + R"(,channel="Big",unit=""} +Inf)", true},
        {"tavo_scan_duration_seconds{" + no_name + "} 0", false},
        {R"(tavo_sensors{state="ok"} 1)", true},
        {R"(tavo_sensors{state="error"} 1)", true},
        {R"(tavo_sensors{state="unknown"} 1)", true},
        {"tavo_scans_total 2", true},
        {"tavo_scan_errors_total 1", true},
        {R"(tavo_probe_info{version="1.0",module_version="2.0",api_level="6",shard="1/2"} 1)",
         true},
    };
    for (const auto& row : rows) EXPECT_EQ(has_line(text, row.line), row.present) << row.line;
    // Each family's samples follow its own TYPE line.
    EXPECT_LT(text.find("# TYPE tavo_channel_raw_total counter"),
              text.find("tavo_channel_raw_total{"));
    EXPECT_LT(text.find("tavo_channel_value{"), text.find("# TYPE tavo_channel_raw_total"));
}

TEST(operations_test, results_that_carry_only_a_code_never_show_green) {
    const struct {
        int code;
        const char* state;
    } rows[] = {{0, "ok"}, {1, "warning"}, {2, "unknown"}, {3, "error"}, {7, "error"}};
    for (const auto& row : rows) {
        status_board board;
        auto s = scan(1, "ok", {});
        s.response_code = row.code;
        board.record(s);
        board.for_each([&](const sensor_status& status) {
            EXPECT_EQ(status.latest.state, row.state) << row.code;
        });
    }
}

TEST(operations_test, history_keeps_the_latest_values_in_order) {
    const struct {
        std::size_t capacity;
        std::vector<float> pushed;
        std::vector<float> kept;
    } rows[] = {
        {3, {1, 2}, {1, 2}},
        {3, {1, 2, 3, 4, 5}, {3, 4, 5}},
        {3, {1, 2, 3, 4, 5, 6, 7}, {5, 6, 7}},
        {1, {1, 2}, {2}},
        {0, {1}, {}},
    };
    for (const auto& row : rows) {
        channel_history history(row.capacity);
        for (const float v : row.pushed) history.push(v);
        EXPECT_EQ(history.values(), row.kept) << row.capacity << " " << row.pushed.size();
    }
}

TEST(operations_test, status_json_lists_every_sensor_and_the_page_cannot_be_broken_out_of) {
    status_board board;
    board.add_sensor(5, "</script><script>alert(1)</script>", "statistics_sensor", "Stats");
    board.add_sensor(6, "", "statistics_sensor", "Stats");
    auto gap = channel(0, "c", 0, true);
    gap.has_value = false;
    board.record(scan(6, "warning", {channel(0, "c", 2, true)}));
    board.record(scan(6, "warning", {gap}));
    const auto text = status_json(board, {"1.0", "2.0", 6, ""});
    const auto doc = jsoncons::json::parse(text);
    ASSERT_EQ(doc["sensors"].size(), 2u);
    const auto& unscanned = doc["sensors"][0];
    EXPECT_EQ(unscanned["state"].as<std::string>(), "unknown");
    EXPECT_TRUE(unscanned["time"].is_null());
    const auto& scanned = doc["sensors"][1];
    EXPECT_EQ(scanned["state"].as<std::string>(), "warning");
    EXPECT_EQ(scanned["display"].as<std::string>(), "Stats");
    const auto history = scanned["channels"][0]["history"];
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0].as<int>(), 2);
    EXPECT_TRUE(history[1].is_null());

    const auto page = status_page(text);
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.find("http://"), page.find("http://www.w3.org/2000/svg"))
        << "the page fetches nothing from elsewhere";
}

TEST(operations_test, shard_arguments_parse_or_are_refused_as_usage_errors) {
    const struct {
        const char* text;
        unsigned index, count;  // count 0: refused
    } rows[] = {
        {"0/1", 0, 1}, {"1/2", 1, 2},  {"9/10", 9, 10}, {"2/2", 0, 0},
        {"0/0", 0, 0}, {"-1/2", 0, 0}, {"1", 0, 0},     {"1/", 0, 0},
        {"/2", 0, 0},  {"1/2x", 0, 0}, {"a/b", 0, 0},
    };
    for (const auto& row : rows) {
        if (row.count == 0) {
            try {
                parse_shard(row.text);
                ADD_FAILURE() << row.text << " accepted";
            } catch (const host_error& e) {
                EXPECT_EQ(e.code(), exit_usage) << row.text;
            }
            continue;
        }
        const auto assigned = parse_shard(row.text);
        EXPECT_EQ(assigned.index, row.index) << row.text;
        EXPECT_EQ(assigned.count, row.count) << row.text;
        EXPECT_EQ(assigned.text(), row.text);
    }
}

TEST(operations_test, shards_split_ids_by_the_documented_hash_without_overlap) {
    // FNV-1a 64 of the decimal digits, as documented for operators.
    EXPECT_EQ(shard_hash(1), 0xaf63ac4c86019afcULL);
    EXPECT_EQ(shard_hash(42), 0x07ee7e07b4b19223ULL);
    EXPECT_EQ(shard_hash(100000), 0x31755d1a8ea147a4ULL);
    for (const unsigned count : {1u, 2u, 3u, 7u}) {
        std::vector<unsigned> sizes(count);
        for (int id = 1; id <= 2000; ++id) {
            unsigned owners = 0;
            for (unsigned k = 0; k < count; ++k) {
                if (shard_assignment{k, count}.owns(id)) {
                    ++owners;
                    ++sizes[k];
                }
            }
            ASSERT_EQ(owners, 1u) << "id " << id << " of " << count << " shards";
        }
        for (const auto size : sizes) EXPECT_GT(size, 2000 / count / 2) << count << " shards";
    }
}

TEST(operations_test, listen_addresses_parse_with_loopback_as_the_default_host) {
    const struct {
        const char* text;
        const char* host;  // null: refused
        int port;
        bool loopback;
    } rows[] = {
        {":9464", "127.0.0.1", 9464, true}, {"127.0.0.1:0", "127.0.0.1", 0, true},
        {"[::1]:80", "::1", 80, true},      {"0.0.0.0:9464", "0.0.0.0", 9464, false},
        {"[::]:9464", "::", 9464, false},   {"localhost:1", "localhost", 1, true},
        {"9464", nullptr, 0, false},        {"::1:80", nullptr, 0, false},
        {"host:", nullptr, 0, false},       {"host:70000", nullptr, 0, false},
        {"host:-1", nullptr, 0, false},
    };
    for (const auto& row : rows) {
        if (row.host == nullptr) {
            EXPECT_THROW(parse_listen_address(row.text), host_error) << row.text;
            continue;
        }
        const auto address = parse_listen_address(row.text);
        EXPECT_EQ(address.host, row.host) << row.text;
        EXPECT_EQ(address.port, row.port) << row.text;
        EXPECT_EQ(address.loopback(), row.loopback) << row.text;
    }
}

TEST(operations_test, journal_lines_carry_the_severity_and_stay_one_line) {
    const struct {
        log_format format;
        int severity;
        const char* text;
        const char* line;
    } rows[] = {
        {log_format::journal, 3, "failed", "<3>failed"},
        {log_format::journal, 7, "a\nb\r\n", "<7>a\\nb\\n"},
        {log_format::journal, 12, "x", "<7>x"},
        {log_format::plain, 3, "a\nb", "a\nb"},
    };
    for (const auto& row : rows) {
        set_log_format(row.format);
        EXPECT_EQ(log_line(row.severity, row.text), row.line);
    }
    set_log_format(log_format::plain);
}

TEST(operations_test, the_endpoint_serves_while_scans_record) {
    status_board board;
    for (int id = 1; id <= 50; ++id) board.add_sensor(id, "", "k", "");
    {
        http_endpoint endpoint(parse_listen_address("127.0.0.1:0"), board, {});
        EXPECT_GT(endpoint.port(), 0);
        std::jthread writer([&](std::stop_token stop) {
            for (int i = 0; !stop.stop_requested(); ++i)
                board.record(scan(1 + i % 50, "ok", {channel(0, "c", i, true)}));
        });
        httplib::Client client("127.0.0.1", endpoint.port());
        client.set_read_timeout(30, 0);
        for (const char* path : {"/metrics", "/api/status", "/", "/metrics"}) {
            const auto response = client.Get(path);
            ASSERT_TRUE(response) << path;
            EXPECT_EQ(response->status, 200) << path;
        }
        EXPECT_EQ(client.Get("/nothing")->status, 404);
    }
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
