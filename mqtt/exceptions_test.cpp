#include <gtest/gtest.h>

#include <typeinfo>

#include "mqtt/exceptions.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace ex = mqtt::exceptions;

namespace {

// Broker refusals and the library's own codes map to their types (of the latter both ends, -2
// with a shortened key, and the one requests meet in practice), dropping the text. Code -1 is
// told apart by the exact text; unknown codes drop the text they came with.
TEST(map_failure, codes_and_texts_map_to_their_types) {
    const auto* tcp_tls = &typeid(ex::tcp_tls_connect_failure);
    const auto* generic = &typeid(ex::client_failure);
    const struct {
        int code;
        const char* text;
        const char* key;
        const std::type_info* type;
        std::vector<std::string> args = {};
    } table[] = {
        {-17, "x", "error.mqttasync_0_len_will_topic", &typeid(ex::mqttasync_0_len_will_topic)},
        {-3, "x", "error.mqttasync_disconnected", &typeid(ex::mqttasync_disconnected)},
        {-2, "x", "error.mqttasync_persistence", &typeid(ex::mqttasync_persistence_error)},
        {1, "x", "error.unacceptable_protocol_version", &typeid(ex::unacceptable_protocol_version)},
        {2, "x", "error.identifier_rejected", &typeid(ex::identifier_rejected)},
        {3, "x", "error.server_unavailable", &typeid(ex::server_unavailable)},
        {4, "x", "error.bad_username_or_password", &typeid(ex::bad_username_or_password)},
        {5, "x", "error.not_authorized", &typeid(ex::not_authorized)},
        {-1, "TCP/TLS connect failure", "error.tcp_tls_connect_failure", tcp_tls},
        {-1, "TCP connect completion failure", "error.tcp_tls_connect_failure", tcp_tls},
        {-1, "socket error", "error.tcp_tls_connect_failure", tcp_tls},
        {-1, "TCP connect timeout", "error.tcp_connection_timeout",
         &typeid(ex::tcp_connection_timeout)},
        {-1, "TCP connect timeout.", "libi18n.error.generic", generic, {"TCP connect timeout."}},
        {-1, "socket Error", "libi18n.error.generic", generic, {"socket Error"}},
        {-1, "", "libi18n.error.generic", generic, {""}},
        {0, "x", "libi18n.error.generic", generic, {""}},
        {6, "x", "libi18n.error.generic", generic, {""}},
        {-18, "x", "libi18n.error.generic", generic, {""}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(std::to_string(row.code) + " '" + row.text + "'");
        try {
            std::rethrow_exception(ex::map_failure(row.code, row.text));
        } catch (const ex::client_failure& e) {
            EXPECT_EQ(e.message().key(), row.key);
            EXPECT_EQ(e.message().args(), row.args);
            EXPECT_EQ(typeid(e), *row.type) << typeid(e).name();
        }
    }
}

// The client's own refusals are caught apart from the library's failures.
TEST(mqtt_exceptions, own_failures_are_no_client_failure_and_carry_their_argument) {
    try {
        throw ex::invalid_topic(mqtt::messages::invalid_topic()("a#"));
    } catch (const ex::client_failure&) {
        ADD_FAILURE() << "taken for a library failure";
    } catch (const ex::mqtt_failure& e) {
        EXPECT_STREQ(e.what(),
                     "The provided topic 'a#' is invalid. Enter a valid topic in the settings of "
                     "the sensor.");
    }
}

}  // namespace
