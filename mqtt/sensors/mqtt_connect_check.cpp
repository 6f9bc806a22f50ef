#include "mqtt/sensors/mqtt_connect_check.h"

#include <chrono>

#include "mqtt/client_pool.h"
#include "mqtt/module_version.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

namespace tavo = libtavohelper;
using liblog::severity;

mqtt_connect_check::mqtt_connect_check(int id, const tavo::settings::sensor_data_wrapper& data,
                                       std::shared_ptr<tavo::module::service_container> container)
    : check_base(id, data, std::move(container), {"MQTT Connect Check", module_version}) {}

tavo::responses::check_result mqtt_connect_check::work() {
    tavo::responses::check_result result(get_id());
    std::chrono::steady_clock::time_point start;
    const auto elapsed_ms = [&start] {
        return std::to_string(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                  std::chrono::steady_clock::now() - start)
                                  .count() /
                              1000000);
    };
    try {
        auto client_settings = settings::to_client_settings(settings());
        // One attempt with its real outcome: a check has no later scan to wait for.
        client_settings.session.automatic_reconnect = false;
        log(severity::debug, "Begin time tracking");
        start = std::chrono::steady_clock::now();
        auto client = acquire_client(*container(), client_settings, logger());
        log(severity::debug, "End time tracking after " + elapsed_ms() + " ms");
        result.set_success(client->is_connected());
    } catch (const std::exception& e) {
        log(severity::debug, "Exception after " + elapsed_ms() + " ms");
        log(severity::error, e.what());
        result.set_message(libi18n::to_i18n_msg(e));
    }
    return result;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
