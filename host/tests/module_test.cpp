// tavo-probe with the real libMQTT.so, found beside the program without --module.
#include <gtest/gtest.h>

#include <jsoncons/json.hpp>

#include "host/tests/probe_process.h"

namespace {

TEST(module_test, describe_finds_the_module_beside_the_program_and_lists_its_kinds) {
    const auto o = probe_test::run({"describe"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    for (const auto* part :
         {"roundtrip_sensor  MQTT Round Trip", "statistics_sensor  MQTT Statistics",
          "subscribe_custom_sensor  MQTT Subscribe Custom", "mqtt_connect_check",
          "credentials.connection_mqtt.port  Port", "statistics.connection_statistics.topic",
          "subscribe_custom.connection_subscribe_custom.channel10_scale_factor"}) {
        EXPECT_NE(o.out.find(part), std::string::npos) << part;
    }
    const auto document = jsoncons::json::parse(probe_test::run({"describe", "--json"}).out);
    EXPECT_EQ(document["Revision"].as<int>(), 68);
    const auto german = probe_test::run({"describe", "--lang", "German"});
    EXPECT_EQ(german.exit_code, 0) << german.err;
    EXPECT_NE(german.out.find("statistics_sensor  MQTT"), std::string::npos);
}

TEST(module_test, settings_are_checked_against_the_module_before_anything_is_created) {
    const struct {
        std::vector<std::string> args;
        std::string err;
    } cases[] = {
        {{"scan", "statistics_sensor"},
         "\"statistics.connection_statistics.topic\" (Topic) is required"},
        {{"scan", "roundtrip_sensor", "--set", "credentials.connection_mqtt.port=70000"},
         "above the maximum 65535"},
        {{"scan", "roundtrip_sensor", "--set", "port=1"},
         "did you mean \"credentials.connection_mqtt.port\""},
        {{"notify", "--target", "t", "--message", "m", "--set", "connection.port=-1"},
         "below the minimum 0"},
    };
    for (const auto& c : cases) {
        const auto o = probe_test::run(c.args);
        EXPECT_EQ(o.exit_code, 3) << o.err;
        EXPECT_NE(o.err.find(c.err), std::string::npos) << o.err;
    }
}

}  // namespace
