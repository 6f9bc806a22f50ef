#include <gtest/gtest.h>

#include <condition_variable>

#include <mutex>
#include <thread>

#include "libtavohelper/module/logs.h"
#include "libtavohelper/module/module_instance.h"
#include "libtavohelper/settings/kinds.h"
#include "tavo.pb.h"

namespace th = corvanis::monitoring_modules::libtavohelper;
namespace lg = corvanis::monitoring_modules::liblog;
namespace wire = corvanis::tavo::wire;
using th::settings::sensor_data_wrapper;
using message = wire::ModuleMessage;
using strings = std::vector<std::string>;
using enum th::protocol::result_code;

namespace {

struct counter_settings {
    explicit counter_settings(const sensor_data_wrapper& data)
        : step(
              th::settings::kind_integer::parse_and_validate(data.get_value("step"), {.minimum = 1})
                  .value()) {}
    std::int64_t step;
};

// Counts by its step at each scan; the third scan throws a plain exception.
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
        r.set_success(true);
        return r;
    }
};

class quiet_notification : public th::notifications::service_interface {
  public:
    explicit quiet_notification(std::shared_ptr<th::module::service_container>) {}
    void send_notification(const th::notifications::request&, const sensor_data_wrapper&,
                           const std::shared_ptr<lg::log_interface>&) override {}
};

// Holds every notification until the test opens the gate.
struct gate {
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0;
    bool open = false;
};
gate held;

class gated_notification : public th::notifications::service_interface {
  public:
    explicit gated_notification(std::shared_ptr<th::module::service_container>) {}
    void send_notification(const th::notifications::request&, const sensor_data_wrapper&,
                           const std::shared_ptr<lg::log_interface>&) override {
        std::unique_lock lock(held.mutex);
        ++held.inside;
        held.changed.notify_all();
        held.changed.wait(lock, [] { return held.open; });
    }
};

class test_module : public th::module::module_instance {
  public:
    test_module(std::uint64_t context, th::module::host_callback callback)
        : module_instance(context, callback) {
        dispatcher()->register_sensor_as<counter_sensor>("counter");
        dispatcher()->register_check_as<ok_check>("ok_check");
        dispatcher()->register_notification_as<quiet_notification>("quiet");
        dispatcher()->register_notification_as<gated_notification>("gated");
        th::module::register_runtime_log(container());
        th::module::register_sensor_log(container());
    }
    std::string get_module_information() override { return "{}"; }
};

// Plays the host: every message the module sends arrives decoded in `messages`.
class sensor_dispatcher : public ::testing::Test {
  protected:
    static void callback(std::uint64_t context, const void* bytes, std::uint32_t size) {
        auto* self = reinterpret_cast<sensor_dispatcher*>(context);
        message m;
        ASSERT_TRUE(m.ParseFromArray(bytes, static_cast<int>(size)));
        std::lock_guard lock(self->mutex);
        self->messages.push_back(std::move(m));
    }
    std::vector<message> take(message::BodyCase body) {
        std::lock_guard lock(mutex);
        std::vector<message> out;
        for (const auto& m : messages)
            if (m.body_case() == body) out.push_back(m);
        return out;
    }
    // The failure key of each answer of that kind ("" for none), in order.
    strings keys(message::BodyCase body) {
        strings out;
        for (const auto& m : take(body)) {
            out.push_back(body == message::kScanResult ? m.scan_result().message().key()
                          : body == message::kCheckResult
                              ? m.check_result().message().key()
                              : m.notification_response().message().key());
        }
        return out;
    }
    static sensor_data_wrapper block(std::string kind, std::map<std::string, std::string> s) {
        return {std::move(kind), std::move(s)};
    }
    std::mutex mutex;
    std::vector<message> messages;  // guarded by mutex
    test_module module{reinterpret_cast<std::uint64_t>(this), &callback};
    th::module::sensor_dispatcher& d = *module.dispatcher();
};

TEST_F(sensor_dispatcher, lifecycle_result_codes_and_why_creation_failed) {
    EXPECT_EQ(d.create_sensor_instance(1, block("nope", {})), result_unknown_kind);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {})), result_creation_failed);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "0"}})),
              result_creation_failed);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "5"}})), result_ok);
    EXPECT_EQ(d.create_sensor_instance(1, block("counter", {{"step", "5"}})), result_id_in_use);
    EXPECT_EQ(d.execute_sensor_scan(2), result_unknown_id);
    EXPECT_EQ(d.execute_meta_scan(1, 77, block("counter", {})), result_unsupported_selector);
    EXPECT_EQ(d.destroy_sensor_instance(1), result_ok);
    EXPECT_EQ(d.destroy_sensor_instance(1), result_unknown_id);

    ASSERT_EQ(
        keys(message::kScanResult),
        (strings{"libtavohelper.error.sensor_registry", "libtavohelper.error.setting_not_available",
                 "libtavohelper.error.setting_invalid_less_min"}));
    for (const auto& r : take(message::kScanResult)) EXPECT_EQ(r.scan_result().response_code(), 3);
}

