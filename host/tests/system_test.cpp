// tavo-probe with the real libMQTT.so against a local mosquitto.
#include <gtest/gtest.h>
#include <algorithm>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <regex>

#include "host/tests/probe_process.h"
#include "tests/support/fault_proxy.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/mqtt_peer.h"
using broker_type = corvanis::monitoring_modules::test_support::mosquitto_broker;

namespace {

using probe_test::outcome;

class system_test : public ::testing::Test {
  protected:
    broker_type broker;
    const probe_test::scratch dir;

    std::vector<std::string> at_broker(std::vector<std::string> args) const {
        args.insert(args.end(),
                    {"--set", "host=" + broker.host(), "--set",
                     "credentials.connection_mqtt.port=" + std::to_string(broker.port())});
        return args;
    }

    // A configuration whose defaults point at the broker.
    std::string broker_config(const std::string& sensors) const {
        return dir.file("probe.yaml", "defaults:\n  host: " + broker.host() +
                                          "\n  credentials.connection_mqtt.port: " +
                                          std::to_string(broker.port()) + "\n" + sensors);
    }

    // The sensor's own banner when tavo-probe destroys it (needs --log-level 7).
    static bool destroyed(const outcome& o, int id) {
        return std::regex_search(
            o.err, std::regex("sensor " + std::to_string(id) + " debug: #+ Cleaning Up "));
    }
};

// A reading kept across restarts through --state is proven by the counter test below.
TEST_F(system_test, a_delivered_notification_shows_its_log_lines_only_at_the_debug_level) {
    const auto sent = probe_test::run(
        at_broker({"notify", "--target", "sys/boiler", "--message", R"({"temperature": 21.5})"}));
    ASSERT_EQ(sent.exit_code, 0) << sent.err << sent.out;
    EXPECT_EQ(sent.out.find("send_notification"), std::string::npos) << sent.out;
    const auto told = probe_test::run(at_broker(
        {"--log-level", "7", "notify", "--json", "--target", "sys/other", "--message", "x"}));
    EXPECT_FALSE(told.json_lines().at(0)["lines"].empty()) << told.out;
}

using corvanis::monitoring_modules::test_support::mqtt_peer;
using strings = std::vector<std::string>;

const std::string sc = "subscribe_custom.connection_subscribe_custom.";

strings plus(strings a, const strings& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The channel of a JSON result by name.
jsoncons::json channel(const jsoncons::json& result, const std::string& name) {
    for (const auto& c : result["channels"].array_range()) {
        if (c["name"].as<std::string>() == name) return c;
    }
    ADD_FAILURE() << "no channel " << name << " in " << result.to_string();
    return jsoncons::json();
}

TEST_F(system_test, every_result_has_a_state_and_the_exit_code_is_the_plugin_convention) {
    const strings boiler = {"--set", sc + "topic=never/published",
                            "--set", sc + "channel1_jsonpath=$.t",
                            "--set", sc + "channel1_name=T"};
    const struct {
        strings args;
        int exit_code;
        std::string state;    // of the printed result; empty: none printed
        std::string message;  // a part of the message, or of stderr when nothing is printed
    } cases[] = {
        {{"scan", "roundtrip_sensor"}, 0, "ok", ""},
        {{"scan", "roundtrip_sensor", "--limit", "Round Trip Time:warning_max=-1"},
         1,
         "warning",
         "Round Trip Time = "},
        {{"scan", "roundtrip_sensor", "--limit", "Round Trip Time:warning_max=-2", "--limit",
          "Round Trip Time:error_max=-1"},
         2,
         "error",
         "is above error_max -1"},
        {plus({"scan", "subscribe_custom_sensor", "--wait", "0.2"}, boiler), 3, "unknown",
         "no message received yet on never/published"},
        {{"scan", "statistics_sensor", "--set", "statistics.connection_statistics.topic=a/#/b"},
         3,
         "",
         "sensor 1 (statistics_sensor) could not be created: The provided topic 'a/#/b' is "
         "invalid."},
    };
    for (const auto& c : cases) {
        // The last --set of a key wins, so a case may point elsewhere than the broker.
        auto args = at_broker({c.args.begin(), c.args.begin() + 2});
        args.insert(args.end(), c.args.begin() + 2, c.args.end());
        args.push_back("--json");
        const auto o = probe_test::run(args);
        EXPECT_EQ(o.exit_code, c.exit_code) << c.args.at(1) << "\n" << o.out << o.err;
        if (c.state.empty()) {
            EXPECT_EQ(o.out, "");
            EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
            continue;
        }
        const auto lines = o.json_lines();
        ASSERT_EQ(lines.size(), 1u) << o.out << o.err;
        EXPECT_EQ(lines[0]["state"].as<std::string>(), c.state) << o.out;
        const auto text =
            lines[0]["message"].is_null() ? "" : lines[0]["message"]["text"].as<std::string>();
        EXPECT_NE(text.find(c.message), std::string::npos) << o.out;
    }
}

TEST_F(system_test, counters_show_their_change_across_restarts_and_nothing_after_a_reset) {
    const auto config = broker_config(R"(sensors:
  - id: 3
    name: Boiler
    kind: subscribe_custom_sensor
    settings:
      subscribe_custom.connection_subscribe_custom.topic: sys/counter
      subscribe_custom.connection_subscribe_custom.channel1_jsonpath: $.starts
      subscribe_custom.connection_subscribe_custom.channel1_name: Starts
      subscribe_custom.connection_subscribe_custom.channel1_type: delta_counter
)");
    const auto state = dir.path("state.db");
    mqtt_peer peer(broker);
    const struct {
        int reading;
        std::optional<int> shown;
    } readings[] = {{136, std::nullopt}, {146, 10}, {155, 9}, {3, std::nullopt}, {5, 2}};
    for (const auto& r : readings) {
        // Retained, so that each new tavo-probe finds the latest reading at once.
        peer.publish("sys/counter", "{\"starts\": " + std::to_string(r.reading) + "}", 1, true);
        const auto o = probe_test::run({"scan", "subscribe_custom_sensor", "--id", "3", "--config",
                                        config, "--state", state, "--wait", "1", "--json"});
        ASSERT_EQ(o.exit_code, 0) << o.err << o.out;
        const auto result = o.json_lines().at(0);
        EXPECT_EQ(result["name"].as<std::string>(), "Boiler");
        EXPECT_GE(result["collected_s"].as<double>(), 1.0);
        const auto starts = channel(result, "Starts");
        EXPECT_EQ(starts["raw"].as<int>(), r.reading) << o.out;
        if (r.shown) {
            EXPECT_EQ(starts["value"].as<int>(), *r.shown) << o.out;
        } else {
            EXPECT_TRUE(starts["value"].is_null()) << o.out;
        }
    }
}

TEST_F(system_test, run_keeps_going_past_sensors_that_fail_and_says_when_one_goes_quiet) {
    const auto config = broker_config(R"(sensors:
  - id: 1
    kind: statistics_sensor
    interval: 1
    settings:
      statistics.connection_statistics.topic: a/#/b
  - id: 2
    name: nowhere
    kind: roundtrip_sensor
    interval: 1
    settings:
      timeout: 1
      credentials.connection_mqtt.port: 1
  - id: 3
    name: quiet
    kind: statistics_sensor
    interval: 1
    stale_after: 1
    settings:
      statistics.connection_statistics.topic: sys/quiet/#
  - id: 4
    kind: subscribe_custom_sensor
    interval: 1
    settings:
      subscribe_custom.connection_subscribe_custom.topic: sys/once
      subscribe_custom.connection_subscribe_custom.channel1_jsonpath: $.v
      subscribe_custom.connection_subscribe_custom.channel1_name: V
)");
    mqtt_peer(broker).publish("sys/once", "{\"v\": 7}", 1, true);
    const auto o = probe_test::run({"run", config, "--seconds", "4", "--json"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    std::map<int, std::vector<jsoncons::json>> results;
    for (const auto& r : o.json_lines()) results[r["sensor_id"].as<int>()].push_back(r);
    ASSERT_GE(results[1].size(), 2u) << o.out;
    for (const auto& r : results[1]) {
        EXPECT_EQ(r["state"].as<std::string>(), "error");
        EXPECT_EQ(r["message"]["key"].as<std::string>(), "error.invalid_topic");
    }
    ASSERT_GE(results[2].size(), 1u) << o.out;
    EXPECT_EQ(results[2][0]["name"].as<std::string>(), "nowhere");
    EXPECT_EQ(results[2][0]["message"]["key"].as<std::string>(), "error.connection_refused_at");
    ASSERT_GE(results[3].size(), 2u) << o.out;
    EXPECT_EQ(results[3].front()["state"].as<std::string>(), "ok") << o.out;
    EXPECT_EQ(results[3].back()["state"].as<std::string>(), "error") << o.out;
    EXPECT_EQ(
        results[3].back()["message"]["text"].as<std::string>().rfind("no message since 20", 0), 0u)
        << o.out;
    // One message, then nothing new: unknown, and saying since when rather than "not yet".
    const auto valued = std::find_if(results[4].begin(), results[4].end(),
                                     [](const auto& r) { return !r["channels"].empty(); });
    ASSERT_TRUE(valued != results[4].end() && valued + 1 != results[4].end()) << o.out;
    EXPECT_EQ(channel(*valued, "V")["value"].as<int>(), 7) << o.out;
    EXPECT_EQ(results[4].back()["state"].as<std::string>(), "unknown") << o.out;
    EXPECT_EQ(results[4].back()["message"]["text"].as<std::string>().rfind(
                  "no new message on sys/once since 20", 0),
              0u)
        << o.out;
}

TEST_F(system_test, sensors_are_checked_and_created_side_by_side) {
    // A few are enough to show it; each takes its timeout in the module.
    constexpr int silent_sensors = 5;
    corvanis::monitoring_modules::test_support::fault_proxy silent(broker.host(),
                                                                   static_cast<int>(broker.port()));
    silent.silent();
    std::string sensors = "sensors:\n";
    for (int id = 1; id <= silent_sensors; ++id) {
        sensors += "  - id: " + std::to_string(id) +
                   "\n    kind: statistics_sensor\n    settings:\n"
                   "      timeout: 1\n      statistics.connection_statistics.topic: t/" +
                   std::to_string(id) +
                   "\n      credentials.connection_mqtt.port: " + std::to_string(silent.port()) +
                   "\n";
    }
    sensors += "  - id: 99\n    kind: roundtrip_sensor\n";
    probe_test::child running({"--log-level", "7", "run", broker_config(sensors), "--json"});
    ASSERT_TRUE(running.wait_for_output("\"sensor_id\":")) << running.finish().err;
    running.signal(SIGTERM);
    const auto o = running.finish();
    EXPECT_EQ(o.exit_code, 0) << o.err;
    EXPECT_TRUE(destroyed(o, 99)) << o.err;
    // Every required check was under way before the first one ended: none waits for another
    // on the host's side.
    const auto first_end = o.err.find("### End execute_check ###");
    ASSERT_NE(first_end, std::string::npos) << o.err;
    const std::string before = o.err.substr(0, first_end);
    int begun = 0;
    for (auto at = before.find("### Begin execute_check ###"); at != std::string::npos;
         at = before.find("### Begin execute_check ###", at + 1)) {
        ++begun;
    }
    EXPECT_EQ(begun, silent_sensors + 1) << o.err;
}

TEST(system_demo_test, the_demo_shows_every_sensor_the_check_and_the_notification) {
    const auto o = probe_test::run({"demo", "--seconds", "10", "--json"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    std::map<std::string, int> good;
    for (const auto& r : o.json_lines()) {
        const auto type = r["type"].as<std::string>();
        if (type == "scan_result" && !r["error"].as<bool>()) ++good[r["kind"].as<std::string>()];
        if (type != "scan_result" && r["success"].as<bool>()) ++good[type];
    }
    for (const auto* kind : {"statistics_sensor", "subscribe_custom_sensor", "roundtrip_sensor",
                             "check_result", "notification_response"}) {
        EXPECT_GE(good[kind], 1) << kind << "\n" << o.out << o.err;
    }
}

// Quitting at once must not leave an anonymous broker listening, nor its files.
TEST(system_demo_test, a_second_signal_still_stops_the_broker_and_removes_its_directory) {
    const probe_test::scratch temp;
    std::optional<probe_test::environment_variable> tmpdir(std::in_place, "TMPDIR",
                                                           temp.path("").c_str());
    probe_test::child demo({"demo", "--json"});
    tmpdir.reset();
    // Entries of the demo's own, beside the directory that holds the child's output.
    const auto demo_entries = [&] {
        int n = 0;
        for (const auto& e : std::filesystem::directory_iterator(temp.path("")))
            n += !e.path().filename().string().starts_with("tavo-probe-test-");
        return n;
    };
    ASSERT_TRUE(demo.wait_for_output("\"scan_result\""));
    ASSERT_GT(demo_entries(), 0);
    // Two different signals: two of one kind may merge into one before they are taken.
    demo.signal(SIGINT);
    demo.signal(SIGTERM);
    const auto o = demo.finish();
    EXPECT_EQ(o.exit_code, 130) << o.err;
    std::smatch port;
    ASSERT_TRUE(std::regex_search(o.err, port, std::regex("listening on 127.0.0.1:(\\d+)")));
    EXPECT_EQ(demo_entries(), 0) << "left behind in " << temp.path("");
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port[1])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_NE(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0)
        << "the broker still listens";
    close(fd);
}

}  // namespace
