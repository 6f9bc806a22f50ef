#include "host/settings.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "host/errors.h"
#include "host/pem_check.h"

namespace corvanis::monitoring_modules::host {

namespace {

setting_def common(std::string key, std::string display, std::string help,
                   std::string default_value, setting_kind kind,
                   std::vector<setting_option> options = {}) {
    setting_def def;
    def.key = key;
    def.name = std::move(key);
    def.display = std::move(display);
    def.help = std::move(help);
    def.default_value = std::move(default_value);
    def.kind = kind;
    def.options = std::move(options);
    return def;
}

setting_def integer(setting_def def, long long minimum, std::optional<long long> maximum = {}) {
    def.minimum = minimum;
    def.maximum = maximum;
    return def;
}

}  // namespace

std::vector<setting_def> common_settings() {
    auto api_key = common("corvaniscloudapikey", "Cloud API Key", "Secret key for cloud services.",
                          "", setting_kind::text);
    api_key.secret = true;
    return {
        common("host", "Host", "Name or IP address of the broker.", "127.0.0.1",
               setting_kind::text),
        integer(common("timeout", "Timeout (s)",
                       "Seconds to wait for the broker, also when connecting.", "10",
                       setting_kind::integer),
                0),
        integer(common("interval", "Scanning Interval (s)", "Seconds between two scans.", "60",
                       setting_kind::integer),
                1, 31'536'000),
        common("logging", "Logging", "Whether the sensor writes its own log.", "disabled",
               setting_kind::selection, {{"disabled", "Disabled"}, {"enabled", "Enabled"}}),
        common("ipversion", "IP Version", "IP version used to reach the broker.", "IPv4",
               setting_kind::selection, {{"IPv4", "IPv4"}, {"IPv6", "IPv6"}}),
        std::move(api_key),
    };
}

std::vector<setting_def> section_settings(const description& doc, const std::string& section,
                                          const std::vector<std::string>& only_groups) {
    std::vector<setting_def> out;
    const auto* s = doc.find_section(section);
    if (s == nullptr)
        throw host_error("the module description names an unknown section \"" + section + "\"");
    for (const auto& group : s->groups) {
        if (!only_groups.empty() &&
            std::find(only_groups.begin(), only_groups.end(), group) == only_groups.end()) {
            continue;
        }
        const std::string prefix = section + "." + group + ".";
        for (auto def : doc.group_settings(group)) {
            def.key = prefix + def.name;
            if (!def.depends_on.empty()) def.depends_on = prefix + def.depends_on;
            out.push_back(std::move(def));
        }
    }
    return out;
}

namespace {

constexpr const char* login_user_key = "credentials.user_credentials.user";
constexpr const char* login_active_key = "credentials.user_credentials.active";

std::string join(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : ", ") + item;
    return out.empty() ? "none" : out;
}

std::size_t edit_distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            row[j] =
                std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return row[b.size()];
}

// The key the operator most likely meant: same last part, else a near spelling.
std::string suggestion(const settings_schema& schema, const std::string& key) {
    const auto dot = key.rfind('.');
    const std::string last = dot == std::string::npos ? key : key.substr(dot + 1);
    std::string best;
    std::size_t best_distance = std::max<std::size_t>(2, key.size() / 4) + 1;
    for (const auto& def : schema.settings) {
        const bool same_tail =
            def.key.size() > last.size() &&
            def.key.compare(def.key.size() - last.size() - 1, std::string::npos, "." + last) == 0;
        // A short key is compared with the last part of each key.
        const std::size_t distance =
            same_tail ? 0
                      : std::min(edit_distance(key, def.key), dot == std::string::npos
                                                                  ? edit_distance(key, def.name)
                                                                  : std::size_t(-1));
        if (distance < best_distance) {
            best = def.key;
            best_distance = distance;
        }
    }
    return best;
}

bool parse_integer(const std::string& text, long long& out) {
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, out);
    return ec == std::errc() && ptr == end && !text.empty();
}

bool parse_floating(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    return errno == 0 && end == text.c_str() + text.size();
}

void append(std::vector<setting_def>& to, std::vector<setting_def> more) {
    for (auto& def : more) to.push_back(std::move(def));
}

bool shown(const settings_schema& schema, const setting_def& def, const settings_map& values) {
    if (def.depends_on.empty()) return true;
    const auto it = values.find(def.depends_on);
    if (it == values.end() || it->second != def.condition) return false;
    const auto* parent = schema.find(def.depends_on);
    return parent == nullptr || shown(schema, *parent, values);
}

}  // namespace

