#include "mqtt/client_pool.h"

#include <string>

namespace corvanis::monitoring_modules::mqtt {

std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, const mqtt_client_settings& settings) {
    return container.acquire<mqtt_client_interface, mqtt_client_settings>(settings);
}

void log_client_usage(liblog::log_interface& log, const mqtt_client_interface& client,
                      liblog::severity level) {
    log.log(level, "Using MQTT Client with Client ID: " + client.get_client_id());
    log.log(level,
            "  Number of active Clients    : " + std::to_string(client.get_active_client_count()));
    log.log(level, "  Subscriptions on used Client: " +
                       std::to_string(client.get_subscribed_topic_count()));
}

}  // namespace corvanis::monitoring_modules::mqtt