TEST_F(sensor_dispatcher, scans_send_values_persistent_data_error_results_and_banners) {
    ASSERT_EQ(d.create_sensor_instance(4, block("counter", {{"step", "5"}})), 0);
    EXPECT_TRUE(take(message::kLog).empty());  // default threshold: warnings and worse
    wire::SettingsBlock raw;
    raw.set_log_threshold(7);
    const auto encoded = raw.SerializeAsString();
    ASSERT_EQ(d.execute_meta_scan(
                  0, th::protocol::selector_log_threshold,
                  sensor_data_wrapper(encoded.data(), static_cast<unsigned>(encoded.size()))),
              0);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(d.execute_sensor_scan(4), 0);
    d.destroy_sensor_instance(4);

    const auto results = take(message::kScanResult);
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[1].scan_result().values(0).integer(), 10);
    EXPECT_EQ(results[2].scan_result().response_code(), 3);
    EXPECT_EQ(results[2].scan_result().message().key(), "libi18n.error.generic");
    EXPECT_EQ(results[2].scan_result().message().text(), "An error occurred. too many");
    EXPECT_EQ(take(message::kPersistentData).size(), 2u);  // none from the failed scan

    strings lines;
    for (const auto& m : take(message::kLog)) {
        EXPECT_EQ(m.log().source(), wire::Log::SENSOR);
        EXPECT_EQ(m.log().sensor_id(), 4);
        lines.push_back(std::to_string(m.log().line().severity()) + " " + m.log().line().text());
    }
    const std::string enter = "7 #################### Enter sensor scan ####################";
    const std::string exit = "7 #################### Exit sensor scan  ####################";
    EXPECT_EQ(lines, (strings{enter, exit, enter, exit, enter, "3 Scan failed: too many", exit,
                              "7 ################### Cleaning Up  ####################"}));
}

TEST_F(sensor_dispatcher, checks_and_notifications_report_failures_through_the_callback) {
    EXPECT_EQ(d.execute_check(3, block("ok_check", {{"step", "1"}})), 0);
    EXPECT_EQ(d.execute_check(3, block("ok_check", {})), result_creation_failed);
    EXPECT_EQ(d.execute_check(3, block("nope", {})), result_unknown_kind);
    EXPECT_EQ(keys(message::kCheckResult), (strings{"", "libtavohelper.error.setting_not_available",
                                                    "libtavohelper.error.sensor_registry"}));
    const auto checks = take(message::kCheckResult);
    for (std::size_t i = 0; i < checks.size(); ++i)
        EXPECT_EQ(checks[i].check_result().success(), i == 0);

    const auto notify = th::protocol::selector_notification;
    EXPECT_EQ(d.execute_meta_scan(9, notify, block("quiet", {})),
              result_notification_failed);  // the block holds no request
    EXPECT_EQ(d.execute_meta_scan(9, notify, block("nope", {})), result_unknown_kind);
    EXPECT_EQ(keys(message::kNotificationResponse),
              (strings{"libtavohelper.error.setting_not_available",
                       "libtavohelper.error.sensor_registry"}));
    for (const auto& m : take(message::kNotificationResponse))
        EXPECT_FALSE(m.notification_response().success());
}

// A host may retry a notification that is still being sent; the retry must not run twice.
TEST_F(sensor_dispatcher, a_notification_id_runs_once_at_a_time) {
    auto request = block("gated", {});
    request.set_notification_request({"alerts/a", "text", 5});
    const auto notify = th::protocol::selector_notification;
    std::thread first([&] { EXPECT_EQ(d.execute_meta_scan(4, notify, request), 0); });
    std::thread other([&] { EXPECT_EQ(d.execute_meta_scan(5, notify, request), 0); });
    {
        std::unique_lock lock(held.mutex);
        held.changed.wait(lock, [] { return held.inside == 2; });
    }
    EXPECT_EQ(d.execute_meta_scan(4, notify, request), result_notification_busy);
    {
        std::lock_guard lock(held.mutex);
        held.open = true;
    }
    held.changed.notify_all();
    first.join();
    other.join();
    EXPECT_EQ(d.execute_meta_scan(4, notify, request), 0);
    EXPECT_EQ(keys(message::kNotificationResponse),
              (strings{"libtavohelper.error.notification_already_registered", "", "", ""}));
}

TEST_F(sensor_dispatcher, concurrent_scans_and_destroy_are_safe) {
    for (int id = 0; id < 4; ++id) d.create_sensor_instance(id, block("counter", {{"step", "1"}}));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) d.execute_sensor_scan(t);
            d.destroy_sensor_instance(t);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(take(message::kScanResult).size(), 200u);
}

}  // namespace
