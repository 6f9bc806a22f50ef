// tavo-probe end to end with the real module and no broker: the command-line contract that
// scripts rely on (exit codes, reasons on stderr, JSON lines, settings layers, secrets).
#include <gtest/gtest.h>

#include <jsoncons/json.hpp>

#include "host/tests/probe_process.h"

namespace {

using jsoncons::json;
using probe_test::outcome;
using probe_test::run;
using probe_test::settings_seen;
using strings = std::vector<std::string>;

// Nothing listens on port 1, so every connection is refused at once.
const strings no_broker = {"--set", "credentials.connection_mqtt.port=1"};
const std::string refused =
    "The connection to 127.0.0.1:1 was refused: nothing listens on that port.";

strings operator+(strings a, const strings& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(cli_test, setup_faults_exit_with_their_code_and_reason) {
    const struct {
        strings args;
        int exit_code;
        std::string err;  // a part of stderr
    } cases[] = {
        {{"scan", "nope_sensor"},
         3,
         "unknown sensor kind \"nope_sensor\"; the module offers: roundtrip_sensor, "
         "statistics_sensor, subscribe_custom_sensor"},
        {{"scan", "roundtrip_sensor", "--set", "novalue"}, 3, "expected KEY=VALUE"},
        {{"scan", "roundtrip_sensor", "--config", "/nonexistent/probe.yaml"},
         3,
         "cannot read the configuration"},
        {{"notify", "--target", "t", "--message", "m", "--set", "interval=5"},
         3,
         "unknown setting \"interval\""},
        {{"notify", "--target", "t", "--message", "m", "--set", "connection.port=-1"},
         3,
         "setting \"connection.port\" = \"-1\": below the minimum 0"},
        {{"describe", "--lang", "Klingon"},
         3,
         "no texts in \"Klingon\"; the module has: Russian (ru),"},
        {{"--module", "/nonexistent/libNothing.so", "describe"}, 3, "cannot load the module"},
        {{"--module", NOT_A_MODULE_PATH, "describe"}, 3, "does not export GetApiLevel"},
        {{"scan"}, 3, "KIND is required"},
        {{"--log-level", "9", "describe"}, 3, "--log-level"},
        {{"scan", "roundtrip_sensor", "--limit", "Status:max=1"}, 3, "unknown limit \"max\""},
        {{"scan", "roundtrip_sensor", "--format", "xml"}, 3, "--format"},
        {{"describe", "--log-level", "9"}, 3, "--log-level"},
        {{"describe", "nope_sensor"}, 3, "nothing to describe called \"nope_sensor\""},
        {{"validate", "/nonexistent/probe.yaml"}, 3, "cannot read the configuration"},
    };
    for (const auto& c : cases) {
        const auto o = run(c.args);
        EXPECT_EQ(o.exit_code, c.exit_code) << c.args.at(1) << "\n" << o.err;
        EXPECT_NE(o.err.find(c.err), std::string::npos) << o.err;
    }
}

TEST(cli_test, failures_exit_2_with_the_message_key_in_json_lines_tables_or_status_lines) {
    // The required connect check fails before the sensor is created, at every scan.
    const auto scans = run(strings{"scan", "roundtrip_sensor", "--id", "5", "--count", "2",
                                   "--interval", "0.01", "--json"} +
                           no_broker);
    EXPECT_EQ(scans.exit_code, 2) << scans.err;
    const auto lines = scans.json_lines();
    ASSERT_EQ(lines.size(), 2u) << scans.out;
    for (const auto& line : lines) {
        EXPECT_EQ(line["sensor_id"].as<int>(), 5);
        EXPECT_EQ(line["state"].as<std::string>(), "error");
        EXPECT_EQ(line["response_code"].as<int>(), 3);
        EXPECT_TRUE(line["error"].as<bool>());
        EXPECT_EQ(line["message"]["key"].as<std::string>(), "error.connection_refused_at");
    }
    // The failure is told once, in the result; the log lines only when asked for.
    EXPECT_EQ(scans.err.find(refused), std::string::npos) << scans.err;
    EXPECT_EQ(scans.err.find("debug"), std::string::npos) << scans.err;
    const auto logged = run(strings{"scan", "roundtrip_sensor", "--log-level", "4"} + no_broker);
    EXPECT_NE(logged.err.find("sensor 1 error: " + refused), std::string::npos) << logged.err;

    const auto table = run(strings{"scan", "roundtrip_sensor"} + no_broker);
    EXPECT_EQ(table.exit_code, 2);
    EXPECT_NE(table.out.find("  #1 MQTT Round Trip  ERROR\n    " + refused + "\n"),
              std::string::npos)
        << table.out;

    const auto status = run(strings{"scan", "roundtrip_sensor", "--format", "nagios"} + no_broker);
    EXPECT_EQ(status.exit_code, 2);
    EXPECT_EQ(status.out, "CRITICAL - MQTT Round Trip #1: " + refused + "\n");

    const auto unknown = run({"scan", "nope_sensor", "--format", "nagios"});
    EXPECT_EQ(unknown.exit_code, 3);
    EXPECT_EQ(unknown.out.rfind("UNKNOWN - unknown sensor kind \"nope_sensor\"", 0), 0u)
        << unknown.out;

    const auto check = run(strings{"check", "--json"} + no_broker);
    EXPECT_EQ(check.exit_code, 2);
    const auto result = check.json_lines().at(0);
    EXPECT_EQ(result["state"].as<std::string>(), "error");
    EXPECT_FALSE(result["success"].as<bool>());
    EXPECT_EQ(result["message"]["key"].as<std::string>(), "error.connection_refused_at");
    const auto check_status = run(strings{"check", "--format", "nagios"} + no_broker);
    EXPECT_EQ(check_status.exit_code, 2);
    EXPECT_EQ(check_status.out, "CRITICAL - mqtt_connect_check: " + refused + "\n");

    const auto notify =
        run(strings{"notify", "--target", "a/b", "--message", "hi", "--json"} + no_broker);
    EXPECT_EQ(notify.exit_code, 2);
    const auto response = notify.json_lines().at(0);
    EXPECT_EQ(response["type"].as<std::string>(), "notification_response");
    EXPECT_FALSE(response["success"].as<bool>());
    EXPECT_EQ(response["message"]["key"].as<std::string>(), "error.connection_refused_at");
}

TEST(cli_test, settings_reach_the_module_in_their_layers_and_secrets_stay_hidden) {
    const probe_test::scratch dir;
    const auto config = dir.file("probe.yaml", R"(
defaults:
  host: 127.0.0.2
  credentials.connection_mqtt.port: 1
  credentials.user_credentials.active: "no"
  credentials.user_credentials.user: default-user
  statistics.connection_statistics.topic: only/for/statistics
sensors:
  - id: 1
    kind: roundtrip_sensor
    interval: 7
    settings:
      credentials.user_credentials.active: "yes"
      credentials.user_credentials.user: sensor-user
check:
  settings:
    credentials.user_credentials.user: check-user
)");
    const auto password = dir.file("password.txt", "s3cret\n");
    const auto scan = run({"--log-level", "7", "scan", "roundtrip_sensor", "--config", config,
                           "--set", "credentials.user_credentials.user=cli-user", "--set-file",
                           "credentials.user_credentials.password=" + password});
    // Nothing listens, so the sensor's required check is what receives its settings.
    const auto seen = settings_seen(scan, "mqtt_connect_check");
    const std::map<std::string, std::string> expected = {
        {"credentials.tls.active", "no"},  // the document's default
        {"timeout", "10"},                 // tavo-probe's default
        {"host", "127.0.0.2"},
        {"credentials.user_credentials.active", "yes"},
        {"interval", "7"},
        {"credentials.user_credentials.user", "cli-user"},
        {"credentials.user_credentials.password", "********"},
    };
    for (const auto& [key, value] : expected) {
        EXPECT_EQ(seen.get_value_or<std::string>(key, ""), value) << key;
    }
    EXPECT_FALSE(seen.contains("statistics.connection_statistics.topic"));
    EXPECT_EQ((scan.out + scan.err).find("s3cret"), std::string::npos);

    const auto check = run({"--log-level", "7", "check", "--config", config});
    EXPECT_EQ(settings_seen(check, "mqtt_connect_check")["credentials.user_credentials.user"]
                  .as<std::string>(),
              "check-user");
}

TEST(cli_test, describe_finds_the_module_beside_the_program_and_speaks_the_asked_language) {
    const auto o = run({"describe"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    for (const auto* part :
         {"roundtrip_sensor  MQTT Round Trip", "statistics_sensor  MQTT Statistics",
          "subscribe_custom_sensor  MQTT Subscribe Custom", "mqtt_connect_check",
          "credentials.connection_mqtt.port  Port\n      default \"1883\"; whole number 1..65535",
          "credentials.user_credentials.password  Password\n      default \"\"; text; secret; "
          "used when credentials.user_credentials.active = yes",
          "statistics.connection_statistics.topic  Topic\n      required, no default; text",
          // A setting of the expanded channel template, with its dependency.
          "subscribe_custom.connection_subscribe_custom.channel10_scale_factor  Channel #10 Scale "
          "Factor\n      default \"1\"; number; used when "
          "subscribe_custom.connection_subscribe_custom.channel10 =\n      enable"}) {
        EXPECT_NE(o.out.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(json::parse(run({"describe", "--json"}).out)["Revision"].as<int>(), 68);
    // One kind when asked: its own settings and the shared ones, no other kind's.
    const auto german = run({"describe", "statistics_sensor", "--lang", "German"});
    EXPECT_EQ(german.exit_code, 0) << german.err;
    for (const auto* part :
         {"statistics_sensor  MQTT-Statistik", "statistics.connection_statistics.topic",
          "credentials.connection_mqtt.port"})
        EXPECT_NE(german.out.find(part), std::string::npos) << part;
    for (const auto* absent : {"roundtrip_sensor", "subscribe_custom", "mqtt_connect_check"})
        EXPECT_EQ(german.out.find(absent), std::string::npos) << absent;
}

}  // namespace
