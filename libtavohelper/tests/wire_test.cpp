#include <gtest/gtest.h>

#include "libtavohelper/errors.h"
#include "libtavohelper/messaging/messages.h"
#include "libtavohelper/notifications/notification.h"
#include "libtavohelper/responses/results.h"
#include "tavo.pb.h"

namespace th = corvanis::monitoring_modules::libtavohelper;
namespace wire = corvanis::tavo::wire;
using th::channels::channel_kind;

namespace {

wire::ModuleMessage decode(const std::vector<char>& bytes) {
    wire::ModuleMessage m;
    EXPECT_TRUE(m.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    return m;
}

std::shared_ptr<th::settings::channel_map> two_channels() {
    auto map = std::make_shared<th::settings::channel_map>();
    map->register_definition({0, {.key = "channel.state", .name = "Status", .lookup = "rttstate"}});
    map->register_definition({1,
                              {.key = "channel.channel_1",
                               .name = "Temp",
                               .unit = "C",
                               .kind = channel_kind::floating,
                               .scale_factor = 0.1}});
    return map;
}

// Values, texts, lookups and kinds reach the end-to-end hosts, as do notification responses;
// these fields do not.
TEST(wire, scan_result_round_trips_through_its_bytes) {
    th::responses::sensor_scan_result result(5, two_channels());
    result.set_value(0, 4L);
    result.set_value(1, 21.5);
    result.set_response_message(th::messages::setting_invalid()("x", "why"));
    result.set_error_code(17);
    const auto r = decode(result.serialize()).scan_result();
    EXPECT_EQ(r.sensor_id(), 5);
    EXPECT_EQ(r.message().default_text(), "Setting value %0:s is invalid. %1:s");
    ASSERT_EQ(r.definitions_size(), 2);
    EXPECT_EQ(r.definitions(1).unit(), "C");
    EXPECT_DOUBLE_EQ(r.definitions(1).scale_factor(), 0.1);

    th::responses::sensor_scan_result restored(9, two_channels());
    restored.fill_from_buffer(result.serialize());
    EXPECT_EQ(restored.id(), 9);
    EXPECT_EQ(restored.error_code(), 17);
    EXPECT_EQ(restored.response_message(), result.response_message());
    EXPECT_EQ(restored.values(), result.values());
    EXPECT_THROW(restored.fill_from_buffer({'x'}), th::utils::exceptions::message_error);
}

// Definitions are encoded once and reused; a channel added later must still reach the host,
// and a result large enough for a multi-byte length must stay decodable.
TEST(wire, definitions_follow_the_channel_map_as_it_grows) {
    auto map = two_channels();
    th::responses::sensor_scan_result first(1, map);
    first.set_value(0, 1L);
    EXPECT_EQ(decode(first.serialize()).scan_result().definitions_size(), 2);

    for (int id = 2; id < 40; ++id) {
        map->register_definition({id, {.key = "channel.channel_1", .name = std::string(20, 'n')}});
    }
    th::responses::sensor_scan_result second(1, map);
    second.set_value(39, 7L);
    second.set_response_message(th::messages::setting_invalid()(std::string(300, 'x'), "why"));
    const auto r = decode(second.serialize()).scan_result();
    ASSERT_EQ(r.definitions_size(), 40);
    EXPECT_EQ(r.definitions(39).id(), 39);
    EXPECT_EQ(r.values(0).integer(), 7);
    EXPECT_EQ(r.message().args(0).size(), 300u);
}

TEST(wire, set_value_enforces_the_channel_mode) {
    th::responses::sensor_scan_result result(1, two_channels());
    const auto key_of = [](auto&& f) {
        try {
            f();
        } catch (const th::utils::exceptions::channel_error& e) {
            return e.message().key();
        }
        return std::string("ok");
    };
    EXPECT_EQ(key_of([&] { result.set_value(0, 1.5); }),
              "libtavohelper.error.invalid_channel_mode");
    EXPECT_EQ(key_of([&] { result.set_value(1, 2L); }), "libtavohelper.error.invalid_channel_mode");
    EXPECT_EQ(key_of([&] { result.set_value(7, 2L); }), "libtavohelper.error.channel_not_defined");
    th::responses::sensor_scan_result error(1, std::runtime_error("x"));
    EXPECT_EQ(key_of([&] { error.set_value(0, 1L); }),
              "libtavohelper.error.channel_map_not_initialized");
    EXPECT_EQ(decode(error.serialize()).scan_result().response_code(), 3);
}

// A payload is whatever a publisher sent: every text field that may carry part of it must
// still decode on the host, with the bad bytes shown as U+FFFD and the rest kept.
TEST(wire, text_from_payloads_reaches_the_host_as_valid_utf8) {
    const std::string bad = "t=\xFF\xC3(\xE2\x82";
    const std::string shown = "t=\xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD";
    th::responses::sensor_scan_result result(1, two_channels());
    result.set_response_message(corvanis::monitoring_modules::libi18n::i18n_msg::literal(bad));
    th::notifications::response sent(
        {{corvanis::monitoring_modules::liblog::severity::debug, bad}});
    sent.set_failure(th::messages::setting_invalid()(bad, "why"));

    const struct {
        const char* what;
        std::vector<char> bytes;
        std::string (*text)(const wire::ModuleMessage&);
    } rows[] = {
        {"log line",
         th::messaging::log_message(th::messaging::log_source::sensor, 1,
                                    corvanis::monitoring_modules::liblog::severity::debug, bad)
             .serialize(),
         [](const wire::ModuleMessage& m) { return m.log().line().text(); }},
        {"scan message", result.serialize(),
         [](const wire::ModuleMessage& m) { return m.scan_result().message().text(); }},
        {"notification line", sent.serialize(),
         [](const wire::ModuleMessage& m) { return m.notification_response().lines(0).text(); }},
        {"notification argument", sent.serialize(),
         [](const wire::ModuleMessage& m) { return m.notification_response().message().args(0); }},
        {"persistent value", th::messaging::persistent_data(1, "k", bad).serialize(),
         [](const wire::ModuleMessage& m) { return m.persistent_data().value(); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        wire::ModuleMessage m;
        ASSERT_TRUE(m.ParseFromArray(row.bytes.data(), static_cast<int>(row.bytes.size())));
        EXPECT_EQ(row.text(m), shown);
    }
}

}  // namespace
