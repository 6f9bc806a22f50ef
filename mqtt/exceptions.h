#pragma once

#include <cstdint>
#include <exception>
#include <string_view>
#include <vector>

#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::mqtt {

namespace messages {
#define MQTT_MSG(name, text) LIBI18N_MESSAGE(name, "error." #name, text)
MQTT_MSG(bad_username_or_password,
         "The sensor could not establish a connection to the MQTT broker (server). Check your "
         "credentials for MQTT.")
MQTT_MSG(not_authorized,
         "The sensor could not establish a connection to the MQTT broker (server). Check your "
         "credentials for MQTT.")
MQTT_MSG(identifier_rejected, "Identifier rejected")
MQTT_MSG(server_unavailable, "Server unavailable")
MQTT_MSG(unacceptable_protocol_version, "Unacceptable protocol version")
MQTT_MSG(connection_lost, "The connection to the MQTT broker (server) was lost.")
MQTT_MSG(could_not_publish_not_connected, "Could not publish - not connected.")
MQTT_MSG(message_too_long, "Message too long.")
MQTT_MSG(invalid_topic,
         "The provided topic '%0:s' is invalid. Enter a valid topic in the settings of the sensor.")
MQTT_MSG(payload_corrupted, "The payload is corrupted.")
MQTT_MSG(payload_empty, "The received payload is empty.")
MQTT_MSG(tcp_connection_timeout, "TCP connect timeout")
MQTT_MSG(tcp_tls_connect_failure, "TCP/TLS connect failure")
MQTT_MSG(mqttasync_0_len_will_topic, "0 length will topic")
MQTT_MSG(mqttasync_bad_mqtt_option, "Do not use options for a different version of MQTT")
MQTT_MSG(mqttasync_bad_protocol,
         "Protocol prefix in serverURI should be tcp://, ssl://, ws://, or wss://.")
MQTT_MSG(mqttasync_bad_qos, "A qos parameter is not 0, 1 or 2.")
MQTT_MSG(mqttasync_bad_structure,
         "A structure parameter does not have the correct eyecatcher and version number.")
MQTT_MSG(mqttasync_bad_utf8_string, "An invalid UTF-8 string has been detected.")
MQTT_MSG(mqttasync_disconnected, "The client is disconnected.")
MQTT_MSG(mqttasync_max_buffered_messages, "No more messages can be buffered")
MQTT_MSG(mqttasync_max_messages_inflight,
         "The maximum number of messages allowed to be simultaneously in-flight has been reached.")
MQTT_MSG(mqttasync_no_more_msgids, "All 65535 MQTT msgids are being used.")
MQTT_MSG(mqttasync_null_parameter, "A NULL parameter has been supplied when this is invalid.")
MQTT_MSG(mqttasync_operation_incomplete, "The request is being discarded when not complete")
// The key deliberately lacks the class name's last word.
LIBI18N_MESSAGE(mqttasync_persistence_error, "error.mqttasync_persistence", "Persistence is futile")
MQTT_MSG(mqttasync_ssl_not_supported, "Attempting SSL connection using non-SSL version of library.")
MQTT_MSG(mqttasync_topicname_truncated,
         "The topic has been truncated (the topic string includes embedded NULL characters). "
         "String functions will not access the full topic. Use the topic length value to access "
         "the full topic.")
MQTT_MSG(mqttasync_wrong_mqtt_version, "Call not applicable to the client's version of MQTT")
MQTT_MSG(server_authentication_activated_but_ca_is_empty,
         "Server Authentification is activated, but CA certificate is empty.")
MQTT_MSG(client_authentication_activated_but_certificate_is_empty,
         "Client Authentification is activated, but client certificate is empty.")
MQTT_MSG(timeout, "Timeout. %0:s")
// Connection failures that name the broker (host:port) and the reason.
MQTT_MSG(tls_failure_at, "The TLS connection to %0:s failed: %1:s")
MQTT_MSG(host_not_found, "The host name '%0:s' could not be resolved.")
MQTT_MSG(no_answer_at, "%0:s did not acknowledge the connection within %1:s seconds.")
MQTT_MSG(subscription_refused, "The broker at %0:s refused the subscription to '%1:s'.")
MQTT_MSG(connection_refused_at, "The connection to %0:s was refused: nothing listens on that port.")
MQTT_MSG(connection_failed_at, "The connection to %0:s failed: %1:s")
MQTT_MSG(tls_expected_at,
         "%0:s closed the connection: the port expects TLS, which is off in the settings.")
MQTT_MSG(login_refused_at,
         "The broker at %0:s refused the login. Check the user name and password in the settings.")
MQTT_MSG(connection_rejected_at, "The broker at %0:s rejected the connection: %1:s")
#undef MQTT_MSG

// Every definition above, for catalogue checks. client_failure carries the library's own
// text in the generic message (libi18n.error.generic) and has no key of its own.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace exceptions {

#define MQTT_EXCEPTION(name, base)                             \
    class name : public libi18n::_i18n_exception<base> {       \
      public:                                                  \
        using libi18n::_i18n_exception<base>::_i18n_exception; \
    };

// Base of every MQTT failure.
MQTT_EXCEPTION(mqtt_failure, libi18n::i18n_exception)
// Failures reported by the MQTT library or the broker.
MQTT_EXCEPTION(client_failure, mqtt_failure)

// Broker refusals (CONNACK codes 1 to 5).
MQTT_EXCEPTION(unacceptable_protocol_version, client_failure)
MQTT_EXCEPTION(identifier_rejected, client_failure)
MQTT_EXCEPTION(server_unavailable, client_failure)
MQTT_EXCEPTION(bad_username_or_password, client_failure)
MQTT_EXCEPTION(not_authorized, client_failure)

// Library return codes.
MQTT_EXCEPTION(mqttasync_persistence_error, client_failure)
MQTT_EXCEPTION(mqttasync_disconnected, client_failure)
MQTT_EXCEPTION(mqttasync_max_messages_inflight, client_failure)
MQTT_EXCEPTION(mqttasync_bad_utf8_string, client_failure)
MQTT_EXCEPTION(mqttasync_null_parameter, client_failure)
MQTT_EXCEPTION(mqttasync_topicname_truncated, client_failure)
MQTT_EXCEPTION(mqttasync_bad_structure, client_failure)
MQTT_EXCEPTION(mqttasync_bad_qos, client_failure)
MQTT_EXCEPTION(mqttasync_no_more_msgids, client_failure)
MQTT_EXCEPTION(mqttasync_operation_incomplete, client_failure)
MQTT_EXCEPTION(mqttasync_max_buffered_messages, client_failure)
MQTT_EXCEPTION(mqttasync_ssl_not_supported, client_failure)
MQTT_EXCEPTION(mqttasync_bad_protocol, client_failure)
MQTT_EXCEPTION(mqttasync_bad_mqtt_option, client_failure)
MQTT_EXCEPTION(mqttasync_wrong_mqtt_version, client_failure)
MQTT_EXCEPTION(mqttasync_0_len_will_topic, client_failure)

// Network failures, told apart by the library's text.
MQTT_EXCEPTION(tcp_tls_connect_failure, client_failure)
MQTT_EXCEPTION(tcp_connection_timeout, client_failure)
MQTT_EXCEPTION(host_not_found, client_failure)
MQTT_EXCEPTION(subscription_refused, client_failure)

// Publishing.
MQTT_EXCEPTION(could_not_publish_not_connected, mqtt_failure)
MQTT_EXCEPTION(message_too_long, mqtt_failure)

// Topic filters and sensors.
MQTT_EXCEPTION(invalid_topic, mqtt_failure)
MQTT_EXCEPTION(connection_lost, mqtt_failure)
MQTT_EXCEPTION(timeout, mqtt_failure)
MQTT_EXCEPTION(payload_empty, mqtt_failure)
MQTT_EXCEPTION(payload_corrupted, mqtt_failure)

// TLS settings.
MQTT_EXCEPTION(server_authentication_activated_but_ca_is_empty, mqtt_failure)
MQTT_EXCEPTION(client_authentication_activated_but_certificate_is_empty, mqtt_failure)

#undef MQTT_EXCEPTION

// The exception for a library return code or failure code (negative: library, 1..5: the
// broker's CONNACK) and the library's text. Code -1 is told apart by the exact text; unknown
// codes give a client_failure with empty text. Never throws the exception itself.
std::exception_ptr map_failure(std::int32_t code, std::string_view text);

}  // namespace exceptions

}  // namespace corvanis::monitoring_modules::mqtt
