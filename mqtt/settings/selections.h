#pragma once

#include <string>

namespace corvanis::monitoring_modules::mqtt::settings {

// Each parser takes the exact option text (case-sensitive, whole text) and throws
// libtavohelper's setting_selection_parse_error, naming `type_name`, for anything else.

enum class yes_no { no = 0, yes = 1 };
yes_no parse_yes_no(const std::string& value, const std::string& type_name);

enum class logging { enabled, disabled };
logging parse_logging(const std::string& value);

enum class ipversion { ipv4, ipv6 };
ipversion parse_ipversion(const std::string& value);

enum class channel { disable = 0, enable = 1 };
channel parse_channel(const std::string& value);

enum class duration_since_last_message { disable = 0, enable = 1 };
duration_since_last_message parse_duration_since_last_message(const std::string& value);

enum class retain_last_message { dismiss = 0, retain = 1 };
retain_last_message parse_retain_last_message(const std::string& value);

enum class channel_type { absolute_integer = 0, absolute_float = 1, delta_counter = 2 };
channel_type parse_channel_type(const std::string& value);

}  // namespace corvanis::monitoring_modules::mqtt::settings
