#include <gtest/gtest.h>

#include "libtavohelper/module/logs.h"
#include "libtavohelper/module/module_instance.h"
#include "libtavohelper/settings/kinds.h"
#include "libtavohelper/tests/test_host.h"

namespace th = corvanis::monitoring_modules::libtavohelper;
namespace lg = corvanis::monitoring_modules::liblog;
using th::settings::sensor_data_wrapper;

namespace {

struct counter_settings {
    explicit counter_settings(const sensor_data_wrapper& data)
        : step(
              th::settings::kind_integer::parse_and_validate(data.get_value("step"), {.minimum = 1})
                  .value()) {}
    std::int64_t step;
};

// Counts by its step at each scan; fails the scan when asked to.
class counter_sensor : public th::sensors::sensor_base<counter_settings> {
  public:
    counter_sensor(int id, const sensor_data_wrapper& data,
                   std::shared_ptr<th::module::service_container> c)
        : sensor_base(id, data, std::move(c), {"Counter", "1.0"}) {
        channels().register_definition(
            th::channels::dynamic_channel(0, {.key = "channel.count", .name = "Count"}));
    }

  protected:
    th::responses::sensor_scan_result work() override {
        total_ += settings().step;
        if (total_ > 2 * settings().step) throw std::runtime_error("too many");
        auto result = make_result();
        result.set_value(0, static_cast<long>(total_));
        persist("total", std::to_string(total_));
        return result;
    }

  private:
    std::int64_t total_ = 0;
};

class ok_check : public th::checks::check_base<counter_settings> {
  public:
    ok_check(int id, const sensor_data_wrapper& data,
             std::shared_ptr<th::module::service_container> c)
        : check_base(id, data, std::move(c), {"Check", "1.0"}) {}
    th::responses::check_result work() override {
        th::responses::check_result r(get_id());
        r.set_success(settings().step == 1);
        return r;
    }
};

class echo_notification : public th::notifications::service_interface {
  public:
    explicit echo_notification(std::shared_ptr<th::module::service_container>) {}
    void send_notification(const th::notifications::request& req, const sensor_data_wrapper&,
                           const std::shared_ptr<lg::log_interface>& log) override {
        log->log(lg::severity::debug, "to " + req.get_target() + ": " + req.get_message());
        if (req.get_target().empty()) throw std::runtime_error("no target");
    }
};

class test_module : public th::module::module_instance {
  public:
    explicit test_module(test_host::inbox& inbox)
        : module_instance(inbox.context(), &test_host::inbox::callback) {
        dispatcher()->register_sensor_as<counter_sensor>("counter");
        dispatcher()->register_check_as<ok_check>("ok_check");
        dispatcher()->register_notification_as<echo_notification>("echo");
        th::module::register_runtime_log(container());
        th::module::register_sensor_log(container());
    }
    std::string get_module_information() override { return "{}"; }
};

sensor_data_wrapper block(std::string kind, std::map<std::string, std::string> settings) {
    return sensor_data_wrapper(std::move(kind), std::move(settings));
}

TEST(sensor_dispatcher, lifecycle_result_codes) {
    test_host::inbox inbox;
    test_module m(inbox);
    auto& d = *m.dispatcher();
    EXPECT_EQ(d.create_sensor_instance(1, block("nope", {})), th::module::dispatch_unknown_kind);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {})),
              th::module::dispatch_creation_failed);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "0"}})),
              th::module::dispatch_creation_failed);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "5"}})),
              th::module::dispatch_ok);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "5"}})),
              th::module::dispatch_id_in_use);
    EXPECT_EQ(d.execute_sensor_scan(2), th::module::dispatch_unknown_id);
    EXPECT_EQ(d.execute_meta_scan(1, 77, block("counter", {})),
              th::module::dispatch_unsupported_selector);
    EXPECT_EQ(d.destroy_sensor_instance(1), th::module::dispatch_ok);
    EXPECT_EQ(d.destroy_sensor_instance(1), th::module::dispatch_unknown_id);

    // Each failed creation told the host why, by key.
    const auto results = inbox.scan_results();
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].message().key(), "libtavohelper.error.sensor_registry");
    EXPECT_EQ(results[1].message().key(), "libtavohelper.error.setting_not_available");
    EXPECT_EQ(results[1].message().text(), "The setting \"step\" was not available.");
    EXPECT_EQ(results[2].message().key(), "libtavohelper.error.setting_invalid_less_min");
    for (const auto& r : results) EXPECT_EQ(r.response_code(), 3);
}

