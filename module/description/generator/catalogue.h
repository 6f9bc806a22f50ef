#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvanis::monitoring_modules::mqtt::description {

// Stands for the channel number in the key and text of a per-channel template.
inline constexpr std::string_view channel_marker = "{cur}";

struct entry {
    std::string key;
    std::string text;
};

// One language's texts in file order; template keys still carry the channel marker.
struct catalogue {
    std::string language;
    std::vector<entry> entries;
};

// Every check appends its findings here, one line each, instead of stopping at the first.
using error_list = std::vector<std::string>;

// Reads a flat JSON object from key to text; nesting, non-text values and duplicate keys
// are reported.
catalogue parse_catalogue(std::string language, std::string_view json_text, error_list& errors);

// The "%N:s" placeholders of a text, sorted; no value when a '%' begins neither "%N:s" nor "%%".
std::optional<std::vector<std::string>> placeholders(std::string_view text);

// English on its own: no empty or malformed text, one channel marker per template key.
void check_english(const catalogue& english, error_list& errors);

// A translation against English: exactly English's keys less those starting with one of
// `english_only`, and in every text the same placeholders and channel markers as English.
void check_translation(const catalogue& english, const catalogue& translation,
                       const std::vector<std::string>& english_only, error_list& errors);

// Template keys that start with `key_prefix` expand to the channels first..last.
struct channel_range {
    std::string key_prefix;
    int first = 1;
    int last = 0;
};

// The entries with every template replaced by its expansions. All expansions go, channel by
// channel, where the first template stood; a template takes the range of its longest prefix.
std::vector<entry> expand_templates(const catalogue& source,
                                    const std::vector<channel_range>& ranges, error_list& errors);

std::string replace_all(std::string text, std::string_view what, std::string_view with);

}  // namespace corvanis::monitoring_modules::mqtt::description
