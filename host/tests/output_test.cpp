#include "host/output.h"

#include <gtest/gtest.h>

#include <cmath>
#include <jsoncons/json.hpp>

#include "host/tests/sample_description.h"

namespace corvanis::monitoring_modules::host {
namespace {

namespace wire = tavo::wire;

void add_channel(wire::ScanResult& r, int id, const std::string& name, const std::string& unit,
                 double scale, const std::string& lookup) {
    auto* d = r.add_definitions();
    d->set_id(id);
    d->set_name(name);
    d->set_unit(unit);
    d->set_scale_factor(scale);
    d->set_lookup(lookup);
}

wire::ChannelValue* add_value(wire::ScanResult& r, int id) {
    auto* v = r.add_values();
    v->set_id(id);
    return v;
}

wire::ScanResult sample_result() {
    wire::ScanResult r;
    r.set_sensor_id(4);
    add_channel(r, 2, "Parity", "", 1, "parity");
    add_channel(r, 0, "Temp \"inside\"", "°C", 1, "");
    add_channel(r, 1, "Scaled", "kB", 0.5, "");
    add_value(r, 2)->set_integer(1);
    add_value(r, 0)->set_float_(21.125);
    add_value(r, 1)->set_integer(3);
    add_value(r, 9)->set_integer(-5);  // a value without a definition
    r.mutable_message()->set_text("line one\nline\ttwo");
    return r;
}

TEST(output_test, scan_results_become_one_exact_json_line_or_an_aligned_table) {
    const auto doc = description::parse(sample_description);
    auto view = make_scan_view(sample_result(), "counter_sensor", &doc);
    view.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'795'000'000'007));
    view.duration = std::chrono::milliseconds(250);
    EXPECT_EQ(
        json_line(view),
        R"({"type":"scan_result","time":"2026-11-18T11:06:40.007Z","sensor_id":4,"name":null,)"
        R"("kind":"counter_sensor","state":"warning","response_code":0,"error":false,)"
        R"("message":{"key":"","text":"line one\nline\ttwo","args":[]},"duration_s":0.25,"channels":[)"
        R"({"id":0,"name":"Temp \"inside\"","unit":"°C","value":21.125},)"
        R"({"id":1,"name":"Scaled","unit":"kB","value":1.5},)"
        R"({"id":2,"name":"Parity","unit":"","value":1},)"
        R"({"id":9,"name":"Channel 9","unit":"","value":-5}]})");
    // The parity lookup marks 1 (odd) as a warning: the state says so even with code 0.
    EXPECT_EQ(table_block(view, "12:00:00", {}),
              "12:00:00  #4 Counter  WARNING\n"
              "    line one\n"
              "    line\ttwo\n"
              "    Temp \"inside\"  21.125 °C\n"
              "    Scaled            1.5 kB\n"
              "    Parity              1  Odd\n"
              "    Channel 9          -5\n");
}

TEST(output_test, names_counters_and_limit_states_show_in_json_table_and_status_line) {
    wire::ScanResult r;
    r.set_sensor_id(7);
    add_channel(r, 0, "Starts", "", 1, "");
    r.mutable_definitions(0)->set_kind(wire::CHANNEL_KIND_COUNTER);
    add_channel(r, 1, "Round Trip Time", "ms", 1, "");
    add_channel(r, 2, "it's", "°C", 1, "");
    add_value(r, 0)->set_integer(146);
    add_value(r, 1)->set_integer(0);
    add_value(r, 2)->set_float_(std::nan(""));
    auto view = make_scan_view(r, "k", nullptr);
    view.name = "boiler \"east\"";
    view.channels[0].has_value = false;  // a first reading
    view.channels[1].limit_state = "ok";
    const auto line = jsoncons::json::parse(json_line(view));
    EXPECT_EQ(line["name"].as<std::string>(), "boiler \"east\"");
    EXPECT_TRUE(line["channels"][0]["value"].is_null());
    EXPECT_EQ(line["channels"][0]["raw"].as<int>(), 146);
    EXPECT_FALSE(line["channels"][0].contains("state"));
    EXPECT_EQ(line["channels"][1]["state"].as<std::string>(), "ok");
    EXPECT_TRUE(line["channels"][2]["value"].is_null());  // NaN is no JSON number
    EXPECT_NE(table_block(view, "t", {})
                  .find("t  boiler \"east\" #7 k  OK\n    Starts             -  "
                        "(counter 146)\n"),
              std::string::npos)
        << table_block(view, "t", {});

    std::map<std::string, channel_limits> limits;
    limits["Round Trip Time"] = {std::nullopt, 50, std::nullopt, 500};
    limits["it's"] = {0, 30, -10, std::nullopt};
    EXPECT_EQ(nagios_line(view, limits),
              "OK - boiler \"east\" k #7 | 'Starts'=U 'Round Trip Time'=0ms;50;500 "
              "'it''s'=U;0:30;-10:");
}

