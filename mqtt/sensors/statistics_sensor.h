#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>

#include "libtavohelper/sensors/sensor_base.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/settings/connection_settings.h"
#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// Counts messages, payload bytes and distinct topics on a topic filter, per scan interval.
class statistics_sensor : public libtavohelper::sensors::sensor_base<settings::statistics_sensor> {
  public:
    statistics_sensor(int id, const libtavohelper::settings::sensor_data_wrapper& data,
                      std::shared_ptr<libtavohelper::module::service_container> container);
    ~statistics_sensor() override;

  protected:
    libtavohelper::responses::sensor_scan_result work() override;

  private:
    // Shared with the subscription's handler, which may still run on a library
    // thread while the sensor is being destroyed.
    struct counters {
        std::atomic<std::uint64_t> messages{0};
        std::atomic<std::uint64_t> bytes{0};
        std::mutex topics_mutex;
        std::unordered_set<std::string> topics;  // guarded by topics_mutex
    };

    std::shared_ptr<counters> counters_ = std::make_shared<counters>();
    std::shared_ptr<mqtt_client_interface> client_;
    std::shared_ptr<topic_subscription> subscription_;
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
