// The sensor on a fake client: messages are handed to its subscription directly.
#include "mqtt/sensors/subscribe_custom_sensor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "libtavohelper/module/logs.h"
#include "libtimeutils/time_format.h"
#include "mqtt/sensors/base64.h"
#include "tavo.pb.h"

namespace {

using namespace corvanis::monitoring_modules;
using mqtt::sensors::subscribe_custom_sensor;
namespace wire = corvanis::tavo::wire;
using settings_map = std::map<std::string, std::string>;
using clock_type = std::chrono::system_clock;

struct fake_client : mqtt::mqtt_client_interface {
    std::shared_ptr<mqtt::topic_subscription_interface> subscription;
    void subscribe(const std::shared_ptr<mqtt::topic_subscription_interface>& s) override {
        subscription = s;
    }
    void unsubscribe(const std::shared_ptr<mqtt::topic_subscription_interface>&) override {}
    void publish(const std::string&, const std::string&, const mqtt::quality_of_service&,
                 bool) override {}
    std::uint32_t get_active_client_count() const override { return 1; }
    std::int64_t get_connect_duration() const override { return 0; }
    bool is_connected() const override { return true; }
    std::string get_client_id() const override { return "fake"; }
    std::uint64_t get_subscribed_topic_count() const override { return 1; }
    void add_logger(const std::shared_ptr<liblog::log_interface>&, int) override {}
    void remove_logger(const std::shared_ptr<liblog::log_interface>&) override {}
};

struct inbox : libtavohelper::messaging::message_service_interface {
    std::vector<wire::ModuleMessage>* out;
    explicit inbox(std::vector<wire::ModuleMessage>* o) : out(o) {}
    using message_service_interface::send;
    void send(const std::vector<char>& bytes) override {
        out->emplace_back().ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
    }
};

// Disabled channels 2 to 10 unless overridden; "c<N>" stands for the channel's key prefix.
settings_map block(const settings_map& overrides) {
    const std::string p = "subscribe_custom.connection_subscribe_custom.";
    settings_map m;
    std::istringstream common(
        "host=broker logging=disabled interval=60 timeout=5 corvaniscloudapikey= ipversion=IPv4 "
        "credentials.user_credentials.active=no credentials.user_credentials.user= "
        "credentials.user_credentials.password= credentials.connection_mqtt.port=1883 "
        "credentials.tls.active=no credentials.tls.server_auth_active=no "
        "credentials.tls.ca_certificate= credentials.tls.client_auth_active=no "
        "credentials.tls.client_certificate= credentials.tls.client_key= "
        "credentials.tls.client_key_password= " +
        p + "topic=plant/# " + p + "duration_since_last_message=disable " + p +
        "retain_last_message=dismiss " + p + "message_path=");
    for (std::string kv; common >> kv;) m[kv.substr(0, kv.find('='))] = kv.substr(kv.find('=') + 1);
    for (int n = 1; n <= 10; ++n) {
        const auto c = p + "channel" + std::to_string(n);
        if (n > 1) m[c] = "disable";
        for (const auto& [k, v] : settings_map{{"_jsonpath", "$.x"},
                                               {"_name", "C"},
                                               {"_unit", "u"},
                                               {"_type", "absolute_float"},
                                               {"_scale_factor", "1"}})
            m[c + k] = v;
    }
    for (const auto& [k, v] : overrides)
        m[k.starts_with("c") ? p + "channel" + k.substr(1) : p + k] = v;
    return m;
}

struct harness {
    std::vector<wire::ModuleMessage> sent;
    std::shared_ptr<libtavohelper::module::service_container> container =
        std::make_shared<libtavohelper::module::service_container>();
    fake_client* client = nullptr;
    std::unique_ptr<subscribe_custom_sensor> sensor;

