#include "host/config.h"

#include <yaml-cpp/yaml.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr std::string_view file_suffix = "_file";

class reader {
  public:
    reader(std::string name, environment_lookup environment, std::string base_directory)
        : name_(std::move(name)),
          environment_(environment),
          base_directory_(std::move(base_directory)) {}

    std::string where(const YAML::Node& node) const {
        const auto mark = node.Mark();
        return mark.line >= 0 ? name_ + ":" + std::to_string(mark.line + 1) : name_;
    }

    [[noreturn]] void fail(const YAML::Node& node, const std::string& text) const {
        throw host_error(where(node) + ": " + text);
    }

    std::string scalar(const YAML::Node& node, const std::string& what) const {
        if (node.IsNull()) return {};
        if (!node.IsScalar()) fail(node, what + " must be a single value");
        return node.Scalar();
    }

    template <typename Number>
    Number number(const YAML::Node& node, const std::string& what, Number minimum) const {
        const auto text = scalar(node, what);
        Number value{};
        const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (ec != std::errc() || ptr != text.data() + text.size() || text.empty()) {
            fail(node, what + " must be a " +
                           (std::is_integral_v<Number> ? "whole number" : "number") + ", not \"" +
                           text + "\"");
        }
        if (value < minimum) fail(node, what + " must be at least " + std::to_string(minimum));
        return value;
    }

    // A map whose keys each appear once; YAML itself would keep the first silently.
    void unique_keys(const YAML::Node& node) const {
        std::set<std::string> seen;
        for (const auto& item : node) {
            const auto key = scalar(item.first, "a key");
            if (!seen.insert(key).second) fail(item.first, "duplicate key \"" + key + "\"");
        }
    }

    // Nested maps become dotted keys; KEY_file: PATH becomes KEY with the file's content.
    void settings(const YAML::Node& node, const std::string& what, std::vector<setting_pair>& out,
                  setting_origins& origins, const std::string& prefix = "") const {
        if (node.IsNull()) return;
        if (!node.IsMap()) fail(node, what + " must be a map of KEY: VALUE");
        unique_keys(node);
        for (const auto& item : node) {
            auto key = prefix + scalar(item.first, "a setting key");
            if (item.second.IsMap()) {
                settings(item.second, what, out, origins, key + ".");
                continue;
            }
            auto value = scalar(item.second, "setting \"" + key + "\"");
            try {
                value = expand_environment(value, environment_);
            } catch (const host_error& e) {
                fail(item.second, "setting \"" + key + "\": " + e.what());
            }
            if (key.size() > file_suffix.size() && key.ends_with(file_suffix)) {
                key.resize(key.size() - file_suffix.size());
                std::filesystem::path path(value);
                if (path.is_relative() && !base_directory_.empty())
                    path = std::filesystem::path(base_directory_) / path;
                try {
                    value = read_setting_file(path.string());
                } catch (const host_error& e) {
                    fail(item.second, "setting \"" + key + "\": " + e.what());
                }
            }
            if (!origins.emplace(key, where(item.first)).second) {
                fail(item.first,
                     "setting \"" + key + "\" given twice (first at " + origins.at(key) + ")");
            }
            out.emplace_back(std::move(key), std::move(value));
        }
    }

    void only_keys(const YAML::Node& node, const std::set<std::string>& allowed,
                   const std::string& what) const {
        unique_keys(node);
        for (const auto& item : node) {
            const auto key = scalar(item.first, "a key");
            if (allowed.count(key) == 0) {
                std::string list;
                for (const auto& a : allowed) list += (list.empty() ? "" : ", ") + a;
                fail(item.first,
                     "unknown key \"" + key + "\" in " + what + " (expected " + list + ")");
            }
        }
    }

    std::map<std::string, channel_limits> limits(const YAML::Node& node,
                                                 const std::string& label) const {
        std::map<std::string, channel_limits> out;
        if (node.IsNull()) return out;
        if (!node.IsMap()) fail(node, label + " limits: must map a channel name to its limits");
        unique_keys(node);
        for (const auto& item : node) {
            const auto channel = scalar(item.first, "a channel name");
            if (!item.second.IsMap())
                fail(item.second, "limits of \"" + channel + "\" must be a map");
            only_keys(item.second, {"warning_min", "warning_max", "error_min", "error_max"},
                      "the limits of \"" + channel + "\"");
            const auto bound = [&](const char* key) -> std::optional<double> {
                const auto value = item.second[key];
                if (!value) return std::nullopt;
                return number<double>(value,
                                      "limit " + std::string(key) + " of \"" + channel + "\"",
                                      -std::numeric_limits<double>::infinity());
            };
            channel_limits l{bound("warning_min"), bound("warning_max"), bound("error_min"),
                             bound("error_max")};
            const auto ordered = [&](const std::optional<double>& low,
                                     const std::optional<double>& high, const char* what) {
                if (low && high && *low > *high)
                    fail(item.first, "limits of \"" + channel + "\": " + what + " above its max");
            };
            ordered(l.warning_min, l.warning_max, "warning_min");
            ordered(l.error_min, l.error_max, "error_min");
            out.emplace(channel, l);
        }
        return out;
    }

