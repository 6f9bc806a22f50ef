#include "libtavohelper/responses/results.h"

#include <limits>

#include "libtavohelper/errors.h"
#include "libtavohelper/wire_convert.h"

namespace corvanis::monitoring_modules::libtavohelper::responses {

namespace wire = tavo::wire;
using utils::exceptions::channel_error;

sensor_scan_result::sensor_scan_result(int id, std::shared_ptr<settings::channel_map> channels)
    : id_(id), channels_(std::move(channels)) {}

sensor_scan_result::sensor_scan_result(int id, const libi18n::i18n_exception& error)
    : id_(id), response_code_(scan_response_codes::error), message_(error.message()) {}

sensor_scan_result::sensor_scan_result(int id, const std::exception& error)
    : id_(id), response_code_(scan_response_codes::error), message_(libi18n::to_i18n_msg(error)) {}

void sensor_scan_result::set_value(int channel, long value) {
    set(channel, static_cast<std::int64_t>(value), channels::value_mode::integer);
}

void sensor_scan_result::set_value(int channel, double value) {
    set(channel, value, channels::value_mode::floating);
}

void sensor_scan_result::set(int channel, channel_value value, channels::value_mode mode) {
    if (!channels_) {
        throw channel_error(messages::channel_map_not_initialized());
    }
    if (channels::mode_of(channels_->kind_of(channel)) != mode) {
        const bool integer = mode == channels::value_mode::integer;
        throw channel_error(messages::invalid_channel_mode()(integer ? "integer" : "float",
                                                             integer ? "integer" : "float"));
    }
    values_[channel] = value;
}

std::vector<char> sensor_scan_result::serialize() const {
    wire::ScanResult out;
    out.set_sensor_id(id_);
    out.set_response_code(static_cast<int>(response_code_));
    out.set_error_code(error_code_);
    if (!message_.empty()) {
        to_wire(message_, *out.mutable_message());
    }
    for (const auto& [channel, value] : values_) {
        auto* v = out.add_values();
        v->set_id(channel);
        if (const auto* i = std::get_if<std::int64_t>(&value)) {
            v->set_integer(*i);
        } else {
            v->set_float_(std::get<double>(value));
        }
    }
    // Protobuf merges repeated fields appended to a message, so the cached definition
    // bytes follow the freshly encoded part inside one ModuleMessage.scan_result field.
    const auto definitions = channels_ ? channels_->encoded_definitions() : nullptr;
    const std::size_t head = out.ByteSizeLong();
    const std::size_t body = head + (definitions ? definitions->size() : 0);
    if (body > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
        throw utils::exceptions::message_error(messages::message_serialization_failed());
    }
    constexpr std::uint8_t scan_result_tag = (2 << 3) | 2;  // field 2, length-delimited
    std::vector<char> bytes;
    bytes.reserve(1 + 5 + body);
    bytes.push_back(static_cast<char>(scan_result_tag));
    for (auto n = static_cast<std::uint32_t>(body);; n >>= 7) {
        if (n < 0x80) {
            bytes.push_back(static_cast<char>(n));
            break;
        }
        bytes.push_back(static_cast<char>((n & 0x7f) | 0x80));
    }
    const auto offset = bytes.size();
    bytes.resize(offset + head);
    // ByteSizeLong() above cached the sizes; no second pass over the values.
    out.SerializeWithCachedSizesToArray(reinterpret_cast<std::uint8_t*>(bytes.data() + offset));
    if (definitions) bytes.insert(bytes.end(), definitions->begin(), definitions->end());
    return bytes;
}

void sensor_scan_result::fill_from_buffer(const std::vector<char>& buffer) {
    wire::ModuleMessage message;
    if (!message.ParseFromArray(buffer.data(), static_cast<int>(buffer.size())) ||
        !message.has_scan_result()) {
        throw utils::exceptions::message_error(messages::message_deserialization_failed()(
            "ScanResult", std::to_string(buffer.size())));
    }
    const auto& in = message.scan_result();
    response_code_ = static_cast<scan_response_codes>(in.response_code());
    error_code_ = in.error_code();
    message_ = in.has_message() ? from_wire(in.message()) : libi18n::i18n_msg();
    values_.clear();
    for (const auto& v : in.values()) {
        if (v.value_case() == wire::ChannelValue::kFloat) {
            values_[v.id()] = v.float_();
        } else {
            values_[v.id()] = static_cast<std::int64_t>(v.integer());
        }
    }
}

std::vector<char> check_result::serialize() const {
    wire::ModuleMessage message;
    auto* out = message.mutable_check_result();
    out->set_check_id(id_);
    out->set_success(success_);
    if (!message_.empty()) {
        to_wire(message_, *out->mutable_message());
    }
    return serialize_envelope(message);
}

}  // namespace corvanis::monitoring_modules::libtavohelper::responses
