#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "module/description/generator/catalogue.h"

namespace corvanis::monitoring_modules::mqtt::description {

// Stands, in the skeleton, for the English text of the key that the value's place implies.
inline constexpr std::string_view text_marker = "{text}";

struct build_input {
    std::string skeleton;                     // the document without its texts, as JSON
    std::vector<catalogue> catalogues;        // "English" and any of the translations
    std::vector<std::string> language_order;  // every language the Text section may hold
    std::vector<std::string> english_only;    // key prefixes that only English carries
    std::optional<std::size_t> english_key_count;
};

// The complete document as compact JSON, or an empty string when `errors` received findings.
std::string build_document(const build_input& input, error_list& errors);

// A C++ source file that defines module_description() returning `document`.
std::string render_cpp_source(std::string_view document);

}  // namespace corvanis::monitoring_modules::mqtt::description