  private:
    std::string name_;
    environment_lookup environment_;
    std::string base_directory_;
};

}  // namespace

std::optional<std::string> process_environment(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

std::string expand_environment(const std::string& text, environment_lookup environment) {
    std::string out;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text.compare(at, 3, "$${") == 0) {
            out += "${";
            at += 3;
        } else if (text.compare(at, 2, "${") == 0) {
            const auto end = text.find('}', at + 2);
            if (end == std::string::npos)
                throw host_error("\"${\" without its \"}\" (write $${ for a literal ${)");
            const auto name = text.substr(at + 2, end - at - 2);
            if (name.empty()) throw host_error("\"${}\" names no environment variable");
            const auto value = environment(name);
            if (!value) throw host_error("environment variable " + name + " is not set");
            out += *value;
            at = end + 1;
        } else {
            out += text[at++];
        }
    }
    return out;
}

const sensor_entry* probe_config::find_sensor(int id) const {
    for (const auto& sensor : sensors) {
        if (sensor.id == id) return &sensor;
    }
    return nullptr;
}

probe_config parse_config(const std::string& yaml, const std::string& name,
                          environment_lookup environment, const std::string& base_directory) {
    const reader r(name, environment, base_directory);
    YAML::Node root;
    try {
        root = YAML::Load(yaml);
    } catch (const YAML::Exception& e) {
        std::string where = name;
        if (e.mark.line >= 0) where += ":" + std::to_string(e.mark.line + 1);
        throw host_error(where + ": not valid YAML: " + e.msg);
    }
    probe_config config;
    config.name = name;
    if (root.IsNull()) return config;
    if (!root.IsMap()) r.fail(root, "the configuration must be a map with defaults: and sensors:");
    r.only_keys(root, {"defaults", "sensors", "check", "listen"}, "the configuration");
    if (root["listen"]) config.listen = r.scalar(root["listen"], "listen");

    if (root["defaults"])
        r.settings(root["defaults"], "defaults", config.defaults, config.defaults_where);
    if (const auto check = root["check"]) {
        if (!check.IsMap()) r.fail(check, "check must be a map with settings:");
        r.only_keys(check, {"settings"}, "check");
        r.settings(check["settings"], "check settings", config.check_settings, config.check_where);
    }
    const auto sensors = root["sensors"];
    if (sensors && !sensors.IsNull()) {
        if (!sensors.IsSequence()) r.fail(sensors, "sensors must be a list");
        std::set<int> ids;
        std::map<std::string, std::string> names;  // name -> where first used
        for (const auto& node : sensors) {
            if (!node.IsMap()) r.fail(node, "each sensor must be a map with id: and kind:");
            r.only_keys(node,
                        {"id", "kind", "name", "interval", "stale_after", "limits", "settings"},
                        "a sensor");
            sensor_entry entry;
            entry.location = r.where(node);
            if (!node["id"]) r.fail(node, "a sensor needs an id:");
            entry.id = r.number<int>(node["id"], "id", 1);
            const std::string label = "sensor " + std::to_string(entry.id);
            if (!ids.insert(entry.id).second)
                r.fail(node["id"], "id " + std::to_string(entry.id) + " used twice");
            if (!node["kind"]) r.fail(node, label + " needs a kind:");
            entry.kind = r.scalar(node["kind"], "kind");
            if (entry.kind.empty()) r.fail(node["kind"], label + " needs a kind:");
            if (const auto name_node = node["name"]) {
                entry.name = r.scalar(name_node, "name");
                if (entry.name.empty()) r.fail(name_node, label + ": name: is empty");
                const auto [it, fresh] = names.emplace(entry.name, r.where(name_node));
                if (!fresh) {
                    r.fail(name_node,
                           "name \"" + entry.name + "\" used twice (first at " + it->second + ")");
                }
            }
            if (node["settings"]) {
                r.settings(node["settings"], label + " settings", entry.settings, entry.where);
            }
            if (const auto interval = node["interval"]) {
                const int seconds = r.number<int>(interval, "interval", 1);
                if (entry.where.count("interval") != 0)
                    r.fail(interval, label + " has interval: and settings.interval");
                entry.settings.insert(entry.settings.begin(),
                                      {"interval", std::to_string(seconds)});
                entry.where.emplace("interval", r.where(interval));
            }
            if (const auto stale = node["stale_after"]) {
                entry.stale_after = std::chrono::seconds(r.number<int>(stale, "stale_after", 1));
            }
            if (node["limits"]) entry.limits = r.limits(node["limits"], label);
            config.sensors.push_back(std::move(entry));
        }
    }
    return config;
}

probe_config load_config(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw host_error("cannot read the configuration \"" + path + "\"");
    std::ostringstream text;
    text << in.rdbuf();
    return parse_config(text.str(), path, process_environment,
                        std::filesystem::path(path).parent_path().string());
}

}  // namespace corvanis::monitoring_modules::host
