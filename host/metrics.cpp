#include "host/metrics.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>

namespace corvanis::monitoring_modules::host {

namespace {

constexpr std::array<std::string_view, 4> state_names = {"ok", "warning", "error", "unknown"};

void append_number(std::string& out, double value) {
    if (std::isnan(value)) {
        out += "NaN";
    } else if (std::isinf(value)) {
        out += value > 0 ? "+Inf" : "-Inf";
    } else {
        char buffer[32];
        const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
        out.append(buffer, ec == std::errc() ? end : buffer);
    }
}

void append_integer(std::string& out, std::int64_t value) {
    char buffer[24];
    const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, ec == std::errc() ? end : buffer);
}

void append_header(std::string& out, std::string_view name, std::string_view type,
                   std::string_view help) {
    out.append("# HELP ").append(name).append(" ").append(help).append("\n# TYPE ");
    out.append(name).append(" ").append(type).append("\n");
}

void append_counter(std::string& out, std::string_view name, std::string_view help,
                    std::uint64_t value) {
    append_header(out, name, "counter", help);
    out.append(name).append(" ");
    append_integer(out, static_cast<std::int64_t>(value));
    out += '\n';
}

// `{sensor="...",id="...",kind="..."` without the closing brace, so channel labels can follow.
void append_sensor_labels(std::string& out, std::string_view metric, const scan_view& scan) {
    out.append(metric).append("{sensor=\"");
    if (scan.name.empty()) {
        append_integer(out, scan.sensor_id);
    } else {
        append_label_value(out, scan.name);
    }
    out.append("\",id=\"");
    append_integer(out, scan.sensor_id);
    out.append("\",kind=\"");
    append_label_value(out, scan.kind);
    out.append("\"");
}

void append_channel_labels(std::string& out, std::string_view metric, const scan_view& scan,
                           const channel_view& channel) {
    append_sensor_labels(out, metric, scan);
    out.append(",channel=\"");
    append_label_value(out, channel.name);
    out.append("\",unit=\"");
    append_label_value(out, channel.unit);
    out.append("\"} ");
}

}  // namespace

int state_number(std::string_view state) {
    for (std::size_t i = 0; i < state_names.size(); ++i) {
        if (state == state_names[i]) return static_cast<int>(i);
    }
    return 3;
}

void append_label_value(std::string& out, std::string_view value) {
    for (const char c : value) {
        switch (c) {
            case '\\':
                out += "\\\\";
                break;
            case '"':
                out += "\\\"";
                break;
            case '\n':
                out += "\\n";
                break;
            default:
                out += c;
        }
    }
}

void render_metrics(const status_board& board, const probe_identity& probe, std::string& out) {
    // Each family's samples must stay together, so one pass fills a buffer per family.
    std::string states, durations, stamps, values, raws;
    const std::size_t guess = board.size() * 96;
    states.reserve(guess);
    durations.reserve(guess);
    stamps.reserve(guess);
    values.reserve(guess * 3);
    raws.reserve(guess);
    std::array<std::uint64_t, 4> by_state{};

    board.for_each([&](const sensor_status& status) {
        const auto& scan = status.latest;
        const int state = status.scanned ? state_number(scan.state) : 3;
        ++by_state[static_cast<std::size_t>(state)];
        append_sensor_labels(states, "tavo_sensor_state", scan);
        states += "} ";
        append_integer(states, state);
        states += '\n';
        if (!status.scanned) return;
        if (scan.duration.count() > 0) {  // else not measured: no sample rather than a zero
            append_sensor_labels(durations, "tavo_scan_duration_seconds", scan);
            durations += "} ";
            append_number(durations, std::chrono::duration<double>(scan.duration).count());
            durations += '\n';
        }
        append_sensor_labels(stamps, "tavo_last_scan_timestamp_seconds", scan);
        stamps += "} ";
        append_number(stamps,
                      static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                              scan.time.time_since_epoch())
                                              .count()) /
                          1000.0);
        stamps += '\n';
        for (const auto& channel : scan.channels) {
            if (channel.has_value) {
                append_channel_labels(values, "tavo_channel_value", scan, channel);
                if (channel.integer) {
                    append_integer(values, channel.integer_value);
                } else {
                    append_number(values, channel.floating_value);
                }
                values += '\n';
            }
            if (channel.counter && channel.raw) {
                append_channel_labels(raws, "tavo_channel_raw_total", scan, channel);
                append_integer(raws, *channel.raw);
                raws += '\n';
            }
        }
    });
    const auto totals = board.totals();

    out.reserve(out.size() + states.size() + durations.size() + stamps.size() + values.size() +
                raws.size() + 2048);
    const struct {
        std::string_view name, type, help;
        const std::string& samples;
    } families[] = {
        {"tavo_sensor_state", "gauge",
         "State of the sensor's latest result: 0 ok, 1 warning, 2 error, 3 unknown.", states},
        {"tavo_scan_duration_seconds", "gauge", "How long the sensor's latest scan took.",
         durations},
        {"tavo_last_scan_timestamp_seconds", "gauge",
         "When the sensor's latest result arrived, in seconds since the epoch.", stamps},
        {"tavo_channel_value", "gauge",
         "A channel's latest value as shown: scale applied, counters as their change since the "
         "previous scan.",
         values},
        {"tavo_channel_raw_total", "counter",
         "A counter channel's raw value as the device reports it.", raws},
    };
    for (const auto& family : families) {
        append_header(out, family.name, family.type, family.help);
        out += family.samples;
    }

    append_header(out, "tavo_sensors", "gauge",
                  "Sensors of this probe by the state of their latest result.");
    for (std::size_t i = 0; i < state_names.size(); ++i) {
        out.append("tavo_sensors{state=\"").append(state_names[i]).append("\"} ");
        append_integer(out, static_cast<std::int64_t>(by_state[i]));
        out += '\n';
    }
    append_counter(out, "tavo_scans_total", "Scans finished since the probe started.",
                   totals.scans);
    append_counter(out, "tavo_scan_errors_total",
                   "Scans since the probe started whose result was an error.", totals.scan_errors);
    append_counter(out, "tavo_sensor_creation_failures_total",
                   "Attempts to create a sensor that failed since the probe started.",
                   totals.creation_failures);
    append_header(out, "tavo_probe_info", "gauge",
                  "Versions of the probe and its module; the value is always 1.");
    out += "tavo_probe_info{version=\"";
    append_label_value(out, probe.version);
    out += "\",module_version=\"";
    append_label_value(out, probe.module_version);
    out += "\",api_level=\"";
    append_integer(out, probe.api_level);
    out += "\",shard=\"";
    append_label_value(out, probe.shard);
    out += "\"} 1\n";
}

}  // namespace corvanis::monitoring_modules::host
