#include "host/result_state.h"

#include <gtest/gtest.h>

#include <cmath>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {
namespace {

scan_view one_channel(double value, const std::string& state = "ok") {
    scan_view view;
    view.state = state;
    channel_view c;
    c.name = "Temperature";
    c.unit = "°C";
    c.integer = false;
    c.floating_value = value;
    view.channels.push_back(c);
    return view;
}

TEST(result_state_test, a_value_beyond_a_limit_marks_its_channel_and_the_result) {
    const channel_limits both{10, 80, 0, 90};
    const channel_limits upper_only{std::nullopt, 80, std::nullopt, std::nullopt};
    const struct {
        double value;
        channel_limits limits;
        std::string given_state;  // from the module
        std::string channel_state;
        std::string state;
        std::string message;  // empty: no message
    } cases[] = {
        {50, both, "ok", "ok", "ok", ""},
        {80, both, "ok", "ok", "ok", ""},  // a bound itself is still fine
        {80.5, both, "ok", "warning", "warning", "Temperature = 80.5 °C is above warning_max 80"},
        {95, both, "ok", "error", "error", "Temperature = 95 °C is above error_max 90"},
        {5, both, "ok", "warning", "warning", "Temperature = 5 °C is below warning_min 10"},
        {-1, both, "ok", "error", "error", "Temperature = -1 °C is below error_min 0"},
        {std::nan(""), both, "ok", "error", "error", "Temperature = nan °C is above error_max 90"},
        {-1000, upper_only, "ok", "ok", "ok", ""},
        // A limit never makes a result look better than the module said.
        {50, both, "error", "ok", "error", ""},
        {85, both, "unknown", "warning", "unknown", "Temperature = 85 °C is above warning_max 80"},
    };
    for (const auto& c : cases) {
        auto view = one_channel(c.value, c.given_state);
        apply_limits(view, {{"Temperature", c.limits}}, "English");
        EXPECT_EQ(view.channels[0].limit_state, c.channel_state) << c.value;
        EXPECT_EQ(view.state, c.state) << c.value;
        EXPECT_EQ(view.message ? view.message->text : "", c.message) << c.value;
    }
}

TEST(result_state_test, limits_leave_other_channels_and_missing_values_alone_and_keep_the_message) {
    auto view = one_channel(95);
    view.channels[0].has_value = false;
    apply_limits(view, {{"Temperature", {std::nullopt, 1, std::nullopt, 2}}}, "English");
    EXPECT_EQ(view.channels[0].limit_state, "");
    EXPECT_EQ(view.state, "ok");

    view = one_channel(95);
    view.message = message_view{"", "burner on", {}};
    apply_limits(view, {{"Pressure", {std::nullopt, 1, std::nullopt, 2}}}, "English");
    EXPECT_EQ(view.channels[0].limit_state, "");
    EXPECT_EQ(view.message->text, "burner on");
    apply_limits(view, {{"Temperature", {std::nullopt, 1, std::nullopt, 2}}}, "de");
    EXPECT_EQ(view.message->text, "Temperature = 95 °C liegt über error_max 2; burner on");
}

TEST(result_state_test, counters_show_their_change_and_nothing_on_the_first_reading_or_a_reset) {
    const struct {
        std::int64_t raw;
        std::optional<std::int64_t> shown;
    } readings[] = {
        {136, std::nullopt},       {146, 10}, {155, 9}, {155, 0}, {3, std::nullopt}, {5, 2},
        {INT64_MAX, INT64_MAX - 5}};
    counter_memory memory;
    std::map<int, std::int64_t> kept;
    for (const auto& r : readings) {
        scan_view view;
        channel_view c;
        c.id = 4;
        c.counter = true;
        c.raw = r.raw;
        c.integer_value = r.raw;
        view.channels.push_back(c);
        for (const auto& [id, raw] : memory.apply(view)) kept[id] = raw;
        EXPECT_EQ(view.channels[0].has_value, r.shown.has_value()) << r.raw;
        if (r.shown) {
            EXPECT_EQ(view.channels[0].integer_value, *r.shown) << r.raw;
        }
        EXPECT_EQ(view.channels[0].raw, r.raw);
        EXPECT_EQ(kept[4], r.raw);
    }
    // A restart with the kept reading loses no interval.
    counter_memory restarted(std::map<int, std::int64_t>{{4, 100}});
    scan_view view;
    channel_view scaled;
    scaled.id = 4;
    scaled.counter = true;
    scaled.raw = 110;
    scaled.integer = false;
    scaled.scale = 0.5;
    view.channels.push_back(scaled);
    restarted.apply(view);
    EXPECT_TRUE(view.channels[0].has_value);
    EXPECT_EQ(view.channels[0].floating_value, 5);
}

TEST(result_state_test, states_combine_to_the_worst_and_map_to_plugin_exit_codes) {
    const struct {
        const char* a;
        const char* b;
        const char* worse;
        int exit_code;  // of `worse`
    } cases[] = {{"ok", "ok", "ok", 0},
                 {"ok", "warning", "warning", 1},
                 {"warning", "unknown", "unknown", 3},
                 {"unknown", "error", "error", 2},
                 {"error", "warning", "error", 2},
                 {"ok", "bogus", "bogus", 3}};
    for (const auto& c : cases) {
        EXPECT_EQ(worse_state(c.a, c.b), c.worse) << c.a << " " << c.b;
        EXPECT_EQ(worse_state(c.b, c.a), c.worse) << c.a << " " << c.b;
        EXPECT_EQ(exit_code_of(c.worse), c.exit_code) << c.worse;
    }
}

TEST(result_state_test, limit_options_are_read_or_refused_with_the_reason) {
    std::map<std::string, channel_limits> limits;
    add_limit_option("Round Trip Time:warning_max=50", limits);
    add_limit_option("a:b:error_min=-1.5", limits);  // the last colon splits
    EXPECT_EQ(limits["Round Trip Time"].warning_max, 50);
    EXPECT_EQ(limits["a:b"].error_min, -1.5);
    const struct {
        const char* text;
        const char* reason;
    } faults[] = {{"Temperature=5", "expected CHANNEL:KEY=VALUE"},
                  {":warning_max=5", "expected CHANNEL:KEY=VALUE"},
                  {"T:warning_max=", "is not a number"},
                  {"T:warning_max=5x", "is not a number"},
                  {"T:warning_max=inf", "is not a number"},
                  {"T:max=5", "unknown limit \"max\""}};
    for (const auto& f : faults) {
        try {
            add_limit_option(f.text, limits);
            ADD_FAILURE() << f.text;
        } catch (const host_error& e) {
            EXPECT_NE(std::string(e.what()).find(f.reason), std::string::npos) << e.what();
            EXPECT_EQ(e.code(), exit_setup_failed);
        }
    }
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
