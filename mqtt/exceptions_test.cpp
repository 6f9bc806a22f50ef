#include <gtest/gtest.h>

#include <set>

#include "mqtt/exceptions.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ex = mqtt::exceptions;

namespace {

// Rethrows the mapped exception and returns it as its family.
template <class Family = ex::mqtt_failure>
std::unique_ptr<Family> rethrow(std::exception_ptr mapped) {
    try {
        std::rethrow_exception(mapped);
    } catch (const Family& e) {
        return std::make_unique<Family>(e);
    } catch (...) {
    }
    return nullptr;
}

template <class E>
bool is(std::exception_ptr mapped) {
    try {
        std::rethrow_exception(mapped);
    } catch (const E&) {
        return true;
    } catch (...) {
        return false;
    }
}

TEST(map_failure, library_and_broker_codes_map_to_their_types) {
    const struct {
        int code;
        const char* key;
        bool (*check)(std::exception_ptr);
    } table[] = {
        {-17, "error.mqttasync_0_len_will_topic", &is<ex::mqttasync_0_len_will_topic>},
        {-16, "error.mqttasync_wrong_mqtt_version", &is<ex::mqttasync_wrong_mqtt_version>},
        {-15, "error.mqttasync_bad_mqtt_option", &is<ex::mqttasync_bad_mqtt_option>},
        {-14, "error.mqttasync_bad_protocol", &is<ex::mqttasync_bad_protocol>},
        {-13, "error.mqttasync_ssl_not_supported", &is<ex::mqttasync_ssl_not_supported>},
        {-12, "error.mqttasync_max_buffered_messages", &is<ex::mqttasync_max_buffered_messages>},
        {-11, "error.mqttasync_operation_incomplete", &is<ex::mqttasync_operation_incomplete>},
        {-10, "error.mqttasync_no_more_msgids", &is<ex::mqttasync_no_more_msgids>},
        {-9, "error.mqttasync_bad_qos", &is<ex::mqttasync_bad_qos>},
        {-8, "error.mqttasync_bad_structure", &is<ex::mqttasync_bad_structure>},
        {-7, "error.mqttasync_topicname_truncated", &is<ex::mqttasync_topicname_truncated>},
        {-6, "error.mqttasync_null_parameter", &is<ex::mqttasync_null_parameter>},
        {-5, "error.mqttasync_bad_utf8_string", &is<ex::mqttasync_bad_utf8_string>},
        {-4, "error.mqttasync_max_messages_inflight", &is<ex::mqttasync_max_messages_inflight>},
        {-3, "error.mqttasync_disconnected", &is<ex::mqttasync_disconnected>},
        {-2, "error.mqttasync_persistence", &is<ex::mqttasync_persistence_error>},
        {1, "error.unacceptable_protocol_version", &is<ex::unacceptable_protocol_version>},
        {2, "error.identifier_rejected", &is<ex::identifier_rejected>},
        {3, "error.server_unavailable", &is<ex::server_unavailable>},
        {4, "error.bad_username_or_password", &is<ex::bad_username_or_password>},
        {5, "error.not_authorized", &is<ex::not_authorized>},
    };
    for (const auto& row : table) {
        const auto mapped = ex::map_failure(row.code, "ignored text");
        const auto e = rethrow<ex::client_failure>(mapped);
        ASSERT_NE(e, nullptr) << row.code;
        EXPECT_EQ(e->message().key(), row.key) << row.code;
        EXPECT_TRUE(row.check(mapped)) << row.code;
    }
}

TEST(map_failure, code_minus_one_is_told_apart_by_the_exact_text) {
    const struct {
        const char* text;
        const char* key;
        std::vector<std::string> args;
    } table[] = {
        {"TCP/TLS connect failure", "error.tcp_tls_connect_failure", {}},
        {"TCP connect completion failure", "error.tcp_tls_connect_failure", {}},
        {"socket error", "error.tcp_tls_connect_failure", {}},
        {"TCP connect timeout", "error.tcp_connection_timeout", {}},
        {"TCP connect timeout.", "libi18n.error.generic", {"TCP connect timeout."}},
        {"socket Error", "libi18n.error.generic", {"socket Error"}},
        {"", "libi18n.error.generic", {""}},
    };
    for (const auto& row : table) {
        const auto e = rethrow<ex::client_failure>(ex::map_failure(-1, row.text));
        ASSERT_NE(e, nullptr) << row.text;
        EXPECT_EQ(e->message().key(), row.key) << row.text;
        EXPECT_EQ(e->message().args(), row.args) << row.text;
    }
    EXPECT_TRUE(is<ex::tcp_connection_timeout>(ex::map_failure(-1, "TCP connect timeout")));
    EXPECT_TRUE(is<ex::tcp_tls_connect_failure>(ex::map_failure(-1, "socket error")));
}

TEST(map_failure, unknown_codes_give_a_client_failure_without_the_text) {
    for (const int code : {0, 6, -18, 128, 1000}) {
        const auto e = rethrow<ex::client_failure>(ex::map_failure(code, "dropped"));
        ASSERT_NE(e, nullptr) << code;
        EXPECT_EQ(e->message().key(), "libi18n.error.generic") << code;
        EXPECT_EQ(e->message().args(), std::vector<std::string>{""}) << code;
    }
}

TEST(mqtt_exceptions, families_separate_library_failures_from_the_others) {
    const ex::could_not_publish_not_connected publish(
        mqtt::messages::could_not_publish_not_connected()());
    const ex::invalid_topic topic(mqtt::messages::invalid_topic()("a#"));
    EXPECT_FALSE(is<ex::client_failure>(std::make_exception_ptr(publish)));
    EXPECT_TRUE(is<ex::mqtt_failure>(std::make_exception_ptr(publish)));
    EXPECT_TRUE(is<ex::mqtt_failure>(ex::map_failure(4, "")));
    EXPECT_STREQ(topic.what(),
                 "The provided topic 'a#' is invalid. Enter a valid topic in the settings of the "
                 "sensor.");
}

TEST(mqtt_messages, catalogue_keys_are_distinct_and_keep_their_agreed_forms) {
    const auto all = mqtt::messages::all();
    EXPECT_EQ(all.size(), 32u);
    std::set<std::string> keys;
    for (const auto* msg : all) {
        keys.insert(msg->key());
        EXPECT_EQ(msg->key().rfind("error.", 0), 0u) << msg->key();
    }
    EXPECT_EQ(keys.size(), all.size());
    EXPECT_TRUE(keys.count("error.mqttasync_persistence"));
    EXPECT_EQ(mqtt::messages::not_authorized().default_text(),
              mqtt::messages::bad_username_or_password().default_text());
    EXPECT_EQ(mqtt::messages::timeout()("5 s").render(), "Timeout. 5 s");
}

}  // namespace
