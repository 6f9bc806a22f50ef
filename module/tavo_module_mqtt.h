#pragma once

#include "libtavohelper/module/module_instance.h"
#include "mqtt/module_version.h"

namespace corvanis::monitoring_modules::mqtt {

// The module object: registers the factories, sensor kinds, the check and the
// notification service that the module offers.
class TavoModuleMQTT : public libtavohelper::module::module_instance {
  public:
    TavoModuleMQTT(std::uint64_t host_context, libtavohelper::module::host_callback callback);
    ~TavoModuleMQTT() override;
    // A copy of the description document built when the library was loaded.
    std::string get_module_information() override;
};

}  // namespace corvanis::monitoring_modules::mqtt
