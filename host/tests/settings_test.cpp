#include "host/settings.h"

#include <gtest/gtest.h>

#include "host/errors.h"
#include "host/tests/sample_description.h"

namespace corvanis::monitoring_modules::host {
namespace {

class settings_test : public ::testing::Test {
  protected:
    const description doc = description::parse(sample_description);

    static std::string error_of(const std::function<void()>& action) {
        try {
            action();
        } catch (const host_error& e) {
            EXPECT_EQ(e.code(), exit_setup_failed);
            return e.what();
        }
        return "";
    }
};

TEST_F(settings_test, unknown_keys_name_the_key_its_origin_and_a_likely_meaning) {
    const auto schema = sensor_schema(doc, "counter_sensor");
    const struct {
        std::string key;
        std::string hint;
    } cases[] = {
        {"stpe", "; did you mean \"counting.counter.step\"?"},
        {"counting.counter.stpe", "; did you mean \"counting.counter.step\"?"},
        {"topic.subscription.filter", ""},
        {"completely.unrelated.thing", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(error_of([&] {
                      resolve_settings(schema, {{"--set", {{c.key, "1"}}, false}});
                  }),
                  "unknown setting \"" + c.key + "\" for counter_sensor (from --set)" + c.hint);
    }
}

// Short keys, and the user name that implies logging in, on a schema shaped like a broker's.
TEST_F(settings_test, short_keys_resolve_where_unambiguous_and_a_user_means_logging_in) {
    settings_schema schema{target_kind::sensor, "k", {}, {{"server", "host"}}};
    for (const auto* key :
         {"host", "credentials.user_credentials.active", "credentials.user_credentials.user",
          "credentials.tls.active", "credentials.connection_mqtt.port"}) {
        setting_def def;
        def.key = key;
        def.name = def.key.substr(def.key.rfind('.') + 1);
        schema.settings.push_back(def);
    }
    const struct {
        std::vector<setting_pair> given;
        std::map<std::string, std::string> expected;  // "!" + text: the error
    } cases[] = {
        {{{"port", "1"}}, {{"credentials.connection_mqtt.port", "1"}}},
        {{{"connection_mqtt.port", "2"}}, {{"credentials.connection_mqtt.port", "2"}}},
        {{{"server", "b"}}, {{"host", "b"}}},
        {{{"tls.active", "yes"}}, {{"credentials.tls.active", "yes"}}},
        {{{"active", "yes"}},
         {{"!",
           "setting \"active\" is ambiguous for k; write one of "
           "credentials.user_credentials.active, credentials.tls.active (from --set)"}}},
        {{{"ort", "1"}},
         {{"!",
           "unknown setting \"ort\" for k (from --set); did you mean "
           "\"credentials.connection_mqtt.port\"?"}}},
        {{{"user", "probe"}},
         {{"credentials.user_credentials.user", "probe"},
          {"credentials.user_credentials.active", "yes"}}},
        {{{"user", "probe"}, {"user_credentials.active", "no"}},
         {{"credentials.user_credentials.active", "no"}}},
        {{{"user", ""}}, {{"credentials.user_credentials.active", ""}}},
    };
    for (const auto& c : cases) {
        settings_map values;
        const auto error = error_of([&] {
            values = resolve_settings(schema, {{"--set", c.given}});
        });
        for (const auto& [key, value] : c.expected) {
            if (key == "!") {
                EXPECT_EQ(error, value);
            } else {
                EXPECT_EQ(values[key], value) << key;
            }
        }
    }
}

TEST_F(settings_test, values_are_checked_against_their_kind) {
    const auto schema = sensor_schema(doc, "counter_sensor");
    const struct {
        std::string key;
        std::string value;
        std::string error;  // empty: accepted
    } cases[] = {
        {"counting.counter.step", "100", ""},
        {"counting.counter.step", "0", "below the minimum 1"},
        {"counting.counter.step", "101", "above the maximum 100"},
        {"counting.counter.step", "2x", "not a whole number"},
        {"counting.counter.step", "", "not a whole number"},
        {"counting.counter.scale", "-0.25", ""},
        {"counting.counter.scale", "1e3", ""},
        {"counting.counter.scale", "one", "not a number"},
        {"counting.counter.mode", "fail", ""},
        {"counting.counter.mode", "Fail", "must be one of ok, fail"},
        {"interval", "0", "below the minimum 1"},
        {"timeout", "0", ""},
        {"ipversion", "IPv5", "must be one of IPv4, IPv6"},
    };
    for (const auto& c : cases) {
        const auto values = resolve_settings(schema, {{"--set", {{c.key, c.value}}, false}});
        const auto text = error_of([&] { validate_settings(schema, values); });
        EXPECT_TRUE(c.error.empty() ? text.empty() : text.find(c.error) != std::string::npos)
            << c.key << "=" << c.value << ": " << text;
    }
}

TEST_F(settings_test, a_required_setting_is_demanded_only_while_it_is_shown) {
    const auto counter = sensor_schema(doc, "counter_sensor");
    const auto defaults = resolve_settings(counter, {});
    EXPECT_EQ(defaults.at("access.login.password"), "");  // a text without default goes empty
    EXPECT_EQ(error_of([&] { validate_settings(counter, defaults); }), "");
    const auto with_password =
        resolve_settings(counter, {{"--set", {{"access.login.method", "password"}}, false}});
    EXPECT_NE(error_of([&] {
                  validate_settings(counter, with_password);
              }).find("\"access.login.password\""),
              std::string::npos);
    const auto topic = sensor_schema(doc, "topic_sensor");
    for (const auto& given :
         std::vector<setting_pair>{{"host", "h"}, {"topic.subscription.filter", ""}}) {
        const auto values = resolve_settings(topic, {{"--set", {given}, false}});
        EXPECT_NE(error_of([&] {
                      validate_settings(topic, values);
                  }).find("--set topic.subscription.filter=VALUE"),
                  std::string::npos);
    }
}

TEST_F(settings_test, secrets_travel_in_the_secure_settings_only) {
    const auto schema = sensor_schema(doc, "counter_sensor");
    const auto values = resolve_settings(
        schema,
        {{"--set", {{"access.login.password", "pw"}, {"corvaniscloudapikey", "key"}}, false}});
    const auto block = make_block(schema, values);
    EXPECT_EQ(block.secure_settings().at("access.login.password"), "pw");
    EXPECT_EQ(block.secure_settings().at("corvaniscloudapikey"), "key");
    EXPECT_EQ(block.settings().count("access.login.password"), 0);
    EXPECT_EQ(block.settings().count("corvaniscloudapikey"), 0);
    EXPECT_EQ(block.settings().at("access.login.user"), "guest");
}

TEST_F(settings_test, notifications_take_broker_aliases_and_a_client_id_of_their_own) {
    const auto schema = notification_schema(doc, 4242);
    const auto values = resolve_settings(
        schema,
        {{"defaults", {{"interval", "5"}, {"credentials.connection_mqtt.port", "1999"}}, true},
         {"--set", {{"host", "broker.example"}}, false}});
    EXPECT_EQ(values.at("connection.host"), "broker.example");
    EXPECT_EQ(values.at("connection.port"), "1999");
    EXPECT_EQ(values.at("connection.client_id"), "tavo-probe-4242");
    EXPECT_EQ(values.count("interval"), 0);
}

TEST_F(settings_test, texts_fall_back_to_english_then_to_the_given_text) {
    EXPECT_EQ(doc.text("counter.step.display", "German"), "Schrittweite");
    EXPECT_EQ(doc.text("lookup.parity.1", "German"), "Odd");
    EXPECT_EQ(doc.text("no.such.key", "German", "fallback"), "fallback");
}

TEST_F(settings_test, assignments_split_at_the_first_equals_sign) {
    EXPECT_EQ(parse_assignment("a.b=x=y", "--set"), (setting_pair{"a.b", "x=y"}));
    EXPECT_EQ(parse_assignment("a.b=", "--set"), (setting_pair{"a.b", ""}));
    for (const auto* bad : {"a.b", "=x", ""}) {
        EXPECT_NE(error_of([&] { parse_assignment(bad, "--set"); }).find("expected KEY=VALUE"),
                  std::string::npos);
    }
    EXPECT_NE(error_of([] { read_assignment_file("k=/nonexistent/file.pem"); }).find("cannot read"),
              std::string::npos);
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
