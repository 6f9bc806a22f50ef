#include "host/config.h"

#include <gtest/gtest.h>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {
namespace {

// The layers themselves are proven end to end in cli_test; here, values as YAML writes them.
TEST(config_test, keeps_values_as_written) {
    const auto config = parse_config(R"(
defaults:
  credentials.user_credentials.active: yes
sensors:
  - id: 7
    kind: roundtrip_sensor
  - id: 3
    kind: subscribe_custom_sensor
    interval: 10
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
    EXPECT_TRUE(config.sensors[0].settings.empty());
    EXPECT_EQ(config.sensors[1].kind, "subscribe_custom_sensor");
    EXPECT_EQ(config.sensors[1].settings,
              (std::vector<setting_pair>{
                  {"interval", "10"},
                  {"subscribe_custom.connection_subscribe_custom.message_path", ""},
                  {"credentials.tls.ca_certificate",
                   "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n"}}));
    EXPECT_EQ(config.find_sensor(3), &config.sensors[1]);
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

}  // namespace
}  // namespace corvanis::monitoring_modules::host
