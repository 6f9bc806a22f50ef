#include "module/tavo_module_mqtt.h"

#include "module/description/description.h"

namespace corvanis::monitoring_modules::mqtt {

TavoModuleMQTT::TavoModuleMQTT(std::uint64_t host_context, libtavohelper::module::host_callback callback)
    : module_instance(host_context, callback) {}

TavoModuleMQTT::~TavoModuleMQTT() = default;

std::string TavoModuleMQTT::get_module_information() { return module_description(); }

}  // namespace corvanis::monitoring_modules::mqtt
