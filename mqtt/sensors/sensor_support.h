#pragma once

#include <memory>

#include "liblog/log_interface.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/mqtt_client_settings.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// The shared client for these settings (made and connected if new), with `log`
// attached to its fan-out at `threshold`; writes the three usage lines to `log`.
// Throws what client creation throws (the mapped connection failures).
std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, mqtt_client_settings settings,
    const std::shared_ptr<liblog::log_interface>& log,
    int threshold = liblog::to_int(liblog::severity::debug));

}  // namespace corvanis::monitoring_modules::mqtt::sensors
