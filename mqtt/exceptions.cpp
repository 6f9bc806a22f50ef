#include "mqtt/exceptions.h"

#include <string>

namespace corvanis::monitoring_modules::mqtt {

namespace messages {
std::vector<const libi18n::i18n_msg*> all() {
    return {&bad_username_or_password(),
            &not_authorized(),
            &identifier_rejected(),
            &server_unavailable(),
            &unacceptable_protocol_version(),
            &connection_lost(),
            &could_not_publish_not_connected(),
            &message_too_long(),
            &invalid_topic(),
            &payload_corrupted(),
            &payload_empty(),
            &tcp_connection_timeout(),
            &tcp_tls_connect_failure(),
            &mqttasync_0_len_will_topic(),
            &mqttasync_bad_mqtt_option(),
            &mqttasync_bad_protocol(),
            &mqttasync_bad_qos(),
            &mqttasync_bad_structure(),
            &mqttasync_bad_utf8_string(),
            &mqttasync_disconnected(),
            &mqttasync_max_buffered_messages(),
            &mqttasync_max_messages_inflight(),
            &mqttasync_no_more_msgids(),
            &mqttasync_null_parameter(),
            &mqttasync_operation_incomplete(),
            &mqttasync_persistence_error(),
            &mqttasync_ssl_not_supported(),
            &mqttasync_topicname_truncated(),
            &mqttasync_wrong_mqtt_version(),
            &server_authentication_activated_but_ca_is_empty(),
            &client_authentication_activated_but_certificate_is_empty(),
            &timeout(),
            &tls_failure_at(),
            &host_not_found(),
            &no_answer_at(),
            &subscription_refused(),
            &connection_refused_at(),
            &connection_failed_at(),
            &tls_expected_at(),
            &login_refused_at(),
            &connection_rejected_at()};
}
}  // namespace messages

namespace exceptions {

namespace {

template <class E>
std::exception_ptr make(const libi18n::i18n_msg& definition) {
    return std::make_exception_ptr(E(definition()));
}

std::exception_ptr client_failure_with(std::string_view text) {
    return std::make_exception_ptr(client_failure(libi18n::messages::generic()(std::string(text))));
}

// The library's texts for a failed TCP or TLS connect (code -1).
std::exception_ptr map_failure_text(std::string_view text) {
    static const std::string tls_connect_failure = "TCP/TLS connect failure";
    static const std::string tcp_completion_failure = "TCP connect completion failure";
    static const std::string socket_error = "socket error";
    static const std::string tcp_connect_timeout = "TCP connect timeout";
    if (text == tls_connect_failure || text == tcp_completion_failure || text == socket_error) {
        return make<tcp_tls_connect_failure>(messages::tcp_tls_connect_failure());
    }
    if (text == tcp_connect_timeout) {
        return make<tcp_connection_timeout>(messages::tcp_connection_timeout());
    }
    return client_failure_with(text);
}

}  // namespace

std::exception_ptr map_failure(std::int32_t code, std::string_view text) {
    switch (code) {
        case -17:
            return make<mqttasync_0_len_will_topic>(messages::mqttasync_0_len_will_topic());
        case -16:
            return make<mqttasync_wrong_mqtt_version>(messages::mqttasync_wrong_mqtt_version());
        case -15:
            return make<mqttasync_bad_mqtt_option>(messages::mqttasync_bad_mqtt_option());
        case -14:
            return make<mqttasync_bad_protocol>(messages::mqttasync_bad_protocol());
        case -13:
            return make<mqttasync_ssl_not_supported>(messages::mqttasync_ssl_not_supported());
        case -12:
            return make<mqttasync_max_buffered_messages>(
                messages::mqttasync_max_buffered_messages());
        case -11:
            return make<mqttasync_operation_incomplete>(messages::mqttasync_operation_incomplete());
        case -10:
            return make<mqttasync_no_more_msgids>(messages::mqttasync_no_more_msgids());
        case -9:
            return make<mqttasync_bad_qos>(messages::mqttasync_bad_qos());
        case -8:
            return make<mqttasync_bad_structure>(messages::mqttasync_bad_structure());
        case -7:
            return make<mqttasync_topicname_truncated>(messages::mqttasync_topicname_truncated());
        case -6:
            return make<mqttasync_null_parameter>(messages::mqttasync_null_parameter());
        case -5:
            return make<mqttasync_bad_utf8_string>(messages::mqttasync_bad_utf8_string());
        case -4:
            return make<mqttasync_max_messages_inflight>(
                messages::mqttasync_max_messages_inflight());
        case -3:
            return make<mqttasync_disconnected>(messages::mqttasync_disconnected());
        case -2:
            return make<mqttasync_persistence_error>(messages::mqttasync_persistence_error());
        case -1:
            return map_failure_text(text);
        case 1:
            return make<unacceptable_protocol_version>(messages::unacceptable_protocol_version());
        case 2:
            return make<identifier_rejected>(messages::identifier_rejected());
        case 3:
            return make<server_unavailable>(messages::server_unavailable());
        case 4:
            return make<bad_username_or_password>(messages::bad_username_or_password());
        case 5:
            return make<not_authorized>(messages::not_authorized());
        default:
            return client_failure_with({});
    }
}

}  // namespace exceptions

}  // namespace corvanis::monitoring_modules::mqtt
