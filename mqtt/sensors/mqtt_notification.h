#pragma once

#include <memory>

#include "libtavohelper/module/service_container.h"
#include "libtavohelper/notifications/notification.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// Publishes a notification's text to a topic on the broker its settings name.
class mqtt_notification : public libtavohelper::notifications::service_interface {
  public:
    explicit mqtt_notification(std::shared_ptr<libtavohelper::module::service_container> container)
        : container_(std::move(container)) {}

    // Throws the settings, connection and publish failures after logging them.
    void send_notification(const libtavohelper::notifications::request& req,
                           const libtavohelper::settings::sensor_data_wrapper& data,
                           const std::shared_ptr<liblog::log_interface>& log) override;

  private:
    std::shared_ptr<libtavohelper::module::service_container> container_;
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
