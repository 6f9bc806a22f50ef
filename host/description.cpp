#include "host/description.h"

#include <cctype>
#include <cstdlib>

#include <algorithm>
#include <jsoncons/json.hpp>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

using jsoncons::ojson;

std::string string_of(const ojson& object, const char* name) {
    if (!object.is_object() || !object.contains(name)) return {};
    const auto& value = object.at(name);
    return value.is_string() ? value.as<std::string>() : value.as_string();
}

std::vector<std::string> strings_of(const ojson& object, const char* name) {
    std::vector<std::string> out;
    if (object.is_object() && object.contains(name) && object.at(name).is_array()) {
        for (const auto& item : object.at(name).array_range())
            out.push_back(item.as<std::string>());
    }
    return out;
}

bool has_flag(const ojson& setting, const char* flag) {
    const auto flags = strings_of(setting, "Flags");
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

std::optional<long long> bound(const ojson& kind, const char* is_set, const char* name) {
    if (kind.contains(is_set) && kind.at(is_set).as<bool>() && kind.contains(name)) {
        return kind.at(name).as<long long>();
    }
    return std::nullopt;
}

setting_def read_setting(const ojson& item, const std::string& group) {
    const bool wrapped = item.contains("Setting");
    const ojson& s = wrapped ? item.at("Setting") : item;
    setting_def def;
    def.group = group;
    def.name = string_of(s, "Name");
    def.display = string_of(s, "Display");
    def.help = string_of(s, "Help");
    if (s.contains("Default")) def.default_value = string_of(s, "Default");
    def.required = has_flag(s, "SettingFlagRequired");
    if (wrapped) {
        def.depends_on = string_of(item, "DependsOn");
        def.condition = string_of(item, "Condition");
    }
    if (s.contains("IntegerSigned")) {
        const auto& k = s.at("IntegerSigned");
        def.kind = setting_kind::integer;
        def.minimum = bound(k, "IsMinimumSet", "Minimum");
        def.maximum = bound(k, "IsMaximumSet", "Maximum");
    } else if (s.contains("Floatingpoint")) {
        def.kind = setting_kind::floating;
    } else if (s.contains("Selection")) {
        def.kind = setting_kind::selection;
        const auto& k = s.at("Selection");
        if (k.contains("Options")) {
            for (const auto& option : k.at("Options").array_range()) {
                def.options.push_back({string_of(option, "Value"), string_of(option, "Display")});
            }
        }
    } else if (s.contains("Text")) {
        const auto& k = s.at("Text");
        def.secret = string_of(k, "Security") == "SettingSecurityHigh";
        def.multiline = k.contains("Multiline") && k.at("Multiline").as<bool>();
    }
    return def;
}

}  // namespace

description description::parse(const std::string& json) {
    description d;
    d.raw_ = json;
    try {
        const ojson doc = ojson::parse(json);
        if (!doc.is_object()) throw host_error("the module description is not a JSON object");
        if (doc.contains("MetaData")) {
            const auto& meta = doc.at("MetaData");
            d.module_display_ = string_of(meta, "Display");
            d.module_description_ = string_of(meta, "Description");
            d.version_ = string_of(meta, "Version");
        }
        if (doc.contains("Sensors")) {
            for (const auto& member : doc.at("Sensors").object_range()) {
                const auto& s = member.value();
                std::vector<std::string> sections;
                if (s.contains("Settings")) sections = strings_of(s.at("Settings"), "Sections");
                const auto family = strings_of(s, "Family");
                d.sensors_.push_back(
                    {std::string(member.key()), string_of(s, "Display"),
                     string_of(s, "Description"), std::move(sections),
                     strings_of(s, "RequiredChecks"),
                     std::find(family.begin(), family.end(), "FamilyKindPush") != family.end()});
            }
        }
        if (doc.contains("Checks")) {
            for (const auto& member : doc.at("Checks").object_range()) {
                d.checks_.push_back(
                    {std::string(member.key()), strings_of(member.value(), "Sections")});
            }
        }
        if (doc.contains("Sections")) {
            for (const auto& member : doc.at("Sections").object_range()) {
                const auto& s = member.value();
                d.sections_.push_back(
                    {std::string(member.key()), string_of(s, "Display"), strings_of(s, "Groups")});
            }
        }
        if (doc.contains("Groups")) {
            for (const auto& member : doc.at("Groups").object_range()) {
                const std::string group(member.key());
                auto& settings = d.groups_[group];
                if (!member.value().contains("Items")) continue;
                for (const auto& item : member.value().at("Items").array_range()) {
                    settings.push_back(read_setting(item, group));
                }
            }
        }
        if (doc.contains("Lookups")) {
            for (const auto& member : doc.at("Lookups").object_range()) {
                lookup_def lookup{std::string(member.key()), {}};
                if (member.value().contains("LookupValues")) {
                    for (const auto& v : member.value().at("LookupValues").array_range()) {
                        lookup.values.push_back(
                            {v.contains("Value") ? v.at("Value").as<long long>() : 0,
                             string_of(v, "Name"), string_of(v, "Display"), string_of(v, "State")});
                    }
                }
                d.lookups_.push_back(std::move(lookup));
            }
        }
        if (doc.contains("Text")) {
            for (const auto& language : doc.at("Text").object_range()) {
                const std::string name(language.key());
                d.language_order_.push_back(name);
                auto& texts = d.texts_[name];
                if (!language.value().contains("Translation")) continue;
                for (const auto& entry : language.value().at("Translation").object_range()) {
                    texts[std::string(entry.key())] = string_of(entry.value(), "Display");
                }
            }
        }
    } catch (const host_error&) {
        throw;
    } catch (const std::exception& e) {
        throw host_error(std::string("the module description cannot be read: ") + e.what());
    }
    return d;
}

