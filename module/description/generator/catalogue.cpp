#include "module/description/generator/catalogue.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>
#include <unordered_set>

#include <jsoncons/json_cursor.hpp>

namespace corvanis::monitoring_modules::mqtt::description {

namespace {

using jsoncons::staj_event_type;

std::size_t count_of(std::string_view text, std::string_view what) {
    std::size_t n = 0;
    for (auto pos = text.find(what); pos != std::string_view::npos; pos = text.find(what, pos + 1))
        ++n;
    return n;
}

bool has_prefix(std::string_view key, const std::vector<std::string>& prefixes) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const std::string& p) { return key.starts_with(p); });
}

std::string joined(const std::vector<std::string>& items) {
    std::string out = "[";
    for (const auto& item : items) out += (out.size() > 1 ? ", " : "") + item;
    return out + "]";
}

void check_text(const std::string& language, const entry& e, error_list& errors) {
    if (e.text.empty()) errors.push_back(language + ": \"" + e.key + "\" has an empty text");
    if (!placeholders(e.text))
        errors.push_back(language + ": \"" + e.key +
                         "\" has a '%' that begins neither \"%N:s\" nor \"%%\"");
}

}  // namespace

std::string replace_all(std::string text, std::string_view what, std::string_view with) {
    for (auto pos = text.find(what); pos != std::string::npos;
         pos = text.find(what, pos + with.size()))
        text.replace(pos, what.size(), with);
    return text;
}

catalogue parse_catalogue(std::string language, std::string_view json_text, error_list& errors) {
    catalogue result{std::move(language), {}};
    const std::string& lang = result.language;
    try {
        jsoncons::json_string_cursor cursor(json_text);
        if (cursor.done() || cursor.current().event_type() != staj_event_type::begin_object) {
            errors.push_back(lang + ": the catalogue must be one JSON object");
            return result;
        }
        std::unordered_set<std::string> seen;
        std::string key;
        for (cursor.next(); !cursor.done(); cursor.next()) {
            const auto& event = cursor.current();
            const auto line = std::to_string(cursor.context().line());
            switch (event.event_type()) {
                case staj_event_type::key:
                    key = event.get<std::string>();
                    if (!seen.insert(key).second)
                        errors.push_back(lang + ", line " + line + ": duplicate key \"" + key +
                                         "\"");
                    break;
                case staj_event_type::string_value:
                    result.entries.push_back({key, event.get<std::string>()});
                    break;
                case staj_event_type::end_object:
                    break;
                default:
                    errors.push_back(lang + ", line " + line + ": the value of \"" + key +
                                     "\" must be a text");
                    if (event.event_type() == staj_event_type::begin_object ||
                        event.event_type() == staj_event_type::begin_array)
                        return result;
            }
        }
    } catch (const jsoncons::ser_error& e) {
        errors.push_back(lang + ": not valid JSON: " + e.what());
    }
    return result;
}

std::optional<std::vector<std::string>> placeholders(std::string_view text) {
    std::vector<std::string> found;
    for (std::size_t pos = text.find('%'); pos != std::string_view::npos;
         pos = text.find('%', pos)) {
        if (pos + 1 < text.size() && text[pos + 1] == '%') {
            pos += 2;
            continue;
        }
        std::size_t end = pos + 1;
        while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) ++end;
        if (end == pos + 1 || text.substr(end, 2) != ":s") return std::nullopt;
        found.emplace_back(text.substr(pos, end + 2 - pos));
        pos = end + 2;
    }
    std::sort(found.begin(), found.end());
    return found;
}

void check_english(const catalogue& english, error_list& errors) {
    for (const auto& e : english.entries) {
        check_text(english.language, e, errors);
        if (count_of(e.key, channel_marker) > 1)
            errors.push_back(english.language + ": \"" + e.key +
                             "\" has more than one channel marker");
    }
}

void check_translation(const catalogue& english, const catalogue& translation,
                       const std::vector<std::string>& english_only, error_list& errors) {
    const std::string& lang = translation.language;
    std::unordered_map<std::string_view, const entry*> texts;
    for (const auto& e : translation.entries) texts.emplace(e.key, &e);

    std::unordered_set<std::string_view> expected;
    for (const auto& en : english.entries) {
        if (has_prefix(en.key, english_only)) continue;
        expected.insert(en.key);
        const auto it = texts.find(en.key);
        if (it == texts.end()) {
            errors.push_back(lang + ": \"" + en.key + "\" is missing");
            continue;
        }
        const entry& tr = *it->second;
        check_text(lang, tr, errors);
        const auto want = placeholders(en.text);
        const auto have = placeholders(tr.text);
        if (want && have && *want != *have)
            errors.push_back(lang + ": \"" + en.key + "\" has the placeholders " + joined(*have) +
                             ", English has " + joined(*want));
        if (count_of(tr.text, channel_marker) != count_of(en.text, channel_marker))
            errors.push_back(lang + ": \"" + en.key +
                             "\" must use \"{cur}\" as often as English does");
    }
    for (const auto& e : translation.entries) {
        if (expected.contains(e.key)) continue;
        errors.push_back(
            lang + ": \"" + e.key + "\" " +
            (has_prefix(e.key, english_only) ? "is English only" : "is not an English key"));
    }
}

std::vector<entry> expand_templates(const catalogue& source,
                                    const std::vector<channel_range>& ranges, error_list& errors) {
    std::vector<entry> out;
    std::vector<std::pair<const entry*, const channel_range*>> templates;
    std::size_t first_template = std::string::npos;
    for (const auto& e : source.entries) {
        if (e.key.find(channel_marker) == std::string::npos) {
            out.push_back(e);
            continue;
        }
        const channel_range* best = nullptr;
        for (const auto& r : ranges)
            if (e.key.starts_with(r.key_prefix) &&
                (!best || r.key_prefix.size() > best->key_prefix.size()))
                best = &r;
        if (!best) {
            errors.push_back(source.language + ": the template \"" + e.key +
                             "\" belongs to no channel list of the document");
            continue;
        }
        if (first_template == std::string::npos) first_template = out.size();
        templates.emplace_back(&e, best);
    }
    if (templates.empty()) return out;

    int lowest = templates.front().second->first;
    int highest = templates.front().second->last;
    for (const auto& [e, r] : templates) {
        lowest = std::min(lowest, r->first);
        highest = std::max(highest, r->last);
    }
    std::vector<entry> expanded;
    for (int channel = lowest; channel <= highest; ++channel) {
        const std::string number = std::to_string(channel);
        for (const auto& [e, r] : templates)
            if (channel >= r->first && channel <= r->last)
                expanded.push_back({replace_all(e->key, channel_marker, number),
                                    replace_all(e->text, channel_marker, number)});
    }
    out.insert(out.begin() + static_cast<std::ptrdiff_t>(first_template), expanded.begin(),
               expanded.end());
    return out;
}

}  // namespace corvanis::monitoring_modules::mqtt::description
