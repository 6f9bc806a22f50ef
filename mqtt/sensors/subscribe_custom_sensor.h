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

namespace corvanis::monitoring_modules::mqtt::messages {
LIBI18N_MESSAGE(channel_jsonpath_invalid, "error.channel_jsonpath_invalid",
                "Channel %0:s: The provided JSONPath '%1:s' is incorrect. %2:s")
LIBI18N_MESSAGE(message_jsonpath_invalid, "error.message_jsonpath_invalid",
                "Sensor Message: The provided JSONPath '%0:s' is incorrect. %1:s")

// The definitions above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> subscribe_custom_messages();
}  // namespace corvanis::monitoring_modules::mqtt::messages

namespace corvanis::monitoring_modules::mqtt::sensors {

// Keys of the sensor's persistent data.
inline constexpr const char* last_sensor_result_key = "last_sensor_result";
inline constexpr const char* time_of_last_message_key = "time_of_last_message";

// The definition of custom channel `number` (1 to 10): key "channel.channel_<number>", the
// user's name, unit and scale factor, and the kind its type stands for.
libtavohelper::channels::dynamic_channel custom_channel_definition(
    int number, const settings::custom_channel_settings& channel);

// The queries of one sensor: its sensor message and its active channels, with the paths
// compiled once. Immutable, so scans may share it.
class custom_channel_evaluator {
  public:
    using channel_array =
        std::array<settings::custom_channel_settings, settings::custom_channel_count>;

    // Throws libjsonparser's query_error, naming the channel or the sensor message, for an
    // active path that does not compile.
    custom_channel_evaluator(const channel_array& channels, const std::string& message_path);

    // Sets the sensor message and the values found in `payload` on `result` (whose channel
    // map must define the active channels) and returns one entry per failed query ("Sensor
    // Message: ... ", "Channel N: ... "), empty when none failed. Debug lines go to `log`
    // only when `trace` is set. Exceptions that are not localisable pass through.
    std::string evaluate(const libparser::parser_interface& payload,
                         libtavohelper::responses::sensor_scan_result& result,
                         liblog::log_interface& log, bool trace) const;

  private:
    class reader;
    struct channel {
        libjsonparser::compiled_jsonpath path;
        settings::channel_type type;
    };

    void read_message(const reader& payload, libtavohelper::responses::sensor_scan_result& result,
                      liblog::log_interface& log, bool trace, std::string& errors) const;
    void read_channel(int number, const reader& payload,
                      libtavohelper::responses::sensor_scan_result& result,
                      liblog::log_interface& log, bool trace, std::string& errors) const;

    // Queries with compiled paths give what the same queries with the path texts give.
    std::array<std::optional<channel>, settings::custom_channel_count> channels_;  // active ones
    std::optional<libjsonparser::compiled_jsonpath> message_path_;
};

// Subscribes to a topic filter and turns the latest message's JSON payload into up to ten
// channels (ids 1 to 10), a sensor message and the seconds since that message (id 0).
// The last good result and the message's receipt time go to the host's persistent data,
// and stand in for a scan that finds no message, also after a restart.
//
// The payload parser comes from the container's libparser::parser_interface factory taking
// the payload as std::string. Construction throws the settings errors, the evaluator's
// path errors and what client acquisition and subscription throw; no sensor is created then.
// A scan while the client is not connected fails with the client's failure.
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

    // Whether debug lines reach the host; saves building the ones that would not.
    bool tracing() const;

    void register_channels();
    libtavohelper::responses::sensor_scan_result evaluate(const received_message& message);
    void persist_result(libtavohelper::responses::sensor_scan_result& result,
                        std::chrono::system_clock::time_point received);
    libtavohelper::responses::sensor_scan_result restore();
    bool restore_last_result(libtavohelper::responses::sensor_scan_result& result);
    bool restore_time_since_last_message(libtavohelper::responses::sensor_scan_result& result);

    const custom_channel_evaluator evaluator_;
    std::shared_ptr<libtavohelper::module::sensor_log> sensor_log_;  // empty without a host log
    std::shared_ptr<message_slot> slot_ = std::make_shared<message_slot>();
    std::shared_ptr<mqtt_client_interface> client_;
    std::shared_ptr<topic_subscription> subscription_;
};

}  // namespace corvanis::monitoring_modules::mqtt::sensors
