#pragma once

#include <optional>
#include <stop_token>
#include <string>

#include "host/probe.h"
#include "host/shard.h"

namespace corvanis::monitoring_modules::host {

// Each command returns the process exit code and throws host_error for a failure
// that ends it (exit 3 unless the error says otherwise).

int describe_command(const global_options& global, const std::string& language, bool json);

struct scan_options {
    std::string kind;
    int id = 1;
    settings_options settings;
    int count = 1;
    std::optional<double> interval;  // seconds; default: the interval setting
    std::string state;
    bool json = false;
};
int scan_command(const global_options& global, const scan_options& options, std::stop_token stop);

int check_command(const global_options& global, const settings_options& settings, bool json);

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
};
int run_command(const global_options& global, const run_options& options, std::stop_token stop);

struct demo_options {
    std::optional<double> seconds;
    bool json = false;
};
int version_command(const global_options& global);

int demo_command(const global_options& global, const demo_options& options, std::stop_token stop);

}  // namespace corvanis::monitoring_modules::host
