#include "host/config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {
namespace {

// The layers themselves are proven end to end in cli_test; here, values as YAML writes them,
// and what belongs to one sensor only.
TEST(config_test, keeps_values_as_written_and_each_sensors_own) {
    const auto config = parse_config(R"(
defaults:
  credentials.user_credentials.active: yes
sensors:
  - id: 7
    kind: roundtrip_sensor
  - id: 3
    kind: subscribe_custom_sensor
    interval: 10
    name: Boiler
    stale_after: 90
    limits:
      Temperature: {warning_max: 80, error_max: 95.5}
      Pressure: {error_min: -1e-3}
    settings:
      subscribe_custom.connection_subscribe_custom.message_path:
      credentials.tls.ca_certificate: |
        -----BEGIN CERTIFICATE-----
        MIIB
        -----END CERTIFICATE-----
)",
                                     "plant.yaml");
    EXPECT_EQ(config.defaults,
              (std::vector<setting_pair>{{"credentials.user_credentials.active", "yes"}}));
    ASSERT_EQ(config.sensors.size(), 2u);
    const auto& plain = config.sensors[0];
    EXPECT_TRUE(plain.settings.empty() && plain.name.empty() && plain.limits.empty() &&
                !plain.stale_after);
    const auto& boiler = config.sensors[1];
    EXPECT_EQ(boiler.kind, "subscribe_custom_sensor");
    EXPECT_EQ(boiler.name, "Boiler");
    EXPECT_EQ(boiler.location, "plant.yaml:7");
    EXPECT_EQ(boiler.stale_after, std::chrono::seconds(90));
    ASSERT_EQ(boiler.limits.size(), 2u);
    const auto& temperature = boiler.limits.at("Temperature");
    EXPECT_EQ(temperature.warning_max, 80.0);
    EXPECT_EQ(temperature.error_max, 95.5);
    EXPECT_FALSE(temperature.warning_min || temperature.error_min);
    EXPECT_EQ(boiler.limits.at("Pressure").error_min, -0.001);
    EXPECT_EQ(boiler.settings,
              (std::vector<setting_pair>{
                  {"interval", "10"},
                  {"subscribe_custom.connection_subscribe_custom.message_path", ""},
                  {"credentials.tls.ca_certificate",
                   "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n"}}));
    EXPECT_EQ(config.find_sensor(3), &boiler);
    EXPECT_EQ(config.find_sensor(2), nullptr);
}

TEST(config_test, faults_are_reported_with_file_and_line) {
    const struct {
        const char* yaml;
        const char* error;
    } cases[] = {
        {"sensors:\n  - id: 1\n    kind: a\n  - id: 1\n    kind: b\n", "c.yaml:4: id 1 used twice"},
        {"sensors:\n  - id: 1\n", "c.yaml:2: sensor 1 needs a kind:"},
        {"sensors:\n  - kind: a\n", "c.yaml:2: a sensor needs an id:"},
        {"sensors:\n  - id: 0\n    kind: a\n", "c.yaml:2: id must be at least 1"},
        {"sensors:\n  - id: one\n    kind: a\n", "id must be a whole number, not \"one\""},
        {"sensors:\n  - id: 1\n    kind: a\n    interval: 0\n",
         "c.yaml:4: interval must be at least 1"},
        {"sensors:\n  - id: 1\n    kind: a\n    interval: 5\n    settings:\n      interval: 6\n",
         "sensor 1 has interval: and settings.interval"},
        {"sensors:\n  - id: 1\n    kind: a\n    intervall: 5\n",
         "c.yaml:4: unknown key \"intervall\" in a sensor"},
        {"default:\n  host: x\n", "c.yaml:1: unknown key \"default\" in the configuration"},
        {"defaults:\n  - host\n", "defaults must be a map of KEY: VALUE"},
        {"defaults:\n  host: [a, b]\n", "setting \"host\" must be a single value"},
        {"sensors:\n  id: 1\n", "sensors must be a list"},
        {"sensors: [\n", "c.yaml:2: not valid YAML"},
        {"- a\n- b\n", "the configuration must be a map"},
        {"defaults:\n  host: a\n  port: 1\n  host: b\n", "c.yaml:4: duplicate key \"host\""},
        {"defaults:\n  a.b.c: 1\n  a:\n    b: {c: 2}\n",
         "c.yaml:4: setting \"a.b.c\" given twice (first at c.yaml:2)"},
        {"sensors:\n  - id: 1\n    kind: a\n    kind: b\n", "c.yaml:4: duplicate key \"kind\""},
        {"defaults:\n  x: 1\ndefaults:\n  y: 2\n", "c.yaml:3: duplicate key \"defaults\""},
        {"defaults:\n  host: ${NOT_SET_ANYWHERE}\n",
         "c.yaml:2: setting \"host\": environment variable NOT_SET_ANYWHERE is not set"},
        {"defaults:\n  host: ${HOST\n", "c.yaml:2: setting \"host\": \"${\" without its \"}\""},
        {"defaults:\n  password_file: /nonexistent/pw\n",
         "c.yaml:2: setting \"password\": cannot read \"/nonexistent/pw\""},
        {"sensors:\n  - {id: 1, kind: a, name: boiler}\n  - {id: 2, kind: a, name: boiler}\n",
         "c.yaml:3: name \"boiler\" used twice (first at c.yaml:2)"},
        {"sensors:\n  - id: 1\n    kind: a\n    stale_after: 0\n",
         "c.yaml:4: stale_after must be at least 1"},
        {"sensors:\n  - id: 1\n    kind: a\n    limits:\n      Temp: {warn_max: 5}\n",
         "c.yaml:5: unknown key \"warn_max\" in the limits of \"Temp\""},
        {"sensors:\n  - id: 1\n    kind: a\n    limits:\n      Temp: {error_max: hot}\n",
         "limit error_max of \"Temp\" must be a number, not \"hot\""},
        {"sensors:\n  - id: 1\n    kind: a\n    limits:\n      Temp: {warning_min: 9, "
         "warning_max: 1}\n",
         "c.yaml:5: limits of \"Temp\": warning_min above its max"},
        {"sensors:\n  - id: 1\n    kind: a\n    limits: [Temp]\n",
         "sensor 1 limits: must map a channel name to its limits"},
    };
    for (const auto& c : cases) {
        try {
            parse_config(c.yaml, "c.yaml");
            ADD_FAILURE() << "accepted: " << c.yaml;
        } catch (const host_error& e) {
            EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
            EXPECT_EQ(e.code(), exit_setup_failed);
        }
    }
}

