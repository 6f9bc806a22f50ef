#pragma once

#include "libtavohelper/checks/check_base.h"
#include "mqtt/settings/connection_settings.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// Whether a client with these credentials gets connected to the broker.
class mqtt_connect_check : public libtavohelper::checks::check_base<settings::mqtt_connect_check> {
  public:
    mqtt_connect_check(int id, const libtavohelper::settings::sensor_data_wrapper& data,
                       std::shared_ptr<libtavohelper::module::service_container> container);
    // Never throws: a failure leaves the result unsuccessful and carries its reason.
    libtavohelper::responses::check_result work() override;
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