    explicit harness(std::function<std::unique_ptr<libparser::parser_interface>(std::string)>
                         parsers = libjsonparser::make_jsonpath_parser) {
        container->register_factory<libtavohelper::messaging::message_service_interface>(
            std::function([this] {
                return std::unique_ptr<libtavohelper::messaging::message_service_interface>(
                    new inbox(&sent));
            }));
        libtavohelper::module::register_sensor_log(container);
        container->get_instance<libtavohelper::module::sensor_log>()->set_threshold(7);
        container->register_factory<mqtt::mqtt_client_interface, mqtt::mqtt_client_settings>(
            std::function([this](mqtt::mqtt_client_settings) {
                auto made = std::make_unique<fake_client>();
                client = made.get();
                return std::unique_ptr<mqtt::mqtt_client_interface>(std::move(made));
            }));
        container->register_factory<libparser::parser_interface, std::string>(std::move(parsers));
    }
    void create(const settings_map& overrides,
                std::unordered_map<std::string, std::string> stored = {}) {
        libtavohelper::settings::sensor_data_wrapper data("subscribe_custom_sensor",
                                                          block(overrides));
        data.set_persistent_data(stored);
        sensor = std::make_unique<subscribe_custom_sensor>(7, data, container);
    }
    void deliver(const std::string& payload, clock_type::time_point at = clock_type::now()) {
        client->subscription->receive(std::make_shared<mqtt::received_message>(
            mqtt::received_message{"plant/a", {payload.begin(), payload.end()}, at}));
    }
    wire::ScanResult scan() {
        sensor->scan();
        for (auto it = sent.rbegin(); it != sent.rend(); ++it)
            if (it->has_scan_result()) return it->scan_result();
        ADD_FAILURE() << "no scan result";
        return {};
    }
    std::map<std::string, std::string> persisted() const {
        std::map<std::string, std::string> m;
        for (const auto& s : sent)
            if (s.has_persistent_data()) m[s.persistent_data().key()] = s.persistent_data().value();
        return m;
    }
    bool logged(const std::string& text) const {
        return std::any_of(sent.begin(), sent.end(),
                           [&](auto& s) { return s.has_log() && s.log().line().text() == text; });
    }
};

std::map<int, double> values(const wire::ScanResult& r) {
    std::map<int, double> m;
    for (const auto& v : r.values())
        m[v.id()] = v.has_integer() ? static_cast<double>(v.integer()) : v.float_();
    return m;
}

TEST(subscribe_custom_sensor, registers_the_duration_channel_and_active_channels_by_type) {
    harness h;
    h.create({{"duration_since_last_message", "enable"},
              {"c1_type", "absolute_integer"},
              {"c2", "enable"},
              {"c2_name", "Temp"},
              {"c2_unit", "C"},
              {"c2_scale_factor", "0.5"},
              {"c4", "enable"},
              {"c4_type", "delta_counter"}});
    std::vector<std::tuple<int, std::string, int, double>> got;
    const auto r = h.scan();
    for (const auto& d : r.definitions())
        got.emplace_back(d.id(), d.key(), d.kind(), d.scale_factor());
    EXPECT_EQ(got, (decltype(got){{0, "channel.duration_since_last_message", 1, 1.0},
                                  {1, "channel.channel_1", 1, 1.0},
                                  {2, "channel.channel_2", 3, 0.5},
                                  {4, "channel.channel_4", 2, 1.0}}));
}

TEST(subscribe_custom_sensor, reads_each_channel_type_from_numbers_and_strings) {
    harness h;
    const std::vector<std::tuple<std::string, std::string, double>> cases = {
        {"absolute_integer", "$.i", 42}, {"absolute_integer", "$.s", 42},
        {"absolute_float", "$.f", 21.5}, {"absolute_float", "$.sf", 3.25},
        {"delta_counter", "$.c", 2},     {"delta_counter", "$.z", 0},
        {"delta_counter", "$.a[0]", 7}};
    settings_map s = {{"message_path", "$.msg"}};
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto c = std::to_string(i + 1);
        if (i > 0) s["c" + c] = "enable";
        s["c" + c + "_type"] = std::get<0>(cases[i]);
        s["c" + c + "_jsonpath"] = std::get<1>(cases[i]);
    }
    h.create(s);
    h.deliver(
        R"({"i": 42, "s": "42abc", "f": 21.5, "sf": "3.25", "c": 2.9, "z": 0.0, "a": [7], "msg": "ok"})");
    const auto r = h.scan();
    EXPECT_EQ(r.response_code(), 0);
    EXPECT_EQ(r.message().key(), "");
    EXPECT_EQ(r.message().text(), "ok");
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(values(r)[int(i) + 1], std::get<2>(cases[i])) << i;
}

