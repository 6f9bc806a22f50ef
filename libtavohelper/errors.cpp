#include "libtavohelper/errors.h"

namespace corvanis::monitoring_modules::libtavohelper::messages {

std::vector<const libi18n::i18n_msg*> all() {
    return {&sensor_registry(),
            &sensor_already_registered(),
            &sensor_not_in_sensor_stock(),
            &notification_already_registered(),
            &service_container(),
            &already_contains_factory(),
            &factory_not_available(),
            &already_contains_instance_key(),
            &instance_not_available_key(),
            &already_contains_instance(),
            &instance_not_available(),
            &initialization(),
            &channel_map_not_initialized(),
            &invalid_channel_mode(),
            &channel_already_defined(),
            &channel_not_defined(),
            &setting_not_available(),
            &template_specialization_missing(),
            &setting_selection_parse_error(),
            &setting_invalid(),
            &setting_invalid_less_min(),
            &setting_invalid_bigger_max(),
            &string_too_long(),
            &message_exception(),
            &message_serialization_failed(),
            &message_deserialization_failed(),
            &message_too_long(),
            &create_protobuf_from_json_failed(),
            &lookup_name_not_defined(),
            &invalid_lookup_value(),
            &invalid_reverse_lookup_value()};
}

}  // namespace corvanis::monitoring_modules::libtavohelper::messages

namespace corvanis::monitoring_modules::libtavohelper::utils::exceptions {

// Defined here so that the framework library holds the one copy of the type information.
exception::~exception() = default;
initialization_error::~initialization_error() = default;
service_container_error::~service_container_error() = default;
sensor_registry_error::~sensor_registry_error() = default;
setting_error::~setting_error() = default;
setting_selection_parse_error::~setting_selection_parse_error() = default;
channel_error::~channel_error() = default;
message_error::~message_error() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::utils::exceptions
