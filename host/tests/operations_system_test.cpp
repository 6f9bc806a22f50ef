// tavo-probe run as operators deploy it: scraped by Prometheus, watched in a browser, split
// into shards, started by systemd. Against a local mosquitto; the Prometheus and Chromium
// cases skip when those programs are not installed.
#include <gtest/gtest.h>
#include <httplib.h>

#include <fstream>
#include <jsoncons/json.hpp>
#include <map>
#include <set>

#include "host/tests/probe_process.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/process.h"

namespace {

namespace support = corvanis::monitoring_modules::test_support;
using jsoncons::json;

std::string get(int port, const std::string& path, int* status = nullptr) {
    httplib::Client client("127.0.0.1", port);
    client.set_connection_timeout(5, 0);
    client.set_read_timeout(10, 0);
    const auto response = client.Get(path.c_str());
    if (status != nullptr) *status = response ? response->status : -1;
    return response ? response->body : std::string();
}

class operations_system_test : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!support::mosquitto_available()) GTEST_SKIP() << "mosquitto is not installed";
        broker_ = std::make_unique<support::mosquitto_broker>();
    }

    // Statistics sensors 1..count on the broker, plus one round trip to a port where nothing
    // listens when `failing`.
    std::string config(int count, bool failing, const std::string& top = "") const {
        std::string text = top +
                           "defaults:\n  host: 127.0.0.1\n  credentials.connection_mqtt.port: " +
                           std::to_string(broker_->port()) + "\nsensors:\n";
        for (int id = 1; id <= count; ++id) {
            text += "  - id: " + std::to_string(id) +
                    "\n    kind: statistics_sensor\n    interval: 1\n    settings:\n"
                    "      statistics.connection_statistics.topic: \"t/" +
                    std::to_string(id) + "/#\"\n";
        }
        if (failing) {
            text +=
                "  - id: 99\n    kind: roundtrip_sensor\n    interval: 1\n    settings:\n"
                "      credentials.connection_mqtt.port: 1\n";
        }
        return dir_.file("probe.yaml", text);
    }

    std::unique_ptr<support::mosquitto_broker> broker_;
    const probe_test::scratch dir_;
};

TEST_F(operations_system_test, a_scrape_and_the_api_show_every_sensor_with_its_state) {
    const int port = support::free_port();
    probe_test::child probe(
        {"run", config(2, true), "--json", "--listen", "127.0.0.1:" + std::to_string(port)});
    ASSERT_TRUE(probe.wait_for_output("\"sensor_id\":99"));
    ASSERT_TRUE(probe.wait_for_output("\"sensor_id\":1"));
    ASSERT_TRUE(probe.wait_for_output("\"sensor_id\":2"));

    const auto metrics = get(port, "/metrics");
    for (const char* line :
         {R"(tavo_sensor_state{sensor="99",id="99",kind="roundtrip_sensor"} 2)",
          R"(tavo_sensor_state{sensor="1",id="1",kind="statistics_sensor"} 0)",
          R"(tavo_sensor_state{sensor="2",id="2",kind="statistics_sensor"} 0)"}) {
        EXPECT_NE(metrics.find(line), std::string::npos) << line << " in\n" << metrics;
    }
    std::map<int, std::string> states;
    const auto status = json::parse(get(port, "/api/status"));
    for (const auto& sensor : status["sensors"].array_range())
        states[sensor["sensor_id"].as<int>()] = sensor["state"].as<std::string>();
    EXPECT_EQ(states, (std::map<int, std::string>{{1, "ok"}, {2, "ok"}, {99, "error"}}));

    // The same address twice is refused, not shared.
    const auto second = probe_test::run({"run", config(1, false), "--listen",
                                         "127.0.0.1:" + std::to_string(port), "--seconds", "5"});
    EXPECT_EQ(second.exit_code, 3);
    EXPECT_NE(second.err.find("cannot listen on 127.0.0.1:" + std::to_string(port)),
              std::string::npos)
        << second.err;
    probe.signal(SIGTERM);
    EXPECT_EQ(probe.finish().exit_code, 0);
}

