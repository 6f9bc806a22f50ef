// Channel evaluation on parsed payloads; the sensor around it is tested with a fake broker
// (subscribe_custom_scan_test.cpp) and through tavo-probe against a real one.
#include "mqtt/sensors/subscribe_custom_sensor.h"

#include <gtest/gtest.h>

#include "libjsonparser/errors.h"
#include "liblog/memory_logger.h"
#include "mqtt/sensors/base64.h"

namespace {

using namespace corvanis::monitoring_modules;
using mqtt::settings::channel_type;
using result_type = libtavohelper::responses::sensor_scan_result;

// Channels 1 to N as given, the others disabled; evaluate() runs one payload through them.
struct channels {
    mqtt::sensors::custom_channel_evaluator::channel_array settings;
    std::shared_ptr<libtavohelper::settings::channel_map> map =
        std::make_shared<libtavohelper::settings::channel_map>();
    std::string message_path;

    channels(const std::vector<std::pair<channel_type, std::string>>& active,
             std::string message = "")
        : message_path(std::move(message)) {
        for (std::size_t i = 1; i < settings.size(); ++i)
            settings[i].enabled = mqtt::settings::channel::disable;
        for (std::size_t i = 0; i < active.size(); ++i) {
            if (i > 0) settings[i].enabled = mqtt::settings::channel::enable;
            settings[i].type = active[i].first;
            settings[i].jsonpath = active[i].second;
            map->register_definition(
                mqtt::sensors::custom_channel_definition(int(i) + 1, settings[i]));
        }
    }
    // The result and the error entries.
    std::pair<result_type, std::string> evaluate(const std::string& payload) const {
        result_type result(1, map);
        liblog::null_logger log;
        auto errors =
            mqtt::sensors::custom_channel_evaluator(settings, message_path)
                .evaluate(*libjsonparser::make_jsonpath_parser(payload), result, log, true);
        return {std::move(result), std::move(errors)};
    }
};

TEST(custom_channel_evaluator, reads_each_type_or_names_why_not) {
    struct row {
        channel_type type;
        std::string json;
        libtavohelper::responses::channel_value value;  // when `error` is empty
        std::string error;
    };
    const std::string neg = "Negative values are not supported by counter channels.";
    const std::vector<row> rows = {
        {channel_type::absolute_integer, "42", 42L, ""},
        {channel_type::absolute_integer, "\"42abc\"", 42L, ""},
        {channel_type::absolute_integer, "2.5", 0L, "'2.5' could not be converted to 'integer'."},
        {channel_type::absolute_float, "21.5", 21.5, ""},
        {channel_type::absolute_float, "\"3.25 C\"", 3.25, ""},
        {channel_type::absolute_float, "\"warm\"", 0.0,
         "'warm' could not be converted to 'floating point'."},
        {channel_type::delta_counter, "2.9", 2L, ""},
        {channel_type::delta_counter, "0.0", 0L, ""},
        {channel_type::delta_counter, "\"7 pcs\"", 7L, ""},
        {channel_type::delta_counter, "-0.5", 0L, neg},
        {channel_type::delta_counter, "1e19", 0L,
         "'10000000000000000000.000000' could not be converted to 'integer'."},
        {channel_type::delta_counter, "null", 0L, "The queried field \"$.x\" is empty."}};
    for (const auto& [type, json, value, error] : rows) {
        const auto [result, errors] = channels({{type, "$.x"}}).evaluate("{\"x\": " + json + "}");
        EXPECT_EQ(errors, error.empty() ? "" : "Channel 1: " + error + " ") << json;
        if (error.empty()) {
            EXPECT_EQ(result.values().at(1), value) << json;
        }
    }
}

TEST(custom_channel_evaluator, collects_every_failure_in_order_and_still_sets_the_others) {
    const channels c({{channel_type::absolute_float, "$.a"},
                      {channel_type::delta_counter, "$.b"},
                      {channel_type::absolute_integer, "$.c"},
                      {channel_type::absolute_float, "eval($.a)"}},
                     "$.missing");
    const auto [result, errors] = c.evaluate(R"({"a": 1.5, "b": -2, "c": 3})");
    EXPECT_TRUE(
        errors.starts_with("Sensor Message: The queried field \"$.missing\" is empty. "
                           "Channel 2: Negative values are not supported by counter "
                           "channels. Channel 4: The provided JSONPath is incorrect. "))
        << errors;
    EXPECT_EQ(result.values(),
              (std::map<int, libtavohelper::responses::channel_value>{{1, 1.5}, {3, 3L}}));
    EXPECT_EQ(c.evaluate(R"({"a": 1, "b": 2, "c": 3, "missing": {"k": [1]}})")
                  .first.response_message()
                  .render(),
              R"({"k":[1]})");
}

// A path that cannot compile is refused when the sensor is made, naming the channel or the
// sensor message and the diagnosis; an inactive channel's path is not looked at.
TEST(custom_channel_evaluator, refuses_paths_that_do_not_compile_and_names_their_owner) {
    const struct {
        std::vector<std::string> paths;  // channels 1..N active
        std::string message_path;
        std::string inactive_path;  // on channel 10, disabled
        std::string refusal;        // "key(arg0|arg1)", or "accepted"
    } rows[] = {
        {{"$.a", "$.b"}, "$.m", "temp", "accepted"},
        {{"temp"}, "", "", "error.channel_jsonpath_invalid(1|temp)"},
        {{"$.a", "$.b", "$["}, "", "", "error.channel_jsonpath_invalid(3|$[)"},
        {{"$.a"}, "temp", "", "error.message_jsonpath_invalid(temp)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.refusal);
        std::vector<std::pair<channel_type, std::string>> active;
        for (const auto& p : row.paths) active.emplace_back(channel_type::absolute_float, p);
        channels c(active, row.message_path);
        c.settings[9].jsonpath = row.inactive_path;
        std::string got = "accepted";
        try {
            mqtt::sensors::custom_channel_evaluator(c.settings, c.message_path);
        } catch (const libjsonparser::exceptions::query_error& e) {
            const auto& args = e.message().args();
            ASSERT_FALSE(args.empty());
            EXPECT_FALSE(args.back().empty()) << "no diagnosis";
            got = e.message().key() + "(";
            for (std::size_t i = 0; i + 1 < args.size(); ++i) got += (i ? "|" : "") + args[i];
            got += ")";
        }
        EXPECT_EQ(got, row.refusal);
    }
}

TEST(base64, encodes_the_standard_alphabet_and_refuses_non_canonical_text) {
    using mqtt::sensors::base64_decode, mqtt::sensors::base64_encode;
    for (const std::string plain : {"", "f", "fo", "foo", "foob", "\xfb\xff"})
        EXPECT_EQ(base64_decode(base64_encode(plain)),
                  std::vector<char>(plain.begin(), plain.end()));
    EXPECT_EQ(base64_encode(std::string("\xfb\xff\x00 foobar", 10)), "+/8AIGZvb2Jhcg==");
    for (const std::string bad : {"Zg=", "Zh==", "Z===", "Zg==Zg==", "Zm9v\n", "Zm-v", "===="})
        EXPECT_FALSE(base64_decode(bad)) << bad;
}

}  // namespace
