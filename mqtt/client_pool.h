#pragma once

#include <memory>

#include "liblog/log_interface.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/mqtt_client_settings.h"

namespace corvanis::monitoring_modules::mqtt {

// The one way a sensor, the check or the notification gets a client: the live client for equal
// settings, or a new one from the factory registered for mqtt_client_interface
// (make_client_factory). Acquisitions for other settings run in parallel; equal settings wait
// for a new client's first connection attempt and share its outcome. The pool drops its copy of
// the settings with the client. A client whose users have all gone is never revived: later
// acquisitions for its settings each get a client of their own.
//
// `log` receives the client's lines of severity <= `threshold`, from a new client's first
// connection attempt on, and then the three usage lines (client id, live clients, filters in
// use) at debug. Throws what the factory throws (the mapped connection failures), leaving
// nothing stored.
std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, mqtt_client_settings settings,
    const std::shared_ptr<liblog::log_interface>& log,
    int threshold = liblog::to_int(liblog::severity::debug));

}  // namespace corvanis::monitoring_modules::mqtt