TEST_F(operations_system_test, the_status_page_renders_every_sensor_without_console_errors) {
    const auto chromium = support::find_program("chromium");
    if (chromium.empty()) GTEST_SKIP() << "chromium is not installed (scripts/setup.sh adds it)";
    const int port = support::free_port();
    probe_test::child probe(
        {"run", config(1, true, "listen: 127.0.0.1:" + std::to_string(port) + "\n"), "--json"});
    ASSERT_TRUE(probe.wait_for_output("\"sensor_id\":99"));
    ASSERT_TRUE(probe.wait_for_output("\"sensor_id\":1"));
    const auto out = dir_.path("chromium.txt");
    // Console messages appear in the log as "INFO:CONSOLE:LINE]"; --dump-dom prints the DOM once
    // the page's scripts ran within the virtual time budget.
    support::run({chromium, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
                  "--user-data-dir=" + dir_.path("chromium-profile"), "--enable-logging=stderr",
                  "--v=0", "--virtual-time-budget=7000", "--dump-dom",
                  "http://127.0.0.1:" + std::to_string(port) + "/"},
                 out);
    const auto text = support::read_text(out);
    EXPECT_EQ(text.find(":CONSOLE"), std::string::npos) << text;
    for (const char* part :
         {R"(<article class="card ok" data-sensor="1">)",
          R"(<article class="card error" data-sensor="99">)", R"(<div class="name">#99</div>)",
          R"(<span class="badge error">ERROR</span>)", R"(<span class="badge ok">OK</span>)",
          "<svg"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " in\n" << text;
    }
    probe.signal(SIGTERM);
    EXPECT_EQ(probe.finish().exit_code, 0);
}

TEST_F(operations_system_test, prometheus_scraping_two_shards_sees_every_sensor_once) {
    const auto prometheus = support::find_program("prometheus");
    if (prometheus.empty())
        GTEST_SKIP() << "prometheus is not installed (scripts/setup.sh adds it)";
    constexpr int sensors = 6;
    const auto file = config(sensors, false);
    const int ports[2] = {support::free_port(), support::free_port()};
    std::vector<std::unique_ptr<probe_test::child>> shards;
    for (int k = 0; k < 2; ++k) {
        shards.push_back(std::make_unique<probe_test::child>(
            std::vector<std::string>{"run", file, "--shard", std::to_string(k) + "/2", "--listen",
                                     "127.0.0.1:" + std::to_string(ports[k])}));
    }
    const int web = support::free_port();
    const auto prometheus_config = dir_.file(
        "prometheus.yml",
        "global:\n  scrape_interval: 1s\n  scrape_timeout: 1s\n"
        "scrape_configs:\n  - job_name: tavo\n    static_configs:\n"
        "      - targets: ['127.0.0.1:" +
            std::to_string(ports[0]) + "', '127.0.0.1:" + std::to_string(ports[1]) + "']\n");
    const pid_t server = support::spawn({prometheus, "--config.file=" + prometheus_config,
                                         "--storage.tsdb.path=" + dir_.path("tsdb"),
                                         "--web.listen-address=127.0.0.1:" + std::to_string(web)},
                                        dir_.path("prometheus.log"), true);

    // Per sensor id, the instances that report it, once both targets have been scraped.
    std::map<std::string, std::multiset<std::string>> seen;
    const bool complete = support::eventually(
        [&] {
            seen.clear();
            std::set<std::string> instances;
            int status = 0;
            const auto body = get(web, "/api/v1/query?query=tavo_sensor_state", &status);
            if (status != 200) return false;  // still starting
            const auto states = json::parse(body);
            for (const auto& series : states["data"]["result"].array_range()) {
                seen[series["metric"]["id"].as<std::string>()].insert(
                    series["metric"]["instance"].as<std::string>());
            }
            const auto up = json::parse(get(web, "/api/v1/query?query=up%3D%3D1"));
            for (const auto& series : up["data"]["result"].array_range())
                instances.insert(series["metric"]["instance"].as<std::string>());
            return instances.size() == 2 && seen.size() >= sensors;
        },
        std::chrono::seconds(60));
    kill(server, SIGTERM);
    support::wait_for_exit(server, 10000);
    ASSERT_TRUE(complete) << support::read_text(dir_.path("prometheus.log"));
    for (int id = 1; id <= sensors; ++id) {
        EXPECT_EQ(seen[std::to_string(id)].size(), 1u) << "sensor " << id;
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(sensors));
    for (auto& shard : shards) {
        shard->signal(SIGTERM);
        EXPECT_EQ(shard->finish().exit_code, 0);
    }
}

TEST(operations_cli_test, version_and_journal_lines) {
    const auto version = probe_test::run({"--version"});
    EXPECT_EQ(version.exit_code, 0) << version.err;
    EXPECT_TRUE(version.out.starts_with("tavo-probe ")) << version.out;
    EXPECT_NE(version.out.find(", API level "), std::string::npos) << version.out;

    const auto missing = probe_test::run({"--module", "/nonexistent.so", "--version"});
    EXPECT_EQ(missing.exit_code, 3);
    EXPECT_TRUE(missing.out.starts_with("tavo-probe ")) << "its own version first";

    const struct {
        std::vector<std::string> args;
        std::string err;  // stderr starts with it
    } rows[] = {
        {{"--log-format", "journal", "run", "/nonexistent.yaml"}, "<3>tavo-probe: "},
        {{"--log-format", "plain", "run", "/nonexistent.yaml"}, "tavo-probe: "},
        {{"run", "/nonexistent.yaml"}, "tavo-probe: "},  // stderr is a pipe, not the journal
    };
    for (const auto& row : rows) {
        const auto o = probe_test::run(row.args);
        EXPECT_EQ(o.exit_code, 3);
        EXPECT_TRUE(o.err.starts_with(row.err)) << o.err;
        EXPECT_EQ(o.err.find('\n'), o.err.size() - 1) << "one line: " << o.err;
    }
}

}  // namespace
