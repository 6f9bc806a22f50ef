#pragma once

// The C callbacks the library calls on a mqtt_client_paho. For mqtt_client_paho.cpp and for
// tests and benchmarks that drive them with synthetic library structures (allocate those with
// MQTTAsync_malloc: the handlers free them as the library's own).
#if !defined(MQTTASYNC_H)
#error "include MQTTAsync.h before mqtt/paho_callbacks.h"
#endif

#include <cstddef>
#include <memory>

#include "mqtt/mqtt_client_interface.h"

namespace corvanis::monitoring_modules::mqtt {

// Every handler takes the client as context, runs on a library thread, never throws and
// returns at once while the client is being destroyed.
struct paho_callbacks {
    static void on_connect_success(void* context, MQTTAsync_successData* response) noexcept;
    static void on_connect_failure(void* context, MQTTAsync_failureData* response) noexcept;
    static void on_connection_lost(void* context, char* cause) noexcept;
    static void on_connected(void* context, char* cause) noexcept;
    // Takes the topic and the message: frees both and returns 1.
    static int on_message_arrived(void* context, char* topic_name, int topic_length,
                                  MQTTAsync_message* message) noexcept;
    static void on_delivery_complete(void* context, MQTTAsync_token token) noexcept;
    static int on_ssl_error(const char* text, std::size_t length, void* context) noexcept;

    // Completion of one subscribe, unsubscribe or publish; the context is the request's own.
    static void on_request_success(void* context, MQTTAsync_successData* response) noexcept;
    static void on_request_failure(void* context, MQTTAsync_failureData* response) noexcept;

    // The dispatch that on_message_arrived hands each copied message to.
    static void dispatch(void* context, const std::shared_ptr<const received_message>& message);
};

}  // namespace corvanis::monitoring_modules::mqtt
