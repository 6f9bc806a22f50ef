#include "mqtt/sensors/mqtt_connect_check.h"

#include <gtest/gtest.h>

#include "mqtt/exceptions.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "mqtt/testing/recording_host.h"

namespace {

using namespace corvanis::monitoring_modules;
using mqtt::testing::failure;
using mqtt::testing::operation;

std::size_t count_starting(const std::vector<std::string>& texts, const std::string& start) {
    return static_cast<std::size_t>(std::count_if(
        texts.begin(), texts.end(), [&](const auto& t) { return t.starts_with(start); }));
}

// The check answers inside its result: nothing it meets may escape to the host.
TEST(connect_check, answers_whether_a_client_gets_connected_and_why_not) {
    struct row {
        const char* name;
        mqtt::testing::settings_map changes;
        std::exception_ptr refusal;  // of the connection attempt
        bool connected;              // as the client reports it once made
        bool success;
        std::string key;
        std::size_t attempts;
    };
    const std::vector<row> rows = {
        {"accepted", {}, nullptr, true, true, "", 1},
        {"made but not connected", {}, nullptr, false, false, "", 1},
        {"refused",
         {},
         failure<mqtt::exceptions::not_authorized>(mqtt::messages::not_authorized()),
         true,
         false,
         "error.not_authorized",
         0},
        {"not a localised failure",
         {},
         std::make_exception_ptr(std::runtime_error("boom")),
         true,
         false,
         "libi18n.error.generic",
         0},
        {"server authentication without a CA",
         {{"credentials.tls.active", "yes"}, {"credentials.tls.server_auth_active", "yes"}},
         nullptr,
         true,
         false,
         "error.server_authentication_activated_but_ca_is_empty",
         0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        mqtt::testing::recording_host host;
        host.broker().configure([&](auto& b) { b.connected = r.connected; });
        if (r.refusal) host.broker().fail_next(operation::connect, r.refusal);
        mqtt::sensors::mqtt_connect_check check(
            3,
            libtavohelper::settings::sensor_data_wrapper(
                "mqtt_connect_check",
                mqtt::testing::with(mqtt::testing::sample_settings("mqtt_connect_check"),
                                    r.changes)),
            host.container());
        const auto result = check.work();
        EXPECT_EQ(result.success(), r.success);
        EXPECT_EQ(result.message().key(), r.key);
        const auto connects = host.broker().history().connects;
        ASSERT_EQ(connects.size(), r.attempts);
        for (const auto& c : connects) EXPECT_FALSE(c.session.automatic_reconnect);
        const auto texts = host.log_texts();
        EXPECT_EQ(count_starting(texts, "End time tracking after "), r.attempts);
        EXPECT_EQ(count_starting(texts, "Exception after "), r.key.empty() ? 0u : 1u);
    }
}

}  // namespace
