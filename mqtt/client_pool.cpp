#include "mqtt/client_pool.h"

#include <algorithm>
#include <string>

namespace corvanis::monitoring_modules::mqtt {

using liblog::severity;

namespace {

// Stands in for the requester's log while a new client makes its first attempt: the settings
// carry no threshold, and add_logger can only set one once the client exists.
class threshold_filter : public liblog::log_interface {
  public:
    threshold_filter(std::shared_ptr<liblog::log_interface> target, int threshold)
        : target_(std::move(target)), threshold_(threshold) {}
    void log(severity level, const std::string& text) override {
        if (liblog::to_int(level) <= threshold_) target_->log(level, text);
    }
    int keeps_up_to() const noexcept override {
        return std::min(threshold_, target_->keeps_up_to());
    }

  private:
    std::shared_ptr<liblog::log_interface> target_;
    int threshold_;
};

}  // namespace

std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, mqtt_client_settings settings,
    const std::shared_ptr<liblog::log_interface>& log, int threshold) {
    std::shared_ptr<liblog::log_interface> first_attempt = log;
    if (log && threshold < liblog::to_int(severity::debug)) {
        first_attempt = std::make_shared<threshold_filter>(log, threshold);
    }
    settings.logger = first_attempt;
    auto client = container.acquire<mqtt_client_interface, mqtt_client_settings>(settings);
    // A shared client was made for another requester's log; join its fan-out. The filter
    // leaves only after, so no line falls between the two.
    client->add_logger(log, threshold);
    if (first_attempt != log) client->remove_logger(first_attempt);
    if (log) {
        log->log(severity::debug, "Using MQTT Client with Client ID: " + client->get_client_id());
        log->log(severity::debug, "  Number of active Clients    : " +
                                      std::to_string(client->get_active_client_count()));
        log->log(severity::debug, "  Subscriptions on used Client: " +
                                      std::to_string(client->get_subscribed_topic_count()));
    }
    return client;
}

}  // namespace corvanis::monitoring_modules::mqtt
