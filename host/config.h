#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/settings.h"

namespace corvanis::monitoring_modules::host {

struct sensor_entry {
    int id = 0;
    std::string kind;
    std::vector<setting_pair> settings;  // "interval:" is folded in as the interval setting
};

// A probe configuration:
//   defaults: {KEY: VALUE, ...}        applied to every sensor and check
//   sensors:  [{id, kind, interval, settings: {KEY: VALUE}}, ...]
//   check:    {settings: {KEY: VALUE}}  optional, for the check subcommand
struct probe_config {
    std::string name;  // file name, for error texts
    std::vector<setting_pair> defaults;
    std::vector<sensor_entry> sensors;
    std::vector<setting_pair> check_settings;

    const sensor_entry* find_sensor(int id) const;
};

// Throw host_error with the file name and line of the fault: malformed YAML, an unknown
// key, a missing or duplicate id, a missing kind, an interval below one second.
probe_config parse_config(const std::string& yaml, const std::string& name);
probe_config load_config(const std::string& path);

}  // namespace corvanis::monitoring_modules::host
