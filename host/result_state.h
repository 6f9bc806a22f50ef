#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/output.h"

namespace corvanis::monitoring_modules::host {

// States from least to most severe when results are combined: ok, warning, unknown, error.
std::string state_of_response_code(int response_code);
std::string worse_state(const std::string& a, const std::string& b);
// 0 ok, 1 warning, 2 error, 3 unknown.
int exit_code_of(const std::string& state);

// A text the host writes itself, in `language` (a name such as "German" or its two-letter
// code), else in English; "%0", "%1" ... take `args`.
std::string host_text(const std::string& key, const std::string& language,
                      const std::vector<std::string>& args = {});

// Marks each channel that has limits with "ok", "warning" or "error", raises the result's
// state to the worst of them and puts the reasons, each naming its channel and limit, in
// front of the message. Channels without a value this scan are left alone.
void apply_limits(scan_view& scan, const std::map<std::string, channel_limits>& limits,
                  const std::string& language);

// Adds one "CHANNEL:KEY=VALUE" of --limit to `limits`. Throws host_error naming the fault.
void add_limit_option(const std::string& text, std::map<std::string, channel_limits>& limits);

// Shows each counter as its change since the previous scan. The first reading and one
// lower than the previous (a device reset) show no value.
class counter_memory {
  public:
    explicit counter_memory(std::map<int, std::int64_t> last = {}) : last_(std::move(last)) {}
    // Returns the raw readings to keep for the next scan, by channel id.
    std::map<int, std::int64_t> apply(scan_view& scan);

  private:
    std::map<int, std::int64_t> last_;
};

// "2026-11-22T18:03:07.125Z".
std::string rfc3339_utc(std::chrono::system_clock::time_point time);

}  // namespace corvanis::monitoring_modules::host
