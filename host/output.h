#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/description.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::host {

struct message_view {
    std::string key;
    std::string text;
    std::vector<std::string> args;
};

struct channel_view {
    int id = 0;
    std::string name;
    std::string unit;
    bool integer = true;  // else floating
    std::int64_t integer_value = 0;
    double floating_value = 0;
    std::string state;  // the lookup's text for state channels, else empty
    // Counters show their change since the previous scan; `raw` keeps the counter itself.
    bool counter = false;
    std::optional<std::int64_t> raw;
    bool has_value = true;    // false: no value this scan (first scan of a counter, a reset)
    std::string limit_state;  // "ok", "warning" or "error" where a limit applies, else empty
    double scale = 1;         // the definition's scale factor, already applied to the value
};

// A scan result as the operator sees it: names, units, values with their scale factor applied.
struct scan_view {
    int sensor_id = 0;
    std::string kind;
    std::string display;  // the kind's display name, else the kind
    int response_code = 0;
    bool error = false;
    std::optional<message_view> message;
    std::vector<channel_view> channels;            // those with a value, by id
    std::string name;                              // the configured name, else empty
    std::string state = "ok";                      // "ok", "warning", "error" or "unknown"
    std::chrono::system_clock::time_point time{};  // when the result was received
    std::chrono::nanoseconds duration{};           // how long the scan took
    std::optional<double> collected_seconds;       // a one-shot scan's collecting window, if any
};

// Codes 0 (ok) and 1 (warning) report no failure; every other code does.
bool is_error_code(int response_code);
// The message's English text: its text, else its default text with the arguments filled in.
std::string render_text(const tavo::wire::I18nMessage& message);
// `doc` may be null; names and state texts then come from the result alone.
scan_view make_scan_view(const tavo::wire::ScanResult& result, const std::string& kind,
                         const description* doc);
const char* severity_name(int severity);

// One JSON object per line, without the line end.
std::string json_line(const scan_view& scan);
std::string json_line(const tavo::wire::CheckResult& check);
std::string json_line(const tavo::wire::NotificationResponse& response);

// The single status line of a monitoring plugin with performance data, without the line end:
// "OK - MQTT Round Trip #1 | 'Round Trip Time'=0ms;50;500".
std::string nagios_line(const scan_view& scan, const std::map<std::string, channel_limits>& limits);
std::string nagios_line(const tavo::wire::CheckResult& check, const std::string& check_name);

enum class output_format { table, json, nagios };

struct table_style {
    bool color = false;
    std::string language;  // a name or ISO 639-1 code; empty: English, module texts as sent
};

// Readable blocks, each ending in a line end. `clock` is printed in front ("14:02:11").
std::string table_block(const scan_view& scan, const std::string& clock, const table_style& style);
std::string table_block(const tavo::wire::CheckResult& check, const std::string& check_name,
                        const std::string& clock, const table_style& style);
std::string table_block(const tavo::wire::NotificationResponse& response, const std::string& target,
                        const std::string& clock, const table_style& style);

// Prints results as JSON lines, tables or status lines, one whole block at a time. Thread-safe.
class result_printer {
  public:
    result_printer(std::ostream& out, bool json, const description* doc, table_style style);
    result_printer(std::ostream& out, output_format format, const description* doc,
                   table_style style);

    void print(const tavo::wire::ScanResult& result, const std::string& kind);
    // `limits` give the status line's warning and critical thresholds.
    void print(const scan_view& scan, const std::map<std::string, channel_limits>& limits = {});
    void print(const tavo::wire::CheckResult& check, const std::string& check_name);
    void print(const tavo::wire::NotificationResponse& response, const std::string& target);
    // A line for people only; JSON lines and status lines leave it out.
    void note(const std::string& text);
    bool json() const { return format_ == output_format::json; }
    output_format format() const { return format_; }
    const table_style& style() const { return style_; }

  private:
    void write(const std::string& text);
    template <typename Result>
    Result in_language(Result result) const;

    std::mutex mutex_;
    std::ostream& out_;  // guarded by mutex_
    output_format format_;
    const description* doc_;
    table_style style_;
};

// Local wall-clock time as HH:MM:SS.
std::string clock_now();
// Whether stdout is a colour terminal and NO_COLOR is not set.
bool want_color();

}  // namespace corvanis::monitoring_modules::host
