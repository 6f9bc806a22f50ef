#pragma once

#include <mutex>
#include <string>

#include "libtavohelper/sensors/sensor_base.h"
#include "mqtt/settings/connection_settings.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// Values of the state channel (lookup "rttstate").
enum class roundtrip_state : long {
    subscriber_could_not_connect = 0,
    publisher_could_not_connect = 1,
    message_not_sent = 2,
    message_not_received = 3,
    roundtrip_complete = 4,
};

// Publishes a random payload on a topic of its own through one client and waits for
// it on another: reports both connection times, the round-trip time and a state.
class roundtrip_sensor : public libtavohelper::sensors::sensor_base<settings::roundtrip_sensor> {
  public:
    roundtrip_sensor(int id, const libtavohelper::settings::sensor_data_wrapper& data,
                     std::shared_ptr<libtavohelper::module::service_container> container);

  protected:
    libtavohelper::responses::sensor_scan_result work() override;

  private:
    mqtt_client_settings client_settings(const std::string& role) const;

    std::string tag_;   // keeps sensors with equal settings apart at the broker
    std::mutex mutex_;  // scans of one sensor never overlap
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
