#pragma once

#include <string>
#include <string_view>

#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

// What the probe says about itself on every endpoint.
struct probe_identity {
    std::string version;         // tavo-probe's
    std::string module_version;  // from the module's description document
    int api_level = 0;
    std::string shard;  // "K/N", empty when the probe runs the whole config
};

inline constexpr const char* metrics_content_type = "text/plain; version=0.0.4; charset=utf-8";

// The board in the Prometheus text exposition format 0.0.4, appended to `out`. One pass over
// the sensors; `out` keeps its capacity between calls when the caller reuses it.
void render_metrics(const status_board& board, const probe_identity& probe, std::string& out);

// A label value as the format requires: backslash, double quote and line feed escaped.
void append_label_value(std::string& out, std::string_view value);

// 0 ok, 1 warning, 2 error, 3 unknown (also for anything unexpected).
int state_number(std::string_view state);

}  // namespace corvanis::monitoring_modules::host