const sensor_kind_def* description::find_sensor(const std::string& kind) const {
    const auto it = std::find_if(sensors_.begin(), sensors_.end(),
                                 [&](const auto& s) { return s.name == kind; });
    return it == sensors_.end() ? nullptr : &*it;
}

const check_def* description::find_check(const std::string& name) const {
    const auto it =
        std::find_if(checks_.begin(), checks_.end(), [&](const auto& c) { return c.name == name; });
    return it == checks_.end() ? nullptr : &*it;
}

const section_def* description::find_section(const std::string& name) const {
    const auto it = std::find_if(sections_.begin(), sections_.end(),
                                 [&](const auto& s) { return s.name == name; });
    return it == sections_.end() ? nullptr : &*it;
}

const std::vector<setting_def>& description::group_settings(const std::string& group) const {
    static const std::vector<setting_def> none;
    const auto it = groups_.find(group);
    return it == groups_.end() ? none : it->second;
}

const lookup_def* description::find_lookup(const std::string& name) const {
    const auto it = std::find_if(lookups_.begin(), lookups_.end(),
                                 [&](const auto& l) { return l.name == name; });
    return it == lookups_.end() ? nullptr : &*it;
}

std::vector<std::string> description::languages() const {
    return language_order_;
}

bool description::has_language(const std::string& language) const {
    return texts_.count(language) != 0;
}

namespace {

// ISO 639-1 codes of the languages modules are translated into, by the names they use.
constexpr std::pair<std::string_view, std::string_view> language_codes[] = {
    {"en", "English"},  {"de", "German"},    {"fr", "French"},
    {"es", "Spanish"},  {"nl", "Dutch"},     {"ru", "Russian"},
    {"ja", "Japanese"}, {"pt", "Brazilian"}, {"zh", "SimplifiedChinese"},
    {"it", "Italian"},  {"pl", "Polish"},    {"cs", "Czech"},
};

// "de_DE.UTF-8" -> "de"; "C" and "POSIX" name no language.
std::string code_of(const std::string& locale) {
    std::string code = locale.substr(0, locale.find_first_of("_.@-"));
    for (auto& c : code) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return code == "c" || code == "posix" ? std::string() : code;
}

std::string name_of_code(const std::string& code) {
    for (const auto& [c, name] : language_codes) {
        if (c == code) return std::string(name);
    }
    return {};
}

}  // namespace

std::string description::pick_language(const std::string& requested) const {
    if (requested.empty()) {
        for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char* value = std::getenv(variable);
            if (value == nullptr || *value == '\0') continue;
            const auto name = name_of_code(code_of(value));
            return has_language(name) ? name : "English";
        }
        return "English";
    }
    if (has_language(requested) || (languages().empty() && requested == "English"))
        return requested;
    if (const auto name = name_of_code(code_of(requested)); has_language(name)) return name;
    std::string known;
    for (const auto& l : languages()) {
        std::string code;
        for (const auto& [c, name] : language_codes) {
            if (name == l) code = " (" + std::string(c) + ")";
        }
        known += (known.empty() ? "" : ", ") + l + code;
    }
    throw host_error("no texts in \"" + requested +
                     "\"; the module has: " + (known.empty() ? "English only" : known));
}

std::string description::text(const std::string& key, const std::string& language,
                              const std::string& fallback) const {
    for (const auto& lang : {language, std::string("English")}) {
        const auto texts = texts_.find(lang);
        if (texts == texts_.end()) continue;
        const auto it = texts->second.find(key);
        if (it != texts->second.end() && !it->second.empty()) return it->second;
    }
    return fallback;
}

}  // namespace corvanis::monitoring_modules::host
