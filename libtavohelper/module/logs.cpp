#include "libtavohelper/module/logs.h"

#include "libtavohelper/module/service_container.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

void host_log::log_for(int sensor_id, liblog::severity level, const std::string& text) noexcept {
    if (!out_ || !enabled(level)) {
        return;
    }
    try {
        out_->send(messaging::log_message(source_, sensor_id, level, text));
    } catch (...) {
        // Logging must never fail the operation that logs.
    }
}

void register_runtime_log(const std::shared_ptr<service_container>& container) {
    container->add_instance<liblog::log_interface>(std::make_shared<host_log>(
        messaging::log_source::runtime,
        container->get_or_create<messaging::message_service_interface>()));
}

void register_sensor_log(const std::shared_ptr<service_container>& container) {
    container->add_instance<sensor_log>(std::make_shared<sensor_log>(
        container->get_or_create<messaging::message_service_interface>()));
}

}  // namespace corvanis::monitoring_modules::libtavohelper::module

namespace corvanis::monitoring_modules::libtavohelper::module {

// Defined here so that the framework library holds the one copy of the type information.
host_log::~host_log() = default;
sensor_log::~sensor_log() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::module
