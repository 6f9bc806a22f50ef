#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <variant>
#include <vector>

#include "libi18n/i18n_exception.h"
#include "libtavohelper/messaging/messages.h"
#include "libtavohelper/settings/channel_map.h"

namespace corvanis::monitoring_modules::libtavohelper::responses {

enum class scan_response_codes : int { ok = 0, warning = 1, unknown = 2, error = 3 };

using channel_value = std::variant<std::int64_t, double>;

// The outcome of one scan. Built and filled on one thread, then sent.
class sensor_scan_result : public messaging::tavo_message {
  public:
    sensor_scan_result(int id, std::shared_ptr<settings::channel_map> channels);
    // Error results: response code error and the exception's message.
    sensor_scan_result(int id, const libi18n::i18n_exception& error);
    sensor_scan_result(int id, const std::exception& error);

    // Throw channel_map_not_initialized, channel_not_defined, or invalid_channel_mode
    // when the channel's kind takes the other type of value.
    void set_value(int channel, long value);
    void set_value(int channel, double value);
    void set_response_code(scan_response_codes code) { response_code_ = code; }
    void set_response_message(const libi18n::i18n_msg& message) { message_ = message; }
    void set_error_code(int code) { error_code_ = code; }
    // Takes values, message and codes from serialize()d bytes; keeps this result's id.
    // Throws message_deserialization_failed.
    void fill_from_buffer(const std::vector<char>& buffer);

    std::vector<char> serialize() const override;

    int id() const { return id_; }
    scan_response_codes response_code() const { return response_code_; }
    const libi18n::i18n_msg& response_message() const { return message_; }
    int error_code() const { return error_code_; }
    const std::map<int, channel_value>& values() const { return values_; }

  private:
    void set(int channel, channel_value value, channels::value_mode mode);

    int id_;
    std::shared_ptr<settings::channel_map> channels_;
    scan_response_codes response_code_ = scan_response_codes::ok;
    int error_code_ = 0;
    libi18n::i18n_msg message_;
    std::map<int, channel_value> values_;
};

// The outcome of one check; unsuccessful until set_success(true).
class check_result : public messaging::tavo_message {
  public:
    explicit check_result(int id) : id_(id) {}
    void set_success(bool success) { success_ = success; }
    void set_message(const libi18n::i18n_msg& message) { message_ = message; }
    bool success() const { return success_; }
    int id() const { return id_; }
    const libi18n::i18n_msg& message() const { return message_; }
    std::vector<char> serialize() const override;

  private:
    int id_;
    bool success_ = false;
    libi18n::i18n_msg message_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::responses
