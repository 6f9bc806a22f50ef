#include "mqtt/sensors/mqtt_notification.h"

#include "mqtt/client_pool.h"
#include "mqtt/settings/connection_settings.h"
#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

using liblog::severity;

void mqtt_notification::send_notification(const libtavohelper::notifications::request& req,
                                          const libtavohelper::settings::sensor_data_wrapper& data,
                                          const std::shared_ptr<liblog::log_interface>& log) {
    log->log(severity::debug, "send_notification start");
    try {
        check_publish_topic(req.get_target());  // a bad topic would cost the connection
        log->log(severity::debug, "create client settings");
        const auto client_settings =
            settings::to_client_settings(settings::mqtt_notification(data), req.get_timeout_s());
        log->log(severity::debug, "get mqtt client");
        // Only the connection's notices and worse go back to the host with the response.
        auto client =
            acquire_client(*container_, client_settings, log, liblog::to_int(severity::notice));
        log->log(severity::debug, "publish message");
        try {
            client->publish(req.get_target(), req.get_message(), quality_of_service::at_least_once,
                            false);
        } catch (...) {
            client->remove_logger(log);
            throw;
        }
        client->remove_logger(log);
        log->log(severity::debug, "send_notification finished");
    } catch (const std::exception& e) {
        log->log(severity::error, std::string("send_notification failed: ") + e.what());
        throw;
    }
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