TEST(output_test, every_response_code_has_a_state_and_only_ok_and_warning_are_not_errors) {
    const struct {
        int code;
        bool error;
        const char* state;
        const char* status;  // the status line's word
    } cases[] = {{0, false, "ok", "OK"},          {1, false, "warning", "WARNING"},
                 {2, true, "unknown", "UNKNOWN"}, {3, true, "error", "CRITICAL"},
                 {4, true, "error", "CRITICAL"},  {-1, true, "error", "CRITICAL"}};
    for (const auto& c : cases) {
        wire::ScanResult r;
        r.set_response_code(c.code);
        const auto view = make_scan_view(r, "k", nullptr);
        const auto line = jsoncons::json::parse(json_line(view));
        EXPECT_EQ(is_error_code(c.code), c.error) << c.code;
        EXPECT_EQ(line["error"].as<bool>(), c.error) << c.code;
        EXPECT_EQ(line["state"].as<std::string>(), c.state) << c.code;
        EXPECT_EQ(nagios_line(view, {}).substr(0, nagios_line(view, {}).find(' ')), c.status);
    }
}

TEST(output_test, messages_fall_back_to_their_default_text_with_arguments_then_the_key) {
    const struct {
        const char* text;
        const char* default_text;
        std::vector<std::string> args;
        const char* expected;
    } cases[] = {
        {"Given text.", "Ignored %0:s", {"x"}, "Given text."},
        {"",
         "Host %0:s refused port %1:s.",
         {"b.local", "1883"},
         "Host b.local refused port 1883."},
        {"", "%1:s before %0:s, %2:s missing", {"a", "b"}, "b before a,  missing"},
        {"", "100% sure, 5%:s stays", {}, "100% sure, 5%:s stays"},
        {"", "", {}, "error.only_key"},
    };
    for (const auto& c : cases) {
        wire::I18nMessage m;
        m.set_text(c.text);
        m.set_default_text(c.default_text);
        m.set_key("error.only_key");
        for (const auto& a : c.args) m.add_args(a);
        EXPECT_EQ(render_text(m), c.expected);
    }
}

TEST(output_test, notification_lines_keep_their_documented_shape) {
    wire::NotificationResponse response;
    response.set_success(true);
    auto* line = response.add_lines();
    line->set_severity(7);
    line->set_text("publish \"hi\"");
    auto parsed = jsoncons::ojson::parse(json_line(response));
    EXPECT_EQ(parsed["time"].as<std::string>().size(),
              std::string("2026-11-18T11:06:40.007Z").size());
    parsed.erase("time");
    EXPECT_EQ(
        parsed.to_string(),
        R"({"type":"notification_response","success":true,"lines":[{"severity":7,"text":"publish \"hi\""}]})");
    response.mutable_lines(0)->set_text(std::string("a\x01z", 3));
    EXPECT_NE(json_line(response).find(R"("a\u0001z")"), std::string::npos);
}

TEST(output_test, table_values_are_short_and_readable) {
    const struct {
        double value;
        const char* text;
    } cases[] = {{2.0, "2"},
                 {0.1 + 0.2, "0.3"},
                 {1234.5678, "1234.568"},
                 {-0.0001234, "-0.000123"},
                 {-0.0, "0"}};
    for (const auto& c : cases) {
        wire::ScanResult r;
        add_value(r, 0)->set_float_(c.value);
        const auto text = table_block(make_scan_view(r, "k", nullptr), "t", {});
        EXPECT_NE(text.find(std::string("Channel 0  ") + c.text + "\n"), std::string::npos) << text;
    }
}

TEST(output_test, failed_checks_and_notifications_say_why_in_the_table) {
    wire::CheckResult check;
    EXPECT_NE(table_block(check, "mqtt_connect_check", "t", {})
                  .find("FAILED\n    No connection could be made"),
              std::string::npos);
    wire::NotificationResponse response;
    response.mutable_message()->set_text("Refused.");
    response.add_lines()->set_severity(3);
    EXPECT_EQ(table_block(response, "a/b", "t", {}),
              "t  Notification to a/b  FAILED\n    Refused.\n    error   \n");
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
