#include <gtest/gtest.h>

#include <functional>

#include "liblog/memory_logger.h"
#include "libtavohelper/errors.h"
#include "mqtt/exceptions.h"
#include "mqtt/settings/connection_settings.h"
#include "mqtt/settings/subscribe_custom_settings.h"
#include "mqtt/settings/testing/sample_settings.h"
#include "tests/support/expectations.h"

namespace s = corvanis::monitoring_modules::mqtt::settings;
namespace lg = corvanis::monitoring_modules::liblog;
using corvanis::monitoring_modules::mqtt::testing::sample_settings;
using corvanis::monitoring_modules::mqtt::testing::settings_map;
using corvanis::monitoring_modules::mqtt::testing::with;
using corvanis::monitoring_modules::test_support::failure_of;
using s::sensor_data_wrapper;

namespace {

settings_map common() {
    return with(sample_settings("mqtt_connect_check"),
                {{"host", "broker"},
                 {"credentials.user_credentials.user", "alice"},
                 {"credentials.user_credentials.password", "pw"}});
}
settings_map subscribe_custom() {
    const std::string p = "subscribe_custom.connection_subscribe_custom.";
    return with(sample_settings("subscribe_custom_sensor"),
                {{p + "channel1_jsonpath", "$.t"}, {p + "topic", "plant/#"}});
}
settings_map notification() {
    return with(sample_settings("mqtt_notification"),
                {{"connection.host", "broker"}, {"connection.client_id", "notifier"}});
}

template <class Record>
std::function<void()> read(settings_map m) {
    return [m] { Record(sensor_data_wrapper("x", m)); };
}

// "libtavohelper.error.setting_selection_parse_error" as the reader words it.
std::string not_selection(const std::string& value, const std::string& type) {
    return "libtavohelper.error.setting_selection_parse_error: Value \"" + value +
           "\" could not be parsed into selection type \"" + type + "\".";
}

// "libtavohelper.error.string_too_long" as the reader words it.
std::string too_long(const std::string& name, std::size_t length, std::size_t maximum) {
    return "libtavohelper.error.string_too_long: " + name + "'s value with length " +
           std::to_string(length) + " is longer than the maximum allowed length of " +
           std::to_string(maximum) + ".";
}

TEST(settings_readers, selection_and_bound_errors_name_the_setting) {
    const std::string less_than_1 =
        "libtavohelper.error.setting_invalid_less_min: Setting value 0 is less than the allowed "
        "value of 1.";
    const std::string above_65535 =
        "libtavohelper.error.setting_invalid_bigger_max: Setting value 65536 is bigger than the "
        "allowed value of 65535.";
    const auto check = [](const std::string& key, const std::string& value) {
        return read<s::mqtt_connect_check>(with(common(), {{key, value}}));
    };
    struct row {
        std::function<void()> read;
        std::string expected;
    };
    const row rows[] = {
        {read<s::statistics_sensor>(
             with(common(), {{"statistics.connection_statistics.topic", "a/#"}})),
         "accepted"},
        {check("credentials.user_credentials.active", "YES"), not_selection("YES", "active")},
        {check("credentials.tls.server_auth_active", ""), not_selection("", "server_auth_active")},
        {check("credentials.connection_mqtt.port", "0"), less_than_1},
        {check("credentials.connection_mqtt.port", "65536"), above_65535},
        {check("credentials.connection_mqtt.port", "65535"), "accepted"},
        {read<s::mqtt_notification>(with(notification(), {{"connection.port", "0"}})), "accepted"},
        {read<s::mqtt_notification>(with(notification(), {{"connection.port", "65536"}})),
         above_65535},
        {check("interval", "0"), less_than_1},
        {read<s::statistics_sensor>(common()),
         "libtavohelper.error.setting_not_available: The setting "
         "\"statistics.connection_statistics.topic\" was not available."},
        {check("timeout", ""), "std: bad optional access"},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(failure_of(rows[i].read), rows[i].expected);
    }
}

corvanis::monitoring_modules::mqtt::mqtt_client_settings convert(const settings_map& m) {
    return s::to_client_settings(s::mqtt_connect_check(sensor_data_wrapper("x", m)));
}

TEST(settings_conversion, credentials_and_tls_consistency) {
    const auto plain = convert(common());
    EXPECT_EQ(plain.connection.host, "broker");
    EXPECT_EQ(plain.connection.port, 1883);
    EXPECT_EQ(plain.connection.connect_timeout, 5u);
    EXPECT_EQ(plain.connection.client_id, "KESH_");
    EXPECT_GT(plain.connection.client_id_suffix_length, 0);
    EXPECT_EQ(plain.connection.username, "");  // credentials given but not active
    EXPECT_FALSE(plain.tls.use_tls);

    const auto authed = convert(with(common(), {{"credentials.user_credentials.active", "yes"}}));
    EXPECT_EQ(authed.connection.username, "alice");
    EXPECT_EQ(authed.connection.password.plain(), "pw");

    // TLS off: nothing else is looked at.
    const auto off = convert(with(common(), {{"credentials.tls.server_auth_active", "yes"}}));
    EXPECT_FALSE(off.tls.use_tls);

    const settings_map tls_on = with(common(), {{"credentials.tls.active", "yes"}});
    EXPECT_EQ(failure_of([&] {
                  convert(with(tls_on, {{"credentials.tls.server_auth_active", "yes"}}));
              }),
              "error.server_authentication_activated_but_ca_is_empty: Server Authentification is "
              "activated, but CA certificate is empty.");
    EXPECT_EQ(failure_of([&] {
                  convert(with(tls_on, {{"credentials.tls.client_auth_active", "yes"}}));
              }),
              "error.client_authentication_activated_but_certificate_is_empty: Client "
              "Authentification is activated, but client certificate is empty.");

    // The CA is taken only with server authentication; an empty client key passes on as it is.
    const auto ca_unused = convert(with(tls_on, {{"credentials.tls.ca_certificate", "CA"}}));
    EXPECT_TRUE(ca_unused.tls.use_tls);
    EXPECT_EQ(ca_unused.tls.ca_certificate, "");
    const auto full = convert(with(tls_on, {{"credentials.tls.server_auth_active", "yes"},
                                            {"credentials.tls.ca_certificate", "CA"},
                                            {"credentials.tls.client_auth_active", "yes"},
                                            {"credentials.tls.client_certificate", "CERT"},
                                            {"credentials.tls.client_key_password", "kp"}}));
    EXPECT_EQ(full.tls.ca_certificate, "CA");
    EXPECT_EQ(full.tls.client_certificate, "CERT");
    EXPECT_EQ(full.tls.client_key, "");
    EXPECT_EQ(full.tls.client_key_password.plain(), "kp");
}

// Every wait for the broker derives from "timeout": it must stay a small positive number
// of seconds whatever the host sends, so that no wait overflows and no connect is doomed.
TEST(settings_conversion, timeouts_are_workable_waits_or_refused) {
    const std::string above = "libtavohelper.error.setting_invalid_bigger_max: Setting value ";
    const struct {
        const char* setting;
        std::string expected;  // the connect timeout, or the refusal
    } rows[] = {
        {"0", "1"},
        {"1", "1"},
        {"300", "300"},
        {"301", above + "301 is bigger than the allowed value of 300."},
        {"9223372036854775807",
         above + "9223372036854775807 is bigger than the allowed value of 300."},
        {"18446744073709551615",
         "libtavohelper.error.setting_invalid: Setting value 18446744073709551615 is invalid. "
         "Expected a whole number."},
        {"-1",
         "libtavohelper.error.setting_invalid_less_min: Setting value -1 is less than the "
         "allowed value of 0."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setting);
        std::string got;
        const auto result = failure_of([&] {
            got = std::to_string(
                convert(with(common(), {{"timeout", row.setting}})).connection.connect_timeout);
        });
        EXPECT_EQ(result == "accepted" ? got : result, row.expected);
    }
    const s::mqtt_notification n(sensor_data_wrapper("x", notification()));
    for (const auto& [requested, used] : {std::pair<std::uint64_t, std::uint64_t>{0, 1},
                                          {4'294'967'295u, 300},
                                          {~std::uint64_t{0}, 300}}) {
        EXPECT_EQ(s::to_client_settings(n, requested).connection.connect_timeout, used)
            << requested;
    }
}

TEST(settings_conversion, notification_uses_its_own_connection_group) {
    const auto c =
        s::to_client_settings(s::mqtt_notification(sensor_data_wrapper("x", notification())), 9);
    EXPECT_EQ(c.connection.client_id, "notifier");
    EXPECT_EQ(c.connection.client_id_suffix_length, 0);
    EXPECT_EQ(c.connection.connect_timeout, 9u);
    EXPECT_FALSE(c.session.automatic_reconnect);
}

TEST(settings_expansion, sensorid_is_replaced_everywhere) {
    lg::memory_logger log;
    EXPECT_EQ(s::expand_sensorid("KESH/roundtrip/%sensorid", 1234, log), "KESH/roundtrip/1234");
    EXPECT_EQ(s::expand_sensorid("%sensorid-%sensorid", 7, log), "7-7");
    EXPECT_EQ(s::expand_sensorid("plain/topic", 7, log), "plain/topic");
}

TEST(subscribe_custom_settings, channels_and_options) {
    const auto ok = s::subscribe_custom_sensor(sensor_data_wrapper("x", subscribe_custom()));
    EXPECT_FALSE(ok.channels[0].enabled.has_value());
    EXPECT_TRUE(ok.channels[0].active());
    EXPECT_FALSE(ok.channels[1].active());
    EXPECT_EQ(ok.topic, "plant/#");
    EXPECT_EQ(ok.message_path, "");

    const std::string p = "subscribe_custom.connection_subscribe_custom.";
    const auto enabled = s::subscribe_custom_sensor(sensor_data_wrapper(
        "x", with(subscribe_custom(), {{p + "channel4", "enable"},
                                       {p + "channel4_type", "delta_counter"},
                                       {p + "channel4_scale_factor", "0.5"},
                                       {p + "retain_last_message", "retain"}})));
    EXPECT_TRUE(enabled.channels[3].active());
    EXPECT_EQ(enabled.channels[3].type, s::channel_type::delta_counter);
    EXPECT_DOUBLE_EQ(enabled.channels[3].scale_factor, 0.5);
    EXPECT_EQ(enabled.retain_last_message, s::retain_last_message::retain);

    struct row {
        settings_map changes;
        std::string expected;
    };
    const row rows[] = {
        {{{p + "channel2", "Enable"}}, not_selection("Enable", "channel")},
        {{{p + "channel3_type", "float"}},  // a disabled channel must still parse
         not_selection("float", "channel_type")},
        {{{p + "duration_since_last_message", "on"}},
         not_selection("on", "duration_since_last_message")},
        {{{p + "retain_last_message", ""}}, not_selection("", "retain_last_message")},
        {{{p + "channel1_name", std::string(32, 'n')}}, "accepted"},
        {{{p + "channel1_name", std::string(33, 'n')}}, too_long("channel1_name", 33, 32)},
        {{{p + "channel5_unit", std::string(33, 'u')}}, too_long("channel5_unit", 33, 32)},
        {{{p + "channel1_scale_factor", ""}}, "std: bad optional access"},
        {{{p + "channel1_jsonpath", "$['" + std::string(2043, 'k') + "']"}}, "accepted"},
        {{{p + "channel7_jsonpath", "$." + std::string(2047, 'k')}},
         too_long("channel7_jsonpath", 2049, 2048)},
        {{{p + "message_path", "$." + std::string(300'000, 'k')}},
         too_long("message_path", 300'002, 2048)},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.changes.begin()->first);
        EXPECT_EQ(failure_of(read<s::subscribe_custom_sensor>(with(subscribe_custom(), r.changes))),
                  r.expected);
    }
}

}  // namespace
