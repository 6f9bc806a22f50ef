#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "libtavohelper/module/sensor_dispatcher.h"
#include "libtavohelper/module/service_container.h"
#include "libtavohelper/protocol.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

using host_callback = protocol::message_callback;

// Base of a module object: keeps the host context, and owns the service container
// and the dispatcher. Registers the message service factory that ends in the callback.
class module_instance {
  public:
    module_instance(std::uint64_t host_context, host_callback callback);
    virtual ~module_instance();
    module_instance(const module_instance&) = delete;
    module_instance& operator=(const module_instance&) = delete;

    // The module description document.
    virtual std::string get_module_information() = 0;

    std::uint64_t host_context() const { return host_context_; }
    const std::shared_ptr<service_container>& container() const { return service_container_; }
    const std::shared_ptr<sensor_dispatcher>& dispatcher() const { return sensor_dispatcher_; }

  protected:
    std::uint64_t host_context_;
    std::shared_ptr<service_container> service_container_;
    std::shared_ptr<sensor_dispatcher> sensor_dispatcher_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::module
