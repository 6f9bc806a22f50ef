#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvanis::monitoring_modules::mqtt::sensors {

// Standard alphabet (A-Z a-z 0-9 + /), padded with "=" to a multiple of four.
std::string base64_encode(std::span<const char> bytes);

// The bytes of padded standard Base64 text; empty when the text is anything else
// (other characters, a length that is not a multiple of four, misplaced or surplus
// padding, non-zero bits left over before the padding).
std::optional<std::vector<char>> base64_decode(std::string_view text);

}  // namespace corvanis::monitoring_modules::mqtt::sensors