TEST(subscribe_custom_sensor, collects_every_failing_query_and_still_evaluates_the_rest) {
    harness h;
    h.create({{"message_path", "$.missing"},
              {"c1_type", "delta_counter"},
              {"c1_jsonpath", "$.neg"},
              {"c2", "enable"},
              {"c2_jsonpath", "$.ok"},
              {"c3", "enable"},
              {"c3_type", "delta_counter"},
              {"c3_jsonpath", "$.huge"},
              {"c5", "enable"},
              {"c5_jsonpath", "$.pair[*]"},
              {"c6", "enable"},
              {"c6_jsonpath", "$[?("}});
    h.deliver(R"({"neg": -0.5, "ok": 1.5, "huge": 1e19, "pair": [1, 2]})");
    const auto r = h.scan();
    EXPECT_EQ(r.response_code(), 3);
    EXPECT_TRUE(r.values().empty());
    const auto& text = r.message().text();
    EXPECT_TRUE(text.starts_with(
        "Sensor Message: The queried field \"$.missing\" is empty. "
        "Channel 1: Negative values are not supported by counter channels. "
        "Channel 3: '10000000000000000000.000000' could not be converted to 'integer'. "
        "Channel 5: The received value is an array instead of a single value. [1,2] "
        "Channel 6: The provided JSONPath is incorrect."))
        << text;
    EXPECT_TRUE(text.ends_with(" ")) << text;
    EXPECT_TRUE(h.logged("Found value: 1.500000"));
    EXPECT_TRUE(h.persisted().empty());
}

TEST(subscribe_custom_sensor, unusable_payloads_give_error_results) {
    for (const auto& [payload, key] : std::vector<std::pair<std::string, std::string>>{
             {"", "error.payload_empty"},
             {"not json", "libjsonparser.error.parse"},
             {"{\"x\": 1", "libjsonparser.error.parse"}}) {
        harness h;
        h.create({});
        h.deliver(payload);
        const auto r = h.scan();
        EXPECT_EQ(r.response_code(), 3) << payload;
        EXPECT_EQ(r.message().key(), key) << payload;
    }
}

TEST(subscribe_custom_sensor, compiled_paths_give_what_path_texts_give) {
    // A parser the sensor does not know as the JSONPath one makes it query by path text.
    struct opaque : libparser::parser_interface {
        std::unique_ptr<libparser::parser_interface> p;
        std::string query_text(const std::string& q) const override { return p->query_text(q); }
        std::int64_t query_int64(const std::string& q) const override { return p->query_int64(q); }
        double query_double(const std::string& q) const override { return p->query_double(q); }
        bool query_bool(const std::string& q) const override { return p->query_bool(q); }
        bool contains(const std::string& q) const override { return p->contains(q); }
        std::vector<std::string> query_text_list(const std::string& q) const override {
            return p->query_text_list(q);
        }
        std::vector<std::int64_t> query_int64_list(const std::string& q) const override {
            return p->query_int64_list(q);
        }
        std::vector<double> query_double_list(const std::string& q) const override {
            return p->query_double_list(q);
        }
        void validate(const std::string& s) const override { p->validate(s); }
    };
    const settings_map s = {{"message_path", "$.m"},        {"c1_type", "absolute_integer"},
                            {"c1_jsonpath", "$.v"},         {"c2", "enable"},
                            {"c2_jsonpath", "eval($.e).t"}, {"c3", "enable"},
                            {"c3_jsonpath", "$..v"}};
    for (const std::string payload :
         {R"({"m": "a", "v": 3, "e": "{\"t\": 2.5}"})", R"({"m": {"x": [1]}, "v": "9z", "e": 4})",
          R"({"v": [1, 2], "e": "{"})", R"([{"v": 1}, {"v": 2}])"}) {
        harness compiled, texts([](std::string d) {
            auto o = std::make_unique<opaque>();
            o->p = libjsonparser::make_jsonpath_parser(d);
            return std::unique_ptr<libparser::parser_interface>(std::move(o));
        });
        compiled.create(s);
        texts.create(s);
        compiled.deliver(payload);
        texts.deliver(payload);
        EXPECT_EQ(compiled.scan().SerializeAsString(), texts.scan().SerializeAsString()) << payload;
    }
}

TEST(subscribe_custom_sensor, evaluates_only_the_latest_message_and_consumes_it) {
    harness h;
    h.create({});
    h.deliver(R"({"x": 1})");
    h.deliver(R"({"x": 2})");
    EXPECT_EQ(values(h.scan())[1], 2);
    EXPECT_TRUE(values(h.scan()).empty());
    EXPECT_TRUE(h.logged("No message received during scanning interval"));
}

