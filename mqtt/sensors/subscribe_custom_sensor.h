#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "libjsonparser/jsonpath_parser.h"
#include "libparser/parser_interface.h"
#include "libtavohelper/sensors/sensor_base.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/settings/subscribe_custom_settings.h"
#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

// Keys of the sensor's persistent data.
inline constexpr const char* last_sensor_result_key = "last_sensor_result";
inline constexpr const char* time_of_last_message_key = "time_of_last_message";

// Subscribes to a topic filter and turns the latest message's JSON payload into up to ten
// channels (ids 1 to 10), a sensor message and the seconds since that message (id 0).
// The last good result and the message's receipt time go to the host's persistent data,
// and stand in for a scan that finds no message, also after a restart.
//
// The payload parser comes from the container's libparser::parser_interface factory taking
// the payload as std::string. Construction throws the settings errors and what client
// acquisition and subscription throw; no sensor is created then.
class subscribe_custom_sensor
    : public libtavohelper::sensors::sensor_base<settings::subscribe_custom_sensor> {
  public:
    static constexpr int duration_channel = 0;

    subscribe_custom_sensor(int id, const libtavohelper::settings::sensor_data_wrapper& data,
                            std::shared_ptr<libtavohelper::module::service_container> container);
    ~subscribe_custom_sensor() override;

  protected:
    // Takes the waiting message, if any; throws for an empty or unparsable payload.
    libtavohelper::responses::sensor_scan_result work() override;

  private:
    // Shared with the subscription's handler, which may still run on a library thread
    // while the sensor is being destroyed.
    struct message_slot {
        std::mutex mutex;
        std::shared_ptr<const received_message> message;  // guarded by mutex
    };

    class payload_reader;

    // Whether debug lines reach the host; saves building the ones that would not.
    bool tracing() const;

    void register_channels();
    libtavohelper::responses::sensor_scan_result evaluate(const received_message& message);
    // Appends one entry per failed query to `errors`.
    void read_message(const payload_reader& payload,
                      libtavohelper::responses::sensor_scan_result& result, std::string& errors);
    void read_channel(int number, const payload_reader& payload,
                      libtavohelper::responses::sensor_scan_result& result, std::string& errors);
    void persist_result(libtavohelper::responses::sensor_scan_result& result,
                        std::chrono::system_clock::time_point received);
    libtavohelper::responses::sensor_scan_result restore();
    bool restore_last_result(libtavohelper::responses::sensor_scan_result& result);
    bool restore_time_since_last_message(libtavohelper::responses::sensor_scan_result& result);

    // Compiled once; queries with them give what the same queries with the path texts give.
    std::array<std::optional<libjsonparser::compiled_jsonpath>, settings::custom_channel_count>
        channel_paths_;  // set for active channels only
    std::optional<libjsonparser::compiled_jsonpath> message_path_;

    std::shared_ptr<libtavohelper::module::sensor_log> sensor_log_;  // empty without a host log
    std::shared_ptr<message_slot> slot_ = std::make_shared<message_slot>();
    std::shared_ptr<mqtt_client_interface> client_;
    std::shared_ptr<topic_subscription> subscription_;
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
