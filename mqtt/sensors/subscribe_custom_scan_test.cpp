// The sensor with the messages it receives: which one it evaluates, what a lost broker does to
// a scan, and the last result and message time the host keeps across restarts.
#include <gtest/gtest.h>

#include "libjsonparser/jsonpath_parser.h"
#include "mqtt/sensors/subscribe_custom_sensor.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "mqtt/testing/recording_host.h"

namespace {

using namespace corvanis::monitoring_modules;
using libtavohelper::responses::channel_value;
using libtavohelper::responses::scan_response_codes;
using mqtt::testing::settings_map;
using result_type = libtavohelper::responses::sensor_scan_result;

const std::string result_key = mqtt::sensors::last_sensor_result_key;
const std::string time_key = mqtt::sensors::time_of_last_message_key;

// A host process: each one builds its container anew, as a restart does.
struct process {
    mqtt::testing::recording_host host;
    std::unique_ptr<mqtt::sensors::subscribe_custom_sensor> sensor;

    process(const settings_map& changes, const std::map<std::string, std::string>& stored = {}) {
        host.container()->register_factory<libparser::parser_interface, std::string>(
            std::function<std::unique_ptr<libparser::parser_interface>(std::string)>(
                [](std::string text) { return libjsonparser::make_jsonpath_parser(text); }));
        const std::string p = "subscribe_custom.connection_subscribe_custom.";
        auto settings = mqtt::testing::sample_settings("subscribe_custom_sensor");
        settings[p + "channel1_jsonpath"] = "$.cycles";
        settings[p + "channel1_type"] = "absolute_integer";
        settings[p + "message_path"] = "$.state";
        for (const auto& [k, v] : changes) settings[p + k] = v;
        libtavohelper::settings::sensor_data_wrapper data("subscribe_custom_sensor", settings);
        data.set_persistent_data({stored.begin(), stored.end()});
        sensor =
            std::make_unique<mqtt::sensors::subscribe_custom_sensor>(31, data, host.container());
    }
    result_type scan() {
        sensor->scan();
        return host.last_scan_result(31);
    }
};

const settings_map both = {{"retain_last_message", "retain"},
                           {"duration_since_last_message", "enable"}};

// Only the newest message since the last scan counts; each type reads as its own kind, and a
// disabled channel leaves a gap, not an end.
TEST(subscribe_custom_sensor, evaluates_only_the_newest_message) {
    process p({{"channel2", "enable"},
               {"channel2_jsonpath", "$.t.value"},
               {"channel3", "enable"},
               {"channel3_type", "delta_counter"},
               {"channel3_jsonpath", "$.energy"},
               {"channel5", "enable"},
               {"channel5_jsonpath", "$.cycles"}});
    p.host.broker().publish("plant/1", R"({"cycles": 1, "t": {"value": 1.5}, "energy": 10.7,
                                           "state": "first"})");
    p.host.broker().publish("plant/1", R"({"cycles": 2, "t": {"value": 71.25},
                                           "energy": "20.9 kWh", "state": "second"})");
    const auto r = p.scan();
    EXPECT_EQ(r.response_code(), scan_response_codes::ok);
    EXPECT_EQ(r.response_message().render(), "second");
    EXPECT_EQ(r.values(), (std::map<int, channel_value>{
                              {1, std::int64_t{2}}, {2, 71.25}, {3, std::int64_t{20}}, {5, 2.0}}));
}

// A broker out of reach is an error at every scan: neither an empty result nor a stored one
// may pass for news.
TEST(subscribe_custom_sensor, a_broker_out_of_reach_is_an_error_at_every_scan) {
    for (const bool had_result : {true, false}) {
        SCOPED_TRACE(had_result ? "after a stored result" : "never reached");
        process p(both);
        if (had_result) {
            p.host.broker().publish("plant/1", R"({"cycles": 9, "state": "kept"})");
            ASSERT_EQ(p.scan().response_code(), scan_response_codes::ok);
        }
        p.host.broker().configure([](auto& b) { b.connected = false; });
        for (int round = 0; round < 2; ++round) {
            const auto r = p.scan();
            EXPECT_EQ(r.response_code(), scan_response_codes::error);
            EXPECT_EQ(r.response_message().key(), "error.connection_lost");
            EXPECT_TRUE(r.values().empty());
        }
    }
}

TEST(subscribe_custom_persistence, the_last_good_result_and_its_time_survive_a_restart) {
    process first(both);
    first.host.broker().publish("plant/1", R"({"cycles": 9, "state": "kept"})");
    const auto kept = first.scan();
    ASSERT_EQ(kept.response_code(), scan_response_codes::ok);
    first.host.broker().publish("plant/1", R"({"cycles": "many", "state": "refused"})");
    EXPECT_EQ(first.scan().response_code(), scan_response_codes::error);  // persists nothing
    const auto stored = first.host.persisted(31);
    ASSERT_EQ(stored.size(), 2u);

    process second(both, stored);
    const auto r = second.scan();
    EXPECT_EQ(r.response_code(), scan_response_codes::ok);
    EXPECT_EQ(r.response_message().render(), "kept");
    EXPECT_EQ(r.values().at(1), kept.values().at(1));
    EXPECT_GE(std::get<std::int64_t>(r.values().at(0)),
              std::get<std::int64_t>(kept.values().at(0)));
}

TEST(subscribe_custom_persistence, stored_data_stands_in_only_as_configured) {
    const settings_map retain = {{"retain_last_message", "retain"}},
                       duration = {{"duration_since_last_message", "enable"}};
    struct row {
        settings_map settings;
        std::map<std::string, std::string> stored;
        std::string error_key;
        bool duration;
    };
    const std::vector<row> rows = {
        {{}, {{result_key, "@@@="}, {time_key, "yesterday"}}, "", false},  // neither is read
        {retain,
         {{result_key, "@@@="}},
         "libtavohelper.error.message_deserialization_failed",
         false},
        {duration, {}, "", false},
        {duration, {{time_key, "yesterday"}}, "libtimeutils.error.could_not_parse", false},
        {duration, {{time_key, "2020-01-01T00:00:00.000000000+00:00"}}, "", true},
        // The oldest time a persisted text can name: its age once overflowed.
        {duration, {{time_key, "1677-09-22T00:00:00.000000000+00:00"}}, "", true}};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        process p(rows[i].settings, rows[i].stored);
        const auto r = p.scan();
        EXPECT_EQ(r.response_message().key(), rows[i].error_key);
        EXPECT_EQ(r.response_code(),
                  rows[i].error_key.empty() ? scan_response_codes::ok : scan_response_codes::error);
        EXPECT_EQ(r.values().size(), rows[i].duration ? 1u : 0u);
        if (rows[i].duration) {  // seconds since 2020
            EXPECT_GT(std::get<std::int64_t>(r.values().at(0)), 200'000'000);
        }
    }
}

}  // namespace