TEST(subscribe_custom_sensor, retained_result_and_receipt_time_stand_in_for_a_missing_message) {
    const settings_map s = {{"retain_last_message", "retain"},
                            {"duration_since_last_message", "enable"},
                            {"message_path", "$.m"}};
    const auto received = clock_type::now() - std::chrono::hours(2);
    harness first;
    first.create(s);
    first.deliver(R"({"x": 4.5, "m": "fine"})", received);
    first.scan();
    first.deliver("bad");
    EXPECT_EQ(first.scan().response_code(), 3);  // a failed evaluation keeps what was stored
    const auto stored = first.persisted();
    EXPECT_EQ(stored.at("time_of_last_message"),
              libtimeutils::format(libtimeutils::iso8601_format, received));
    wire::ModuleMessage retained;
    const auto bytes = mqtt::sensors::base64_decode(stored.at("last_sensor_result")).value();
    ASSERT_TRUE(retained.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
    EXPECT_EQ(values(retained.scan_result()),
              (std::map<int, double>{{1, 4.5}}));  // without the duration

    // A new instance given the persisted data, as after a host restart.
    harness restarted;
    restarted.create(s, {stored.begin(), stored.end()});
    const auto before = clock_type::now();
    const auto r = restarted.scan();
    const auto after = clock_type::now();
    EXPECT_EQ(r.response_code(), 0);
    EXPECT_EQ(r.message().text(), "fine");
    EXPECT_EQ(values(r)[1], 4.5);
    EXPECT_GE(values(r)[0],
              std::chrono::duration_cast<std::chrono::seconds>(before - received).count());
    EXPECT_LE(values(r)[0],
              std::chrono::duration_cast<std::chrono::seconds>(after - received).count());
    EXPECT_TRUE(restarted.logged("Handled retained value"));
    EXPECT_TRUE(restarted.logged("Handled time since last message"));
}

TEST(subscribe_custom_sensor, stored_data_is_read_only_as_configured) {
    struct row {
        settings_map settings;
        std::unordered_map<std::string, std::string> stored;
        int code;
        std::string key;
        bool has_result_value, has_duration;
    };
    wire::ModuleMessage stored;
    auto* value = stored.mutable_scan_result()->add_values();
    value->set_id(1);
    value->set_integer(5);
    const std::string good = mqtt::sensors::base64_encode(stored.SerializeAsString());
    const std::vector<row> rows = {
        {{}, {{"last_sensor_result", good}}, 0, "", false, false},  // dismiss
        {{{"retain_last_message", "retain"}}, {{"last_sensor_result", good}}, 0, "", true, false},
        {{{"retain_last_message", "retain"}},
         {{"last_sensor_result", "@@@="}},
         3,
         "libtavohelper.error.message_deserialization_failed",
         false,
         false},
        {{{"duration_since_last_message", "enable"}}, {}, 0, "", false, false},
        {{{"duration_since_last_message", "enable"}},
         {{"time_of_last_message", "yesterday"}},
         3,
         "libtimeutils.error.could_not_parse",
         false,
         false},
        {{{"duration_since_last_message", "enable"}},
         {{"time_of_last_message", "2020-01-01T00:00:00.000000000+00:00"}},
         0,
         "",
         false,
         true},
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        harness h;
        h.create(rows[i].settings, rows[i].stored);
        const auto r = h.scan();
        EXPECT_EQ(r.response_code(), rows[i].code) << i;
        EXPECT_EQ(r.message().key(), rows[i].key) << i;
        EXPECT_EQ(values(r).count(1) == 1, rows[i].has_result_value) << i;
        EXPECT_EQ(values(r).count(0) == 1, rows[i].has_duration) << i;
    }
}

TEST(subscribe_custom_sensor, a_late_delivery_after_destruction_is_harmless) {
    harness h;
    h.create({});
    const auto subscription = h.client->subscription;
    h.sensor.reset();
    subscription->receive(std::make_shared<mqtt::received_message>());
}

TEST(base64, round_trips_and_refuses_non_canonical_text) {
    for (const auto& [plain, encoded] : std::vector<std::pair<std::string, std::string>>{
             {"", ""},
             {"f", "Zg=="},
             {"fo", "Zm8="},
             {"foo", "Zm9v"},
             {"foobar", "Zm9vYmFy"},
             {std::string("\xff\xfe\x00", 3), "//4A"}}) {
        EXPECT_EQ(mqtt::sensors::base64_encode(plain), encoded);
        EXPECT_EQ(mqtt::sensors::base64_decode(encoded),
                  std::vector<char>(plain.begin(), plain.end()));
    }
    for (const std::string bad : {"Zg=", "Zh==", "Z===", "Zg==Zg==", "Zm9v\n", "Zm-v", "===="})
        EXPECT_FALSE(mqtt::sensors::base64_decode(bad)) << bad;
}

}  // namespace