std::optional<std::string> fake_environment(const std::string& name) {
    if (name == "PROBE_USER") return "probe";
    if (name == "EMPTY") return "";
    return std::nullopt;
}

// Every form a person may write yields the same flat settings.
TEST(config_test, nested_maps_environment_and_files_flatten_to_the_same_settings) {
    const auto dir =
        std::filesystem::temp_directory_path() / ("config_test_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "port.txt") << "1883\n";
    const struct {
        std::string yaml;
        std::vector<setting_pair> settings;
    } cases[] = {
        {"credentials.connection_mqtt.port: 1883", {{"credentials.connection_mqtt.port", "1883"}}},
        {"credentials: {connection_mqtt: {port: 1883}}",
         {{"credentials.connection_mqtt.port", "1883"}}},
        {"credentials:\n  connection_mqtt.port: 1883\n  tls:\n    active: \"no\"",
         {{"credentials.connection_mqtt.port", "1883"}, {"credentials.tls.active", "no"}}},
        {"port_file: port.txt", {{"port", "1883"}}},
        {"port_file: " + (dir / "port.txt").string(), {{"port", "1883"}}},
        {"user: ${PROBE_USER}", {{"user", "probe"}}},
        {"user: a-${PROBE_USER}-${EMPTY}-b", {{"user", "a-probe--b"}}},
        {"topic: $${PROBE_USER}/$$x/$", {{"topic", "${PROBE_USER}/$$x/$"}}},
        {"credentials: {user_credentials: {user: \"${PROBE_USER}\"}}",
         {{"credentials.user_credentials.user", "probe"}}},
    };
    for (const auto& c : cases) {
        const auto config =
            parse_config("sensors:\n  - id: 1\n    kind: k\n    settings:\n      " +
                             std::regex_replace(c.yaml, std::regex("\n"), "\n      "),
                         "c.yaml", fake_environment, dir.string());
        EXPECT_EQ(config.sensors.at(0).settings, c.settings) << c.yaml;
        for (const auto& [key, value] : c.settings)
            EXPECT_EQ(config.sensors[0].where.at(key).substr(0, 7), "c.yaml:") << key;
    }
    std::filesystem::remove_all(dir);
}

TEST(config_test, setting_files_lose_one_line_end_only_when_they_hold_one_line) {
    const auto path =
        std::filesystem::temp_directory_path() / ("setting_" + std::to_string(getpid()));
    const struct {
        std::string content;
        std::string value;
    } cases[] = {
        {"s3cret\n", "s3cret"},
        {"s3cret", "s3cret"},
        {"s3cret\n\n", "s3cret\n\n"},
        {"\n", ""},
        {"-----BEGIN X-----\nAA==\n-----END X-----\n",
         "-----BEGIN X-----\nAA==\n-----END X-----\n"},
    };
    for (const auto& c : cases) {
        std::ofstream(path, std::ios::binary) << c.content;
        EXPECT_EQ(read_setting_file(path.string()), c.value);
    }
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
