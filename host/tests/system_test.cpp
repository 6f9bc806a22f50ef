// tavo-probe with the real libMQTT.so against a local mosquitto.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <regex>

#include "host/local_broker.h"
#include "host/tests/probe_process.h"

#if defined(HOST_TEST_SUPPORT)
#include "tests/support/mosquitto_broker.h"
using broker_type = corvanis::monitoring_modules::test_support::mosquitto_broker;
#else
using broker_type = corvanis::monitoring_modules::host::local_broker;
#endif

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

TEST_F(system_test,
       a_published_reading_reaches_the_subscribe_custom_sensor_and_survives_a_restart) {
    const auto config = broker_config(R"(sensors:
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
        probe_test::child running({"--log-level", "7", "run", config, "--state", state, "--json"});
        ASSERT_TRUE(running.wait_for_output("\"sensor_id\":4"));
        // The notification service publishes the reading the sensor waits for.
        const auto sent = probe_test::run(at_broker(
            {"notify", "--target", "sys/boiler", "--message", R"({"temperature": 21.5})"}));
        ASSERT_EQ(sent.exit_code, 0) << sent.err << sent.out;
        // A delivered notification keeps its own log lines for --log-level 7.
        EXPECT_EQ(sent.out.find("send_notification"), std::string::npos) << sent.out;
        const auto told = probe_test::run(at_broker(
            {"--log-level", "7", "notify", "--json", "--target", "sys/other", "--message", "x"}));
        EXPECT_FALSE(told.json_lines().at(0)["lines"].empty()) << told.out;
        EXPECT_TRUE(running.wait_for_output("\"value\":21.5"));
        running.signal(SIGTERM);
        const auto o = running.finish();
        EXPECT_EQ(o.exit_code, 0) << o.err;
        EXPECT_TRUE(destroyed(o, 4));
    }
    // No new reading: the first scan after the restart shows the kept one.
    const auto again = probe_test::run({"scan", "subscribe_custom_sensor", "--id", "4", "--config",
                                        config, "--state", state, "--json"});
    ASSERT_EQ(again.exit_code, 0) << again.err << again.out;
    const auto result = again.json_lines().at(0);
    double kept = 0;
    for (const auto& c : result["channels"].array_range()) {
        if (c["name"].as<std::string>() == "Temperature") kept = c["value"].as<double>();
    }
    EXPECT_EQ(kept, 21.5) << again.out;
}

TEST_F(system_test, check_succeeds_where_a_broker_listens) {
    const auto ok = probe_test::run(at_broker({"check", "--json"}));
    EXPECT_EQ(ok.exit_code, 0) << ok.err;
    EXPECT_EQ(ok.out, "{\"type\":\"check_result\",\"check_id\":1,\"success\":true}\n");
}

TEST_F(system_test, run_scans_two_sensors_each_on_its_interval) {
    const auto config = broker_config(R"(sensors:
  - id: 1
    kind: statistics_sensor
    interval: 1
    settings:
      statistics.connection_statistics.topic: "#"
  - id: 2
    kind: roundtrip_sensor
    interval: 60
)");
    const auto o =
        probe_test::run({"--log-level", "7", "run", config, "--seconds", "2.5", "--json"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    EXPECT_TRUE(destroyed(o, 1));
    EXPECT_TRUE(destroyed(o, 2));
    std::map<int, int> scans;
    for (const auto& r : o.json_lines()) {
        ++scans[r["sensor_id"].as<int>()];
        EXPECT_FALSE(r["error"].as<bool>()) << r.to_string();
    }
    EXPECT_GE(scans[1], 2);
    EXPECT_EQ(scans[2], 1);
}

TEST(system_demo_test, the_demo_shows_every_sensor_the_check_and_the_notification) {
    const auto o = probe_test::run({"demo", "--seconds", "7", "--json"});
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
    const char* old = std::getenv("TMPDIR");
    const std::string saved = old != nullptr ? old : "";
    setenv("TMPDIR", temp.path("").c_str(), 1);
    probe_test::child demo({"demo", "--json"});
    old != nullptr ? setenv("TMPDIR", saved.c_str(), 1) : unsetenv("TMPDIR");
    ASSERT_TRUE(demo.wait_for_output("\"scan_result\""));
    ASSERT_FALSE(std::filesystem::is_empty(temp.path("")));
    // Two different signals: two of one kind may merge into one before they are taken.
    demo.signal(SIGINT);
    demo.signal(SIGTERM);
    const auto o = demo.finish();
    EXPECT_EQ(o.exit_code, 130) << o.err;
    std::smatch port;
    ASSERT_TRUE(std::regex_search(o.err, port, std::regex("listening on 127.0.0.1:(\\d+)")));
    EXPECT_TRUE(std::filesystem::is_empty(temp.path(""))) << "left behind in " << temp.path("");
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