const setting_def* settings_schema::find(const std::string& key) const {
    const auto it =
        std::find_if(settings.begin(), settings.end(), [&](const auto& d) { return d.key == key; });
    return it == settings.end() ? nullptr : &*it;
}

std::string settings_schema::canonical(const std::string& key) const {
    const auto it = aliases.find(key);
    return it == aliases.end() ? key : it->second;
}

std::string settings_schema::resolve(const std::string& given) const {
    const auto key = canonical(given);
    if (find(key) != nullptr) return key;
    const std::string tail = "." + given;
    std::vector<std::string> matches;
    for (const auto& def : settings) {
        if (def.key.ends_with(tail)) matches.push_back(def.key);
    }
    if (matches.size() > 1) {
        throw host_error("setting \"" + given + "\" is ambiguous for " + kind + "; write one of " +
                         join(matches));
    }
    return matches.empty() ? std::string() : matches.front();
}

settings_schema sensor_schema(const description& doc, const std::string& kind) {
    const auto* sensor = doc.find_sensor(kind);
    if (sensor == nullptr) {
        std::vector<std::string> kinds;
        for (const auto& s : doc.sensors()) kinds.push_back(s.name);
        throw host_error("unknown sensor kind \"" + kind + "\"; the module offers: " + join(kinds));
    }
    settings_schema schema{target_kind::sensor, kind, common_settings(), {}};
    for (const auto& section : sensor->sections)
        append(schema.settings, section_settings(doc, section));
    return schema;
}

settings_schema check_schema(const description& doc, const std::string& name) {
    if (doc.checks().empty()) throw host_error("the module offers no check");
    const auto* check = name.empty() ? &doc.checks().front() : doc.find_check(name);
    if (check == nullptr) throw host_error("unknown check \"" + name + "\"");
    settings_schema schema{target_kind::check, check->name, common_settings(), {}};
    for (const auto& section : check->sections)
        append(schema.settings, section_settings(doc, section));
    return schema;
}

settings_schema notification_schema(const description& doc, int pid) {
    settings_schema schema{target_kind::notification, notification_kind, {}, {}};
    schema.settings.push_back(common("connection.host", "Host", "Name or IP address of the broker.",
                                     "127.0.0.1", setting_kind::text));
    schema.settings.push_back(integer(
        common("connection.port", "Port", "Port of the broker.", "1883", setting_kind::integer), 0,
        65535));
    schema.settings.push_back(common("connection.client_id", "Client ID",
                                     "MQTT client id used to publish.",
                                     "tavo-probe-" + std::to_string(pid), setting_kind::text));
    if (doc.find_section("credentials") != nullptr) {
        append(schema.settings, section_settings(doc, "credentials", {"user_credentials", "tls"}));
    }
    schema.aliases = {{"host", "connection.host"},
                      {"credentials.connection_mqtt.port", "connection.port"}};
    return schema;
}

settings_map default_values(const settings_schema& schema) {
    settings_map values;
    for (const auto& def : schema.settings) {
        // A text field left alone in a form is sent empty.
        if (def.default_value || def.kind == setting_kind::text) {
            values[def.key] = def.default_value.value_or("");
        }
    }
    return values;
}

settings_map resolve_settings(const settings_schema& schema,
                              const std::vector<settings_layer>& layers, setting_origins* origins) {
    settings_map values = default_values(schema);
    std::set<std::string> given_keys;
    for (const auto& layer : layers) {
        std::map<std::string, std::string> spelled;  // key -> as given, within a file's layer
        for (const auto& [given, value] : layer.values) {
            const auto at = layer.where.find(given);
            const std::string where = at == layer.where.end() ? "" : at->second + ": ";
            std::string key;
            try {
                key = schema.resolve(given);
            } catch (const host_error& e) {
                throw host_error(where + e.what() + " (from " + layer.origin + ")");
            }
            if (key.empty()) {
                if (layer.skip_foreign) continue;
                std::string text = where + "unknown setting \"" + given + "\" for " + schema.kind +
                                   " (from " + layer.origin + ")";
                if (const auto hint = suggestion(schema, given); !hint.empty()) {
                    text += "; did you mean \"" + hint + "\"?";
                }
                throw host_error(text);
            }
            // In a file, two spellings of one key are a slip; on the command line the last wins.
            if (const auto [first, fresh] = spelled.emplace(key, given);
                !fresh && !layer.where.empty()) {
                throw host_error(where + "setting \"" + given + "\" is \"" + first->second +
                                 "\" again, both " + key + " (from " + layer.origin + ")");
            }
            values[key] = value;
            given_keys.insert(key);
            if (origins != nullptr) {
                (*origins)[key] = at == layer.where.end() ? layer.origin : at->second;
            }
        }
    }
    // A user name alone means logging in; an explicit "no" still wins.
    const auto user = values.find(login_user_key);
    if (user != values.end() && !user->second.empty() && schema.find(login_active_key) &&
        given_keys.count(login_active_key) == 0) {
        values[login_active_key] = "yes";
    }
    return values;
}

