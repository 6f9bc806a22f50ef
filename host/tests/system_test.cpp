// tavo-probe with the real libMQTT.so against a local mosquitto.
#include <gtest/gtest.h>

#include <jsoncons/json.hpp>

#include "host/local_broker.h"
#include "host/tests/probe_process.h"

#if defined(HOST_TEST_SUPPORT)
#include "tests/support/mosquitto_broker.h"
using broker_type = corvanis::monitoring_modules::test_support::mosquitto_broker;
#else
using broker_type = corvanis::monitoring_modules::host::local_broker;
#endif

namespace {

using jsoncons::json;
using probe_test::outcome;

class system_test : public ::testing::Test {
  protected:
    broker_type broker;

    std::vector<std::string> at_broker(std::vector<std::string> args) const {
        args.insert(args.end(),
                    {"--set", "host=" + broker.host(), "--set",
                     "credentials.connection_mqtt.port=" + std::to_string(broker.port())});
        return args;
    }

    static std::vector<json> results(const outcome& o) {
        std::vector<json> out;
        for (const auto& line : o.out_lines()) out.push_back(json::parse(line));
        return out;
    }

    static const json* channel(const json& result, const std::string& name) {
        for (const auto& c : result["channels"].array_range()) {
            if (c["name"].as<std::string>() == name) return &c;
        }
        return nullptr;
    }

    // Until every kind has landed in the module, scans of a missing one are skipped.
    static bool kind_missing(const outcome& o) {
        return o.err.find("Unknown sensor kind") != std::string::npos;
    }
};

TEST_F(system_test, scans_of_each_sensor_report_their_channels) {
    const struct {
        std::string kind;
        std::vector<std::string> settings;
        std::string channel;
    } cases[] = {
        {"statistics_sensor",
         {"--set", "statistics.connection_statistics.topic=plant/#"},
         "Messages Received"},
        {"roundtrip_sensor", {}, "Round Trip Time"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"scan", c.kind, "--json"};
        args.insert(args.end(), c.settings.begin(), c.settings.end());
        const auto o = probe_test::run(at_broker(args));
        if (kind_missing(o)) continue;
        ASSERT_EQ(o.exit_code, 0) << c.kind << "\n" << o.err << o.out;
        const auto r = results(o).at(0);
        EXPECT_FALSE(r["error"].as<bool>()) << o.out;
        EXPECT_NE(channel(r, c.channel), nullptr) << o.out;
    }
}

TEST_F(system_test,
       a_published_reading_reaches_the_subscribe_custom_sensor_and_survives_a_restart) {
    const probe_test::scratch dir;
    const auto config = dir.file("boiler.yaml", "defaults:\n  host: " + broker.host() +
                                                    "\n  credentials.connection_mqtt.port: " +
                                                    std::to_string(broker.port()) + R"(
sensors:
  - id: 4
    kind: subscribe_custom_sensor
    interval: 1
    settings:
      subscribe_custom.connection_subscribe_custom.topic: sys/boiler
      subscribe_custom.connection_subscribe_custom.retain_last_message: retain
      subscribe_custom.connection_subscribe_custom.channel1_jsonpath: $.temperature
      subscribe_custom.connection_subscribe_custom.channel1_name: Temperature
      subscribe_custom.connection_subscribe_custom.channel1_unit: C
)");
    const auto state = dir.path("state.db");
    {
        probe_test::child running({"run", config, "--state", state, "--json"});
        if (!running.wait_for_output("\"sensor_id\":4")) {
            const auto ended = running.finish();
            if (kind_missing(ended))
                GTEST_SKIP() << "subscribe_custom_sensor is not in the module yet";
            FAIL() << ended.err;
        }
        // The notification service publishes the reading the sensor waits for.
        const auto sent = probe_test::run(at_broker(
            {"notify", "--target", "sys/boiler", "--message", R"({"temperature": 21.5})"}));
        ASSERT_EQ(sent.exit_code, 0) << sent.err << sent.out;
        EXPECT_TRUE(running.wait_for_output("\"value\":21.5"));
        running.signal(SIGTERM);
        const auto o = running.finish();
        EXPECT_EQ(o.exit_code, 0) << o.err;
    }
    // No new reading: the first scan after the restart shows the kept one.
    const auto again = probe_test::run({"scan", "subscribe_custom_sensor", "--id", "4", "--config",
                                        config, "--state", state, "--json"});
    ASSERT_EQ(again.exit_code, 0) << again.err << again.out;
    const auto first = results(again).at(0);
    const auto* temperature = channel(first, "Temperature");
    ASSERT_NE(temperature, nullptr) << again.out;
    EXPECT_EQ((*temperature)["value"].as<double>(), 21.5);
}

TEST_F(system_test, check_succeeds_only_where_a_broker_listens) {
    const auto ok = probe_test::run(at_broker({"check", "--json"}));
    EXPECT_EQ(ok.exit_code, 0) << ok.err;
    EXPECT_EQ(ok.out, "{\"type\":\"check_result\",\"check_id\":1,\"success\":true}\n");
    const auto closed_port = std::to_string(corvanis::monitoring_modules::host::free_local_port());
    const auto refused =
        probe_test::run({"check", "--json", "--set",
                         "credentials.connection_mqtt.port=" + closed_port, "--set", "timeout=2"});
    EXPECT_EQ(refused.exit_code, 2) << refused.err << refused.out;
}

TEST_F(system_test, run_scans_two_sensors_each_on_its_interval) {
    const probe_test::scratch dir;
    const auto config = dir.file("two.yaml", "defaults:\n  host: " + broker.host() +
                                                 "\n  credentials.connection_mqtt.port: " +
                                                 std::to_string(broker.port()) + R"(
sensors:
  - id: 1
    kind: statistics_sensor
    interval: 1
    settings:
      statistics.connection_statistics.topic: "#"
  - id: 2
    kind: roundtrip_sensor
    interval: 60
)");
    const auto o = probe_test::run({"run", config, "--seconds", "2.5", "--json"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    std::map<int, int> scans;
    for (const auto& r : results(o)) {
        ++scans[r["sensor_id"].as<int>()];
        EXPECT_FALSE(r["error"].as<bool>()) << r.to_string();
    }
    EXPECT_GE(scans[1], 2);
    EXPECT_EQ(scans[2], 1);
}

TEST(system_demo_test, the_demo_shows_every_sensor_the_check_and_the_notification) {
    const auto o = probe_test::run({"demo", "--seconds", "7", "--json"});
    if (o.err.find("Unknown sensor kind") != std::string::npos)
        GTEST_SKIP() << "a sensor kind is missing";
    ASSERT_EQ(o.exit_code, 0) << o.err;
    std::map<std::string, int> good;
    for (const auto& line : o.out_lines()) {
        const auto r = json::parse(line);
        const auto type = r["type"].as<std::string>();
        if (type == "scan_result" && !r["error"].as<bool>()) ++good[r["kind"].as<std::string>()];
        if (type != "scan_result" && r["success"].as<bool>()) ++good[type];
    }
    for (const auto* kind : {"statistics_sensor", "subscribe_custom_sensor", "roundtrip_sensor",
                             "check_result", "notification_response"}) {
        EXPECT_GE(good[kind], 1) << kind << "\n" << o.out << o.err;
    }
}

}  // namespace
