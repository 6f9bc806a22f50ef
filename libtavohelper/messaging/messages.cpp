#include "libtavohelper/messaging/messages.h"

#include <limits>

#include "libtavohelper/errors.h"
#include "libtavohelper/notifications/notification.h"
#include "libtavohelper/wire_convert.h"

namespace corvanis::monitoring_modules::libtavohelper {

namespace wire = tavo::wire;

namespace messaging {

std::vector<char> module_information_message::serialize() const {
    wire::ModuleMessage message;
    auto* info = message.mutable_module_information();
    info->set_description(wire_text(description_));
    info->set_load_languages(load_languages_);
    return serialize_envelope(message);
}

std::vector<char> persistent_data::serialize() const {
    wire::ModuleMessage message;
    auto* data = message.mutable_persistent_data();
    data->set_sensor_id(id_);
    data->set_key(wire_text(key_));
    data->set_value(wire_text(value_));
    return serialize_envelope(message);
}

std::vector<char> log_message::serialize() const {
    wire::ModuleMessage message;
    auto* log = message.mutable_log();
    log->set_source(source_ == log_source::sensor ? wire::Log::SENSOR : wire::Log::RUNTIME);
    log->set_sensor_id(sensor_id_);
    log->mutable_line()->set_severity(liblog::to_int(level_));
    log->mutable_line()->set_text(wire_text(text_));
    return serialize_envelope(message);
}

void message_service::send(const std::vector<char>& bytes) {
    constexpr auto limit = std::numeric_limits<std::uint32_t>::max();
    if (bytes.size() > limit) {
        throw utils::exceptions::message_error(
            messages::message_too_long()(std::to_string(bytes.size()), std::to_string(limit)));
    }
    // The host only reads the bytes; the callback signature predates const.
    send_function_(const_cast<char*>(bytes.data()), static_cast<unsigned long>(bytes.size()));
}

}  // namespace messaging

namespace notifications {

std::vector<char> response::serialize() const {
    wire::ModuleMessage message;
    auto* out = message.mutable_notification_response();
    out->set_notification_id(id_);
    out->set_success(success_);
    for (const auto& [level, text] : lines_) {
        auto* line = out->add_lines();
        line->set_severity(liblog::to_int(level));
        line->set_text(wire_text(text));
    }
    if (!success_) {
        to_wire(failure_, *out->mutable_message());
    }
    return serialize_envelope(message);
}

}  // namespace notifications
}  // namespace corvanis::monitoring_modules::libtavohelper

namespace corvanis::monitoring_modules::libtavohelper::messaging {

// Defined here so that the framework library holds the one copy of the type information.
tavo_message::~tavo_message() = default;
message_service_interface::~message_service_interface() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::messaging
