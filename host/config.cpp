#include "host/config.h"

#include <yaml-cpp/yaml.h>

#include <charconv>
#include <fstream>
#include <set>
#include <sstream>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

class reader {
  public:
    explicit reader(std::string name) : name_(std::move(name)) {}

    [[noreturn]] void fail(const YAML::Node& node, const std::string& text) const {
        const auto mark = node.Mark();
        std::string where = name_;
        if (mark.line >= 0) where += ":" + std::to_string(mark.line + 1);
        throw host_error(where + ": " + text);
    }

    std::string scalar(const YAML::Node& node, const std::string& what) const {
        if (node.IsNull()) return {};
        if (!node.IsScalar()) fail(node, what + " must be a single value");
        return node.Scalar();
    }

    int integer(const YAML::Node& node, const std::string& what, int minimum) const {
        const auto text = scalar(node, what);
        int value = 0;
        const auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (ec != std::errc() || ptr != text.data() + text.size() || text.empty()) {
            fail(node, what + " must be a whole number, not \"" + text + "\"");
        }
        if (value < minimum) fail(node, what + " must be at least " + std::to_string(minimum));
        return value;
    }

    std::vector<setting_pair> settings(const YAML::Node& node, const std::string& what) const {
        std::vector<setting_pair> out;
        if (node.IsNull()) return out;
        if (!node.IsMap()) fail(node, what + " must be a map of KEY: VALUE");
        for (const auto& item : node) {
            const auto key = scalar(item.first, "a setting key");
            out.emplace_back(key, scalar(item.second, "setting \"" + key + "\""));
        }
        return out;
    }

    void only_keys(const YAML::Node& node, const std::set<std::string>& allowed,
                   const std::string& what) const {
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

    const std::string& name() const { return name_; }

  private:
    std::string name_;
};

}  // namespace

const sensor_entry* probe_config::find_sensor(int id) const {
    for (const auto& sensor : sensors) {
        if (sensor.id == id) return &sensor;
    }
    return nullptr;
}

probe_config parse_config(const std::string& yaml, const std::string& name) {
    const reader r(name);
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

    if (root["defaults"]) config.defaults = r.settings(root["defaults"], "defaults");
    if (const auto check = root["check"]) {
        if (!check.IsMap()) r.fail(check, "check must be a map with settings:");
        r.only_keys(check, {"settings"}, "check");
        config.check_settings = r.settings(check["settings"], "check settings");
    }
    const auto sensors = root["sensors"];
    if (sensors && !sensors.IsNull()) {
        if (!sensors.IsSequence()) r.fail(sensors, "sensors must be a list");
        std::set<int> ids;
        for (const auto& node : sensors) {
            if (!node.IsMap()) r.fail(node, "each sensor must be a map with id: and kind:");
            r.only_keys(node, {"id", "kind", "interval", "settings"}, "a sensor");
            sensor_entry entry;
            if (!node["id"]) r.fail(node, "a sensor needs an id:");
            entry.id = r.integer(node["id"], "id", 1);
            const std::string label = "sensor " + std::to_string(entry.id);
            if (!ids.insert(entry.id).second)
                r.fail(node["id"], "id " + std::to_string(entry.id) + " used twice");
            if (!node["kind"]) r.fail(node, label + " needs a kind:");
            entry.kind = r.scalar(node["kind"], "kind");
            if (entry.kind.empty()) r.fail(node["kind"], label + " needs a kind:");
            if (node["settings"])
                entry.settings = r.settings(node["settings"], label + " settings");
            if (const auto interval = node["interval"]) {
                const int seconds = r.integer(interval, "interval", 1);
                for (const auto& [key, value] : entry.settings) {
                    if (key == "interval")
                        r.fail(interval, label + " has interval: and settings.interval");
                }
                entry.settings.insert(entry.settings.begin(),
                                      {"interval", std::to_string(seconds)});
            }
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
    return parse_config(text.str(), path);
}

}  // namespace corvanis::monitoring_modules::host
