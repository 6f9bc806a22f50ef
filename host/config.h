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
    std::string name;                                // free text, unique in a config; may be empty
    std::map<std::string, channel_limits> limits;    // by channel name as shown
    std::optional<std::chrono::seconds> stale_after; // push sensors: no message for this long
};

// A probe configuration:
//   defaults: {KEY: VALUE, ...}        applied to every sensor and check
//   sensors:  [{id, kind, interval, settings: {KEY: VALUE}}, ...]
//   check:    {settings: {KEY: VALUE}}  optional, for the check subcommand
//   listen:   ADDR:PORT                 optional, where run serves metrics and its status page
struct probe_config {
    std::string name;  // file name, for error texts
    std::vector<setting_pair> defaults;
    std::vector<sensor_entry> sensors;
    std::vector<setting_pair> check_settings;
    std::string listen;  // "listen:" ADDR:PORT for run's HTTP endpoint; empty: none

    const sensor_entry* find_sensor(int id) const;
};

// Throw host_error with the file name and line of the fault: malformed YAML, an unknown
// key, a missing or duplicate id, a missing kind, an interval below one second.
probe_config parse_config(const std::string& yaml, const std::string& name);
probe_config load_config(const std::string& path);

}  // namespace corvanis::monitoring_modules::host
