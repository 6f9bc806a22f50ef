#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "host/probe.h"
#include "host/shard.h"
#include "host/signals.h"

namespace corvanis::monitoring_modules::host {

// Each command returns the process exit code and throws host_error for a failure
// that ends it (exit 3 unless the error says otherwise).

// `kind` empty: every kind; else one sensor kind, the check or the notification.
int describe_command(const global_options& global, const std::string& kind, bool json);

// Checks a config as run would load it, without connecting; exit 0, or 3 with the reasons.
int validate_command(const global_options& global, const std::string& config_path);

struct scan_options {
    std::string kind;
    int id = 1;
    settings_options settings;
    int count = 1;
    std::optional<double> interval;  // seconds; default: the interval setting
    std::string state;
    bool json = false;
    std::string format;               // "table", "json" or "nagios"; empty: by `json`
    std::optional<double> wait;       // seconds a push sensor collects before its first scan
    std::vector<std::string> limits;  // CHANNEL:KEY=VALUE, over the config's limits
    std::string language = "English";
};
int scan_command(const global_options& global, const scan_options& options, std::stop_token stop);

// `format` as for scan.
int check_command(const global_options& global, const settings_options& settings, bool json,
                  const std::string& format = "");

struct notify_options {
    std::string target;
    std::string message;
    unsigned int timeout = 10;
    settings_options settings;
    bool json = false;
};
int notify_command(const global_options& global, const notify_options& options);

struct run_options {
    std::string config;
    std::string listen;  // ADDR:PORT; empty: the config's listen:
    std::optional<shard_assignment> shard;
    std::string state;
    std::optional<double> seconds;
    bool json = false;
    std::string language = "English";
};
// With `reloads`, each request loads the config again and applies what changed.
int run_command(const global_options& global, const run_options& options, std::stop_token stop,
                reload_requests* reloads = nullptr);

struct demo_options {
    std::optional<double> seconds;
    bool json = false;
};
int version_command(const global_options& global);

int demo_command(const global_options& global, const demo_options& options, std::stop_token stop);

}  // namespace corvanis::monitoring_modules::host
