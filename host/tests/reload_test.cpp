#include "host/reload.h"

#include <gtest/gtest.h>

#include <functional>

namespace corvanis::monitoring_modules::host {
namespace {

using namespace std::chrono_literals;

planned_sensor sensor(int id) {
    planned_sensor p;
    p.id = id;
    p.schema =
        std::make_shared<settings_schema>(settings_schema{target_kind::sensor, "roundtrip_sensor"});
    p.values = {{"host", "127.0.0.1"}, {"interval", "60"}};
    p.interval = 60s;
    p.name = "boiler";
    p.limits["Round Trip Time"].warning_max = 50;
    p.stale_after = 30s;
    return p;
}

enum class fate { kept, relabelled, recreated };

fate fate_of(const reload_plan& plan) {
    if (!plan.recreated.empty()) return fate::recreated;
    if (!plan.relabelled.empty()) return fate::relabelled;
    return fate::kept;
}

TEST(reload_test, a_sensor_is_created_again_only_when_what_the_module_got_changes) {
    const struct {
        const char* change;
        std::function<void(planned_sensor&)> edit;
        fate expected;
    } cases[] = {
        {"nothing", [](planned_sensor&) {}, fate::kept},
        {"a setting", [](planned_sensor& p) { p.values["host"] = "10.0.0.1"; }, fate::recreated},
        {"the kind",
         [](planned_sensor& p) {
             p.schema = std::make_shared<settings_schema>(
                 settings_schema{target_kind::sensor, "statistics_sensor"});
         },
         fate::recreated},
        {"the interval", [](planned_sensor& p) { p.interval = 30s; }, fate::recreated},
        {"the name", [](planned_sensor& p) { p.name = "furnace"; }, fate::relabelled},
        {"a limit's bound", [](planned_sensor& p) { p.limits["Round Trip Time"].warning_max = 60; },
         fate::relabelled},
        {"a channel with limits", [](planned_sensor& p) { p.limits["Status"].error_min = 1; },
         fate::relabelled},
        {"the staleness", [](planned_sensor& p) { p.stale_after.reset(); }, fate::relabelled},
        {"name and a setting",
         [](planned_sensor& p) {
             p.name = "furnace";
             p.values["host"] = "10.0.0.1";
         },
         fate::recreated},
    };
    for (const auto& c : cases) {
        auto wanted = sensor(7);
        c.edit(wanted);
        const auto plan = compare_plans({sensor(7)}, {wanted});
        EXPECT_EQ(fate_of(plan), c.expected) << c.change;
        EXPECT_TRUE(plan.added.empty() && plan.removed.empty()) << c.change;
        // The new plan replaces the old one whole.
        if (!plan.relabelled.empty()) {
            EXPECT_EQ(plan.relabelled[0].name, wanted.name) << c.change;
        }
    }
}

TEST(reload_test, sensors_are_matched_by_id_whatever_their_order) {
    const auto plan =
        compare_plans({sensor(1), sensor(2), sensor(3)}, {sensor(4), sensor(3), sensor(1)});
    EXPECT_EQ(plan.kept, (std::vector<int>{3, 1}));
    EXPECT_EQ(plan.removed, (std::vector<int>{2}));
    ASSERT_EQ(plan.added.size(), 1u);
    EXPECT_EQ(plan.added[0].id, 4);
    EXPECT_TRUE(plan.recreated.empty() && plan.relabelled.empty());
}

TEST(reload_test, requests_that_come_while_one_is_handled_fold_into_one) {
    reload_requests requests;
    requests.post();
    EXPECT_TRUE(requests.wait({}));
    // Three signals during that reload: one more reload, then none.
    for (int i = 0; i < 3; ++i) requests.post();
    EXPECT_TRUE(requests.wait({}));
    std::stop_source stop;
    stop.request_stop();
    EXPECT_FALSE(requests.wait(stop.get_token()));
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
