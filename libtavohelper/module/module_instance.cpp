#include "libtavohelper/module/module_instance.h"

#include "libtavohelper/messaging/messages.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

module_instance::module_instance(std::uint64_t host_context, host_callback callback)
    : host_context_(host_context),
      service_container_(std::make_shared<service_container>()),
      sensor_dispatcher_(std::make_shared<sensor_dispatcher>(service_container_)) {
    service_container_->register_factory<messaging::message_service_interface>(
        std::function<std::unique_ptr<messaging::message_service_interface>()>(
            [host_context, callback] {
                return std::make_unique<messaging::message_service>(
                    [host_context, callback](void* bytes, unsigned long size) {
                        if (callback != nullptr) {
                            callback(host_context, bytes, static_cast<std::uint32_t>(size));
                        }
                    });
            }));
}

module_instance::~module_instance() {
    // Sensors first: they hold clients and loggers that live in the container.
    sensor_dispatcher_.reset();
}

}  // namespace corvanis::monitoring_modules::libtavohelper::module
