#include "module/tavo_module_mqtt.h"

#include "libjsonparser/jsonpath_parser.h"
#include "libstringutils/random_string_generator.h"
#include "module/description/description.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/poll_pacer.h"
#include "mqtt/sensors/mqtt_connect_check.h"
#include "mqtt/sensors/mqtt_notification.h"
#include "mqtt/sensors/roundtrip_sensor.h"
#include "mqtt/sensors/statistics_sensor.h"
#include "mqtt/sensors/subscribe_custom_sensor.h"

namespace corvanis::monitoring_modules::mqtt {

namespace tavo = libtavohelper;

// Later registrations draw on earlier ones, so the order is fixed.
TavoModuleMQTT::TavoModuleMQTT(std::uint64_t host_context, tavo::module::host_callback callback)
    : module_instance(host_context, callback) {
    auto& container = *service_container_;
    container.register_factory<libstringutils::random_string_generator_interface>(
        std::function<std::unique_ptr<libstringutils::random_string_generator_interface>()>(
            &libstringutils::make_random_string_generator));
    container.add_instance(std::make_shared<poll_pacer>());  // ends with the container
    container.register_factory<mqtt_client_interface, mqtt_client_settings>(
        make_client_factory(std::weak_ptr<tavo::module::service_container>(service_container_)));
    container.register_factory<libparser::parser_interface, std::string>(
        std::function<std::unique_ptr<libparser::parser_interface>(std::string)>(
            [](std::string document) { return libjsonparser::make_jsonpath_parser(document); }));

    auto& dispatcher = *sensor_dispatcher_;
    dispatcher.register_sensor_as<sensors::roundtrip_sensor>("roundtrip_sensor");
    dispatcher.register_sensor_as<sensors::statistics_sensor>("statistics_sensor");
    dispatcher.register_sensor_as<sensors::subscribe_custom_sensor>("subscribe_custom_sensor");
    dispatcher.register_check_as<sensors::mqtt_connect_check>("mqtt_connect_check");
    dispatcher.register_notification_as<sensors::mqtt_notification>("mqtt_notification");
}

TavoModuleMQTT::~TavoModuleMQTT() = default;

std::string TavoModuleMQTT::get_module_information() {
    return module_description();
}

}  // namespace corvanis::monitoring_modules::mqtt
