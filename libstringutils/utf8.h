#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvanis::monitoring_modules::libstringutils {

// UTF-8 as Unicode defines it: no overlong forms, no surrogates, nothing above U+10FFFF.
// An ill-formed stretch is taken as its maximal subparts, each standing for one U+FFFD,
// so that the three functions below agree on every input.

bool is_valid_utf8(std::string_view text) noexcept;

// The number of code points, an ill-formed subpart counting as one.
std::size_t utf8_length(std::string_view text) noexcept;

// `text` with every ill-formed subpart replaced by U+FFFD; valid text comes back unchanged.
std::string to_valid_utf8(std::string_view text);

// At most `max_code_points` whole code points of valid `text`, for quoting long input.
std::string_view utf8_prefix(std::string_view text, std::size_t max_code_points) noexcept;

}  // namespace corvanis::monitoring_modules::libstringutils
