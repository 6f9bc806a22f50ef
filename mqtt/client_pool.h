#pragma once

#include <memory>

#include "liblog/log_interface.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/mqtt_client_settings.h"

namespace corvanis::monitoring_modules::mqtt {

// The live client for equal settings, or a new one from the factory registered for
// mqtt_client_interface (make_client_factory). Acquisitions for other settings run in parallel;
// equal settings wait for a new client's first connection attempt and share its outcome. The
// pool drops its copy of the settings with the client. A client whose users have all gone is
// never revived:
// later acquisitions for its settings each get a client of their own. Throws what the
// factory throws, leaving nothing stored.
std::shared_ptr<mqtt_client_interface> acquire_client(
    libtavohelper::module::service_container& container, const mqtt_client_settings& settings);

// The three lines a user writes after acquiring: client id, live clients, filters in use.
void log_client_usage(liblog::log_interface& log, const mqtt_client_interface& client,
                      liblog::severity level = liblog::severity::debug);

}  // namespace corvanis::monitoring_modules::mqtt