TEST(sensor_dispatcher, scans_send_values_persistent_data_and_error_results) {
    test_host::inbox inbox;
    test_module m(inbox);
    auto& d = *m.dispatcher();
    ASSERT_EQ(d.create_sensor_instance(4, block("counter", {{"step", "5"}})), 0);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(d.execute_sensor_scan(4), 0);

    const auto results = inbox.scan_results();
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[1].values(0).integer(), 10);
    ASSERT_EQ(results[1].definitions_size(), 1);
    EXPECT_EQ(results[1].definitions(0).key(), "channel.count");
    EXPECT_EQ(results[2].response_code(), 3);
    EXPECT_EQ(results[2].message().key(), "libi18n.error.generic");
    EXPECT_EQ(results[2].message().text(), "An error occurred. too many");
    const auto persisted = inbox.take([](auto& msg) { return msg.has_persistent_data(); });
    ASSERT_EQ(persisted.size(), 2u);
    EXPECT_EQ(persisted[1].persistent_data().sensor_id(), 4);
    EXPECT_EQ(persisted[1].persistent_data().value(), "10");
}

TEST(sensor_dispatcher, banners_reach_the_host_once_the_threshold_admits_them) {
    test_host::inbox inbox;
    test_module m(inbox);
    auto& d = *m.dispatcher();
    d.create_sensor_instance(1, block("counter", {{"step", "1"}}));
    EXPECT_TRUE(inbox.logs().empty());  // default threshold: warnings and worse

    test_host::wire::SettingsBlock raw;
    raw.set_log_threshold(7);
    const auto encoded = raw.SerializeAsString();
    EXPECT_EQ(d.execute_meta_scan(0, th::module::meta_scan_log_threshold,
                                  sensor_data_wrapper(encoded.data(), encoded.size())),
              0);
    d.execute_sensor_scan(1);
    d.destroy_sensor_instance(1);
    std::vector<std::string> texts;
    for (const auto& l : inbox.logs()) {
        EXPECT_EQ(l.source(), test_host::wire::Log::SENSOR);
        EXPECT_EQ(l.sensor_id(), 1);
        texts.push_back(l.line().text());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "#################### Enter sensor scan ####################",
                         "#################### Exit sensor scan  ####################",
                         "################### Cleaning Up  ####################"}));
}

TEST(sensor_dispatcher, checks_and_notifications_answer_through_the_callback) {
    test_host::inbox inbox;
    test_module m(inbox);
    auto& d = *m.dispatcher();
    EXPECT_EQ(d.execute_check(3, block("ok_check", {{"step", "1"}})), 0);
    EXPECT_EQ(d.execute_check(3, block("ok_check", {})), th::module::dispatch_creation_failed);
    EXPECT_EQ(d.execute_check(3, block("nope", {})), th::module::dispatch_unknown_kind);
    const auto checks = inbox.take([](auto& msg) { return msg.has_check_result(); });
    ASSERT_EQ(checks.size(), 3u);
    EXPECT_TRUE(checks[0].check_result().success());
    EXPECT_FALSE(checks[1].check_result().success());
    EXPECT_EQ(checks[1].check_result().message().key(),
              "libtavohelper.error.setting_not_available");

    auto request = block("echo", {});
    request.set_notification_request({"alerts/a", "disk full", 5});
    EXPECT_EQ(d.execute_meta_scan(9, th::module::meta_scan_notification, request), 0);
    request.set_notification_request({"", "x", 5});
    EXPECT_EQ(d.execute_meta_scan(9, th::module::meta_scan_notification, request),
              th::module::dispatch_notification_failed);
    EXPECT_EQ(d.execute_meta_scan(9, th::module::meta_scan_notification, block("echo", {})),
              th::module::dispatch_notification_failed);
    const auto answers = inbox.take([](auto& msg) { return msg.has_notification_response(); });
    ASSERT_EQ(answers.size(), 3u);
    EXPECT_TRUE(answers[0].notification_response().success());
    ASSERT_EQ(answers[0].notification_response().lines_size(), 1);
    EXPECT_EQ(answers[0].notification_response().lines(0).text(), "to alerts/a: disk full");
    EXPECT_FALSE(answers[1].notification_response().success());
    EXPECT_EQ(answers[1].notification_response().lines_size(),
              1);  // lines logged before the failure
    EXPECT_EQ(answers[2].notification_response().message().key(),
              "libtavohelper.error.setting_not_available");
}

TEST(sensor_dispatcher, concurrent_scans_and_destroy_are_safe) {
    test_host::inbox inbox;
    test_module m(inbox);
    auto& d = *m.dispatcher();
    for (int id = 0; id < 4; ++id) d.create_sensor_instance(id, block("counter", {{"step", "1"}}));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&d, t] {
            for (int i = 0; i < 50; ++i) d.execute_sensor_scan(t);
            d.destroy_sensor_instance(t);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(inbox.scan_results().size(), 200u);
}

}  // namespace
