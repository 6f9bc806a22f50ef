#include <gtest/gtest.h>

#include "mqtt/exceptions.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ex = mqtt::exceptions;

namespace {

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

// The message key and arguments of a mapped client_failure.
std::pair<std::string, std::vector<std::string>> message_of(std::exception_ptr mapped) {
    try {
        std::rethrow_exception(mapped);
    } catch (const ex::client_failure& e) {
        return {e.message().key(), e.message().args()};
    } catch (...) {
    }
    return {"not a client_failure", {}};
}

// Every broker refusal; of the library's own codes both ends (-2 has a shortened key) and the
// one requests meet in practice.
TEST(map_failure, broker_refusals_and_library_codes_map_to_their_types) {
    const struct {
        int code;
        const char* key;
        bool (*check)(std::exception_ptr);
    } table[] = {
        {-17, "error.mqttasync_0_len_will_topic", &is<ex::mqttasync_0_len_will_topic>},
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
        EXPECT_EQ(message_of(mapped),
                  std::make_pair(std::string(row.key), std::vector<std::string>{}))
            << row.code;
        EXPECT_TRUE(row.check(mapped)) << row.code;
    }
}

// Code -1 is told apart by the exact text; unknown codes drop the text they came with.
TEST(map_failure, connect_failure_texts_and_unknown_codes) {
    const struct {
        int code;
        const char* text;
        const char* key;
        std::vector<std::string> args;
    } table[] = {
        {-1, "TCP/TLS connect failure", "error.tcp_tls_connect_failure", {}},
        {-1, "TCP connect completion failure", "error.tcp_tls_connect_failure", {}},
        {-1, "socket error", "error.tcp_tls_connect_failure", {}},
        {-1, "TCP connect timeout", "error.tcp_connection_timeout", {}},
        {-1, "TCP connect timeout.", "libi18n.error.generic", {"TCP connect timeout."}},
        {-1, "socket Error", "libi18n.error.generic", {"socket Error"}},
        {-1, "", "libi18n.error.generic", {""}},
        {0, "dropped", "libi18n.error.generic", {""}},
        {6, "dropped", "libi18n.error.generic", {""}},
        {-18, "dropped", "libi18n.error.generic", {""}},
    };
    for (const auto& row : table) {
        EXPECT_EQ(message_of(ex::map_failure(row.code, row.text)),
                  std::make_pair(std::string(row.key), row.args))
            << row.code << " " << row.text;
    }
    EXPECT_TRUE(is<ex::tcp_connection_timeout>(ex::map_failure(-1, "TCP connect timeout")));
    EXPECT_TRUE(is<ex::tcp_tls_connect_failure>(ex::map_failure(-1, "socket error")));
}

TEST(mqtt_exceptions, families_separate_library_failures_from_the_others) {
    const ex::could_not_publish_not_connected publish(
        mqtt::messages::could_not_publish_not_connected()());
    EXPECT_FALSE(is<ex::client_failure>(std::make_exception_ptr(publish)));
    EXPECT_TRUE(is<ex::mqtt_failure>(std::make_exception_ptr(publish)));
    EXPECT_TRUE(is<ex::mqtt_failure>(ex::map_failure(4, "")));
    EXPECT_STREQ(ex::invalid_topic(mqtt::messages::invalid_topic()("a#")).what(),
                 "The provided topic 'a#' is invalid. Enter a valid topic in the settings of the "
                 "sensor.");
    EXPECT_EQ(mqtt::messages::not_authorized().default_text(),
              mqtt::messages::bad_username_or_password().default_text());
    EXPECT_EQ(mqtt::messages::timeout()("5 s").render(), "Timeout. 5 s");
}

}  // namespace
