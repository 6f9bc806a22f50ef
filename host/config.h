#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/settings.h"

namespace corvanis::monitoring_modules::host {

// Bounds on one channel's shown value; a value beyond an error bound is an error, beyond a
// warning bound a warning.
struct channel_limits {
    std::optional<double> warning_min, warning_max, error_min, error_max;
};

struct sensor_entry {
    int id = 0;
    std::string kind;
    std::vector<setting_pair> settings;  // "interval:" is folded in as the interval setting
    std::string name;                    // free text, unique in a config; may be empty
    std::map<std::string, channel_limits> limits;     // by channel name as shown
    std::optional<std::chrono::seconds> stale_after;  // push sensors: no message for this long
    setting_origins where;                            // "file:line" of each setting as written
    std::string location;                             // "file:line" of the entry
};

// A probe configuration:
//   defaults: {KEY: VALUE, ...}        applied to every sensor and check
//   sensors:  [{id, kind, name, interval, stale_after, limits, settings}, ...]
//   check:    {settings: {KEY: VALUE}}  optional, for the check subcommand
//   listen:   ADDR:PORT                 optional, where run serves metrics and its status page
// Setting maps may nest (credentials: {connection_mqtt: {port: 1883}} is
// credentials.connection_mqtt.port), values may name environment variables (${VAR},
// $${ for a literal ${) and KEY_file: PATH reads KEY's value from a file.
struct probe_config {
    std::string name;  // file name, for error texts
    std::vector<setting_pair> defaults;
    std::vector<sensor_entry> sensors;
    std::vector<setting_pair> check_settings;
    setting_origins defaults_where;
    setting_origins check_where;
    std::string listen;  // "listen:" ADDR:PORT for run's HTTP endpoint; empty: none

    const sensor_entry* find_sensor(int id) const;
};

// Where the environment comes from; tests pass their own.
using environment_lookup = std::optional<std::string> (*)(const std::string& name);
std::optional<std::string> process_environment(const std::string& name);

// Throw host_error with the file name and line of the fault: malformed YAML, an unknown or
// duplicate key, a missing or duplicate id or name, a missing kind, an interval below one
// second, a missing environment variable, an unreadable _file.
// Relative _file paths are taken from `base_directory` (the config's folder).
probe_config parse_config(const std::string& yaml, const std::string& name,
                          environment_lookup environment = process_environment,
                          const std::string& base_directory = "");
probe_config load_config(const std::string& path);

// ${VAR} replaced from `environment`, $${ kept as ${. Throws host_error naming a
// missing variable.
std::string expand_environment(const std::string& text, environment_lookup environment);

}  // namespace corvanis::monitoring_modules::host
