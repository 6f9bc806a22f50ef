#include "host/output.h"

#include <gtest/gtest.h>

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

wire::ScanResult sample_result() {
    wire::ScanResult r;
    r.set_sensor_id(4);
    add_channel(r, 2, "Parity", "", 1, "parity");
    add_channel(r, 0, "Temp \"inside\"", "°C", 1, "");
    add_channel(r, 1, "Scaled", "kB", 0.5, "");
    auto* v = r.add_values();
    v->set_id(2);
    v->set_integer(1);
    v = r.add_values();
    v->set_id(0);
    v->set_float_(21.125);
    v = r.add_values();
    v->set_id(1);
    v->set_integer(3);
    v = r.add_values();
    v->set_id(9);  // a value without a definition
    v->set_integer(-5);
    r.mutable_message()->set_text("line one\nline\ttwo");
    return r;
}

TEST(output_test, scan_results_become_one_exact_json_line) {
    const auto doc = description::parse(sample_description);
    const auto view = make_scan_view(sample_result(), "counter_sensor", &doc);
    EXPECT_EQ(
        json_line(view),
        R"({"type":"scan_result","sensor_id":4,"kind":"counter_sensor","response_code":0,"error":false,)"
        R"("message":{"key":"","text":"line one\nline\ttwo","args":[]},"channels":[)"
        R"({"id":0,"name":"Temp \"inside\"","unit":"°C","value":21.125},)"
        R"({"id":1,"name":"Scaled","unit":"kB","value":1.5},)"
        R"({"id":2,"name":"Parity","unit":"","value":1},)"
        R"({"id":9,"name":"Channel 9","unit":"","value":-5}]})");
    EXPECT_EQ(view.display, "Counter");
    EXPECT_EQ(view.channels[2].state, "Odd");
}

TEST(output_test, only_ok_and_warning_are_not_errors) {
    const struct {
        int code;
        bool error;
    } cases[] = {{0, false}, {1, false}, {2, true}, {3, true}, {4, true}, {-1, true}};
    for (const auto& c : cases) {
        wire::ScanResult r;
        r.set_response_code(c.code);
        const auto line = json_line(make_scan_view(r, "k", nullptr));
        EXPECT_EQ(is_error_code(c.code), c.error) << c.code;
        EXPECT_NE(line.find(std::string("\"error\":") + (c.error ? "true" : "false") +
                            ",\"message\":null"),
                  std::string::npos)
            << line;
    }
}

TEST(output_test, messages_fall_back_to_their_default_text_with_arguments) {
    const struct {
        const char* text;
        const char* default_text;
        std::vector<std::string> args;
        const char* key;
        const char* expected;
    } cases[] = {
        {"Given text.", "Ignored %0:s", {"x"}, "k", "Given text."},
        {"",
         "Host %0:s refused port %1:s.",
         {"b.local", "1883"},
         "k",
         "Host b.local refused port 1883."},
        {"", "%1:s before %0:s, %2:s missing", {"a", "b"}, "k", "b before a,  missing"},
        {"", "100% sure, 5%:s stays", {}, "k", "100% sure, 5%:s stays"},
        {"", "", {}, "error.only_key", "error.only_key"},
    };
    for (const auto& c : cases) {
        wire::I18nMessage m;
        m.set_text(c.text);
        m.set_default_text(c.default_text);
        m.set_key(c.key);
        for (const auto& a : c.args) m.add_args(a);
        EXPECT_EQ(render_text(m), c.expected);
    }
}

TEST(output_test, check_and_notification_lines_keep_their_documented_shape) {
    wire::CheckResult ok;
    ok.set_check_id(1);
    ok.set_success(true);
    EXPECT_EQ(json_line(ok), R"({"type":"check_result","check_id":1,"success":true})");
    wire::CheckResult failed;
    failed.set_check_id(1);
    failed.mutable_message()->set_text("No route");
    EXPECT_EQ(
        json_line(failed),
        R"({"type":"check_result","check_id":1,"success":false,"message":{"key":"","text":"No route","args":[]}})");

    wire::NotificationResponse response;
    response.set_success(true);
    auto* line = response.add_lines();
    line->set_severity(7);
    line->set_text("publish \"hi\"");
    EXPECT_EQ(
        json_line(response),
        R"({"type":"notification_response","success":true,"lines":[{"severity":7,"text":"publish \"hi\""}]})");
    EXPECT_EQ(json_quote(std::string("a\x01z", 3)), R"("a\u0001z")");
}

TEST(output_test, tables_align_values_with_units_and_state_texts) {
    const auto doc = description::parse(sample_description);
    const auto text =
        table_block(make_scan_view(sample_result(), "counter_sensor", &doc), "12:00:00", {});
    EXPECT_EQ(text,
              "12:00:00  #4 Counter  OK\n"
              "    line one\n"
              "    line\ttwo\n"
              "    Temp \"inside\"  21.125 °C\n"
              "    Scaled            1.5 kB\n"
              "    Parity              1  Odd\n"
              "    Channel 9          -5\n");
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
        auto* v = r.add_values();
        v->set_float_(c.value);
        const auto text = table_block(make_scan_view(r, "k", nullptr), "t", {});
        EXPECT_NE(text.find(std::string("Channel 0  ") + c.text + "\n"), std::string::npos) << text;
    }
}

TEST(output_test, failures_say_why_in_the_table) {
    wire::ScanResult r;
    r.set_sensor_id(2);
    r.set_response_code(3);
    r.mutable_message()->set_default_text("Broker %0:s is gone.");
    r.mutable_message()->add_args("b1");
    EXPECT_EQ(table_block(make_scan_view(r, "roundtrip_sensor", nullptr), "t", {}),
              "t  #2 roundtrip_sensor  ERROR\n    Broker b1 is gone.\n");
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
