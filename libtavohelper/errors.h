#pragma once

#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::libtavohelper {

namespace messages {
#define TAVO_MSG(name, text) LIBI18N_MESSAGE(name, "libtavohelper.error." #name, text)
TAVO_MSG(sensor_registry, "A sensor registry error occurred. %0:s")
TAVO_MSG(sensor_already_registered, "Sensor with ID %0:s is already registered.")
TAVO_MSG(sensor_not_in_sensor_stock, "Sensor with ID %0:s is not in sensor list.")
TAVO_MSG(notification_already_registered, "Notification with ID %0:s is already registered.")
TAVO_MSG(service_container, "A service container error occurred. %0:s")
TAVO_MSG(already_contains_factory, "The factory store already contains a factory with type %0:s.")
TAVO_MSG(factory_not_available, "The factory store can't find a factory with type %0:s.")
TAVO_MSG(already_contains_instance_key,
         "The instance store already contains an instance with type %0:s and key %1:s.")
TAVO_MSG(instance_not_available_key,
         "The instance store can't find an instance with type %0:s and key %1:s.")
TAVO_MSG(already_contains_instance,
         "The instance store already contains an instance with type %0:s.")
TAVO_MSG(instance_not_available, "The instance store can't find an instance with type %0:s.")
TAVO_MSG(initialization, "Initialization error. %0:s")
TAVO_MSG(channel_map_not_initialized, "Channel map is not initialized.")
TAVO_MSG(invalid_channel_mode,
         "set_value called with an %0:s value, but the channel's value mode is not %1:s.")
TAVO_MSG(channel_already_defined, "Channel with ID %0:s and name %1:s is already defined.")
TAVO_MSG(channel_not_defined, "Channel with ID %0:s is not defined.")
TAVO_MSG(setting_not_available, "The setting \"%0:s\" was not available.")
TAVO_MSG(template_specialization_missing, "Template specialization is missing the type: \"%0:s\"")
TAVO_MSG(setting_selection_parse_error,
         "Value \"%0:s\" could not be parsed into selection type \"%1:s\".")
TAVO_MSG(setting_invalid, "Setting value %0:s is invalid. %1:s")
TAVO_MSG(setting_invalid_less_min, "Setting value %0:s is less than the allowed value of %1:s.")
TAVO_MSG(setting_invalid_bigger_max, "Setting value %0:s is bigger than the allowed value of %1:s.")
TAVO_MSG(string_too_long,
         "%0:s's value with length %1:s is longer than the maximum allowed length of %2:s.")
TAVO_MSG(message_exception, "A message error occurred. %0:s")
TAVO_MSG(message_serialization_failed, "Could not serialize message to buffer.")
TAVO_MSG(message_deserialization_failed, "Could not deserialize message type %0:s of size %1:s.")
TAVO_MSG(
    message_too_long,
    "The Message with size %0:s bytes is larger than the maximum allowed length of %1:s bytes.")
TAVO_MSG(create_protobuf_from_json_failed, "Failed to create protobuf message from JSON: %0:s")
TAVO_MSG(lookup_name_not_defined,
         "The following lookup name is not defined: %0:s. Valid lookup names are: %1:s")
TAVO_MSG(invalid_lookup_value,
         "The following lookup value is invalid: %0:s. Valid lookup values are: %1:s")
TAVO_MSG(
    invalid_reverse_lookup_value,
    "The following reverse lookup value is invalid: %0:s. Valid reverse lookup values are: %1:s")
#undef TAVO_MSG

// Every definition above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace utils::exceptions {
class exception : public libi18n::_i18n_exception<libi18n::i18n_exception> {
  public:
    ~exception() override;
    using _i18n_exception::_i18n_exception;
};
class initialization_error : public libi18n::_i18n_exception<exception> {
  public:
    ~initialization_error() override;
    using _i18n_exception::_i18n_exception;
};
class service_container_error : public libi18n::_i18n_exception<exception> {
  public:
    ~service_container_error() override;
    using _i18n_exception::_i18n_exception;
};
class sensor_registry_error : public libi18n::_i18n_exception<exception> {
  public:
    ~sensor_registry_error() override;
    using _i18n_exception::_i18n_exception;
};
class setting_error : public libi18n::_i18n_exception<exception> {
  public:
    ~setting_error() override;
    using _i18n_exception::_i18n_exception;
};
class setting_selection_parse_error : public libi18n::_i18n_exception<setting_error> {
  public:
    ~setting_selection_parse_error() override;
    setting_selection_parse_error(const std::string& value, const std::string& type_name)
        : _i18n_exception(messages::setting_selection_parse_error()(value, type_name)) {}
};
class channel_error : public libi18n::_i18n_exception<exception> {
  public:
    ~channel_error() override;
    using _i18n_exception::_i18n_exception;
};
class message_error : public libi18n::_i18n_exception<exception> {
  public:
    ~message_error() override;
    using _i18n_exception::_i18n_exception;
};
}  // namespace utils::exceptions

}  // namespace corvanis::monitoring_modules::libtavohelper
