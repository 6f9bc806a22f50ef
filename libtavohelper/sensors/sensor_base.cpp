#include "libtavohelper/sensors/sensor_base.h"

#include <stdexcept>

namespace corvanis::monitoring_modules::libtavohelper::sensors::detail {

std::shared_ptr<liblog::log_interface> make_logger(int id, module::service_container& container) {
    return std::make_shared<module::sensor_logger>(id,
                                                   container.find_instance<module::sensor_log>());
}

void send(module::service_container& container, const messaging::tavo_message& message) {
    container.get_or_create<messaging::message_service_interface>()->send(message);
}

responses::sensor_scan_result run_guarded_work(
    int id, liblog::log_interface& log,
    const std::function<responses::sensor_scan_result()>& work) {
    try {
        return work();
    } catch (const libi18n::i18n_exception& e) {
        log.log(liblog::severity::error, std::string("Scan failed: ") + e.what());
        return {id, e};
    } catch (const std::exception& e) {
        log.log(liblog::severity::error, std::string("Scan failed: ") + e.what());
        return {id, e};
    } catch (...) {
        log.log(liblog::severity::error, "Scan failed with an unknown exception.");
        return {id, std::runtime_error("Unknown exception.")};
    }
}

}  // namespace corvanis::monitoring_modules::libtavohelper::sensors::detail

namespace corvanis::monitoring_modules::libtavohelper::sensors {

// Defined here so that the framework library holds the one copy of the type information.
sensor_interface::~sensor_interface() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::sensors
