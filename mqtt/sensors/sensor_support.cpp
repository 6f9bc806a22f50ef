#include "mqtt/sensors/sensor_support.h"

#include <string>

namespace corvanis::monitoring_modules::mqtt::sensors {

std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, mqtt_client_settings settings,
    const std::shared_ptr<liblog::log_interface>& log, int threshold) {
    settings.logger = log;
    auto client = container.acquire<mqtt_client_interface, mqtt_client_settings>(settings);
    // A shared client was made for another sensor's log; join its fan-out.
    client->add_logger(log, threshold);
    log->log(liblog::severity::debug,
             "Using MQTT Client with Client ID: " + client->get_client_id());
    log->log(liblog::severity::debug, "  Number of active Clients    : " +
                                          std::to_string(client->get_active_client_count()));
    log->log(liblog::severity::debug, "  Subscriptions on used Client: " +
                                          std::to_string(client->get_subscribed_topic_count()));
    return client;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