void validate_settings(const settings_schema& schema, const settings_map& values,
                       const setting_origins* origins) {
    const auto origin = [&](const std::string& key) {
        if (origins == nullptr) return std::string();
        const auto it = origins->find(key);
        return it == origins->end() ? std::string() : it->second + ": ";
    };
    settings_map in_use;
    for (const auto& def : schema.settings) {
        const auto it = values.find(def.key);
        const bool empty = it == values.end() || it->second.empty();
        const bool used = shown(schema, def, values);
        if (empty && def.required && used) {
            throw host_error(origin(def.key) + "setting \"" + def.key + "\" (" + def.display +
                             ") is required for " + schema.kind + ": --set " + def.key + "=VALUE");
        }
        if (it == values.end()) continue;
        if (used) in_use.insert(*it);
        if (empty && def.kind == setting_kind::text) continue;
        const std::string& value = it->second;
        const std::string where =
            origin(def.key) + "setting \"" + def.key + "\" = \"" + value + "\": ";
        switch (def.kind) {
            case setting_kind::integer: {
                long long n = 0;
                if (!parse_integer(value, n)) throw host_error(where + "not a whole number");
                if (def.minimum && n < *def.minimum) {
                    throw host_error(where + "below the minimum " + std::to_string(*def.minimum));
                }
                if (def.maximum && n > *def.maximum) {
                    throw host_error(where + "above the maximum " + std::to_string(*def.maximum));
                }
                break;
            }
            case setting_kind::floating: {
                double d = 0;
                if (!parse_floating(value, d)) throw host_error(where + "not a number");
                break;
            }
            case setting_kind::selection: {
                std::vector<std::string> allowed;
                for (const auto& option : def.options) allowed.push_back(option.value);
                if (!allowed.empty() &&
                    std::find(allowed.begin(), allowed.end(), value) == allowed.end()) {
                    throw host_error(where + "must be one of " + join(allowed));
                }
                break;
            }
            case setting_kind::text:
                break;
        }
    }
    if (const auto fault = check_pem_settings(schema, in_use)) {
        throw host_error(origin(fault->key) + "setting \"" + fault->key + "\" " + fault->reason);
    }
}

tavo::wire::SettingsBlock make_block(const settings_schema& schema, const settings_map& values) {
    tavo::wire::SettingsBlock block;
    block.set_kind(schema.kind);
    for (const auto& [key, value] : values) {
        const auto* def = schema.find(key);
        auto& target = def != nullptr && def->secret ? *block.mutable_secure_settings()
                                                     : *block.mutable_settings();
        target[key] = value;
    }
    return block;
}

setting_pair parse_assignment(const std::string& text, const std::string& option) {
    const auto eq = text.find('=');
    if (eq == std::string::npos || eq == 0) {
        throw host_error(option + " \"" + text +
                         "\": expected KEY=" + (option == "--set-file" ? "PATH" : "VALUE"));
    }
    return {text.substr(0, eq), text.substr(eq + 1)};
}

setting_pair read_assignment_file(const std::string& text) {
    auto [key, path] = parse_assignment(text, "--set-file");
    try {
        return {key, read_setting_file(path)};
    } catch (const host_error& e) {
        throw host_error("--set-file " + key + ": " + e.what());
    }
}

std::string read_setting_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw host_error("cannot read \"" + path + "\"");
    std::ostringstream content;
    content << in.rdbuf();
    auto text = content.str();
    if (text.ends_with('\n') && text.find('\n') == text.size() - 1) text.pop_back();
    return text;
}

bool is_known_anywhere(const description& doc, const std::string& key) {
    std::vector<settings_schema> schemas;
    for (const auto& sensor : doc.sensors()) schemas.push_back(sensor_schema(doc, sensor.name));
    for (const auto& check : doc.checks()) schemas.push_back(check_schema(doc, check.name));
    schemas.push_back(notification_schema(doc, 0));
    return std::any_of(schemas.begin(), schemas.end(),
                       [&](const settings_schema& schema) { return !schema.resolve(key).empty(); });
}

}  // namespace corvanis::monitoring_modules::host
