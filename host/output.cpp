#include "host/output.h"

#include "host/localize.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <jsoncons/json.hpp>
#include <map>

#include "host/result_state.h"

namespace corvanis::monitoring_modules::host {

namespace wire = tavo::wire;

namespace {

std::string upper(std::string text) {
    for (auto& ch : text) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return text;
}

std::string paint(const std::string& text, const char* sgr, const table_style& style) {
    if (!style.color) return text;
    return std::string("\033[") + sgr + "m" + text + "\033[0m";
}

std::string status(const std::string& text, bool good, bool warn, const table_style& style) {
    return paint(text, good ? "1;32" : warn ? "1;33" : "1;31", style);
}

using jsoncons::ojson;

ojson json_message(const std::optional<message_view>& message) {
    if (!message) return ojson::null();
    ojson out(jsoncons::json_object_arg);
    out.insert_or_assign("key", message->key);
    out.insert_or_assign("text", message->text);
    ojson args(jsoncons::json_array_arg);
    for (const auto& a : message->args) args.push_back(a);
    out.insert_or_assign("args", std::move(args));
    return out;
}

ojson json_value(const channel_view& c) {
    if (!c.has_value) return ojson::null();
    if (c.integer) return ojson(c.integer_value);
    // JSON has no NaN or infinity.
    return std::isfinite(c.floating_value) ? ojson(c.floating_value) : ojson::null();
}

std::string compact(const ojson& value) {
    std::string out;
    value.dump(out);
    return out;
}

message_view view_of(const wire::I18nMessage& message) {
    return {message.key(), render_text(message), {message.args().begin(), message.args().end()}};
}

std::string number_text(double v) {
    if (!std::isfinite(v)) return std::isnan(v) ? "NaN" : (v > 0 ? "Inf" : "-Inf");
    char buffer[64];
    if (v != 0 && std::fabs(v) < 0.001) {
        std::snprintf(buffer, sizeof buffer, "%.3g", v);
        return buffer;
    }
    std::snprintf(buffer, sizeof buffer, "%.3f", v);
    std::string text = buffer;
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string value_text(const channel_view& channel) {
    if (channel.integer) return std::to_string(channel.integer_value);
    return number_text(channel.floating_value);
}

std::string pad_right(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : text + std::string(width - text.size(), ' ');
}

std::string pad_left(const std::string& text, std::size_t width) {
    return text.size() >= width ? text : std::string(width - text.size(), ' ') + text;
}

// Display width of UTF-8 text: one column per code point is close enough for names and units.
std::size_t columns(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string indent_lines(const std::string& text, const std::string& indent) {
    std::string out = indent;
    for (const char c : text) {
        out += c;
        if (c == '\n') out += indent;
    }
    return out + "\n";
}

}  // namespace

bool is_error_code(int response_code) {
    return response_code != 0 && response_code != 1;
}

std::string render_text(const wire::I18nMessage& message) {
    if (!message.text().empty()) return message.text();
    const std::string& pattern = message.default_text();
    std::string out;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        // Placeholders read "%<n>:<letter>".
        if (pattern[i] == '%' && i + 1 < pattern.size() &&
            std::isdigit(static_cast<unsigned char>(pattern[i + 1]))) {
            std::size_t j = i + 1;
            std::size_t n = 0;
            while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j]))) {
                n = n * 10 + static_cast<std::size_t>(pattern[j++] - '0');
            }
            if (j + 1 < pattern.size() && pattern[j] == ':' &&
                std::isalpha(static_cast<unsigned char>(pattern[j + 1]))) {
                out += n < static_cast<std::size_t>(message.args_size())
                           ? message.args(static_cast<int>(n))
                           : "";
                i = j + 1;
                continue;
            }
        }
        out += pattern[i];
    }
    return out.empty() ? message.key() : out;
}

scan_view make_scan_view(const wire::ScanResult& result, const std::string& kind,
                         const description* doc) {
    scan_view view;
    view.sensor_id = result.sensor_id();
    view.kind = kind;
    view.display = kind;
    if (doc != nullptr) {
        if (const auto* sensor = doc->find_sensor(kind);
            sensor != nullptr && !sensor->display.empty()) {
            view.display = sensor->display;
        }
    }
    view.response_code = result.response_code();
    view.error = is_error_code(result.response_code());
    view.state = state_of_response_code(result.response_code());
    view.time = std::chrono::system_clock::now();
    if (result.has_message() &&
        !(result.message().key().empty() && render_text(result.message()).empty())) {
        view.message = view_of(result.message());
    }
    std::map<int, const wire::ChannelDefinition*> definitions;
    for (const auto& d : result.definitions()) definitions[d.id()] = &d;
    std::map<int, channel_view> channels;
    for (const auto& value : result.values()) {
        channel_view c;
        c.id = value.id();
        c.name = "Channel " + std::to_string(value.id());
        c.integer = value.value_case() != wire::ChannelValue::kFloat;
        c.integer_value = value.integer();
        c.floating_value = value.float_();
        if (const auto it = definitions.find(value.id()); it != definitions.end()) {
            const auto& d = *it->second;
            if (!d.name().empty()) {
                c.name = d.name();
            } else if (doc != nullptr) {
                c.name = doc->text(d.key(), "English", c.name);
            }
            c.unit = d.unit();
            const double scale = d.scale_factor();
            if (d.kind() == wire::CHANNEL_KIND_COUNTER && c.integer) {
                c.counter = true;
                c.raw = c.integer_value;
            }
            if (scale != 0 && scale != 1) {
                c.scale = scale;
                c.floating_value =
                    (c.integer ? static_cast<double>(c.integer_value) : c.floating_value) * scale;
                c.integer = false;
            }
            if (!d.lookup().empty() && c.integer) {
                const std::string value_name = std::to_string(c.integer_value);
                c.state = doc != nullptr
                              ? doc->text("lookup." + d.lookup() + "." + value_name, "English")
                              : "";
                if (const auto* lookup = doc != nullptr ? doc->find_lookup(d.lookup()) : nullptr) {
                    for (const auto& entry : lookup->values) {
                        if (entry.value != c.integer_value) continue;
                        if (c.state.empty()) c.state = entry.display;
                        // A state channel's own verdict counts for the whole result.
                        if (entry.state == "LookupValueStateError") {
                            view.state = worse_state(view.state, "error");
                        } else if (entry.state == "LookupValueStateWarning") {
                            view.state = worse_state(view.state, "warning");
                        }
                    }
                }
            }
        }
        channels[c.id] = std::move(c);
    }
    for (auto& [id, channel] : channels) view.channels.push_back(std::move(channel));
    return view;
}

const char* severity_name(int severity) {
    static const char* const names[] = {"emerg",   "alert",  "crit", "error",
                                        "warning", "notice", "info", "debug"};
    return severity >= 0 && severity <= 7 ? names[severity] : "log";
}

std::string json_line(const scan_view& scan) {
    ojson out(jsoncons::json_object_arg);
    out.insert_or_assign("type", "scan_result");
    out.insert_or_assign("time", rfc3339_utc(scan.time));
    out.insert_or_assign("sensor_id", scan.sensor_id);
    out.insert_or_assign("name", scan.name.empty() ? ojson::null() : ojson(scan.name));
    out.insert_or_assign("kind", scan.kind);
    out.insert_or_assign("state", scan.state);
    out.insert_or_assign("response_code", scan.response_code);
    out.insert_or_assign("error", scan.error);
    out.insert_or_assign("message", json_message(scan.message));
    out.insert_or_assign("duration_s", std::chrono::duration<double>(scan.duration).count());
    if (scan.collected_seconds) out.insert_or_assign("collected_s", *scan.collected_seconds);
    ojson channels(jsoncons::json_array_arg);
    for (const auto& c : scan.channels) {
        ojson channel(jsoncons::json_object_arg);
        channel.insert_or_assign("id", c.id);
        channel.insert_or_assign("name", c.name);
        channel.insert_or_assign("unit", c.unit);
        channel.insert_or_assign("value", json_value(c));
        if (c.counter && c.raw) channel.insert_or_assign("raw", *c.raw);
        if (!c.limit_state.empty()) channel.insert_or_assign("state", c.limit_state);
        channels.push_back(std::move(channel));
    }
    out.insert_or_assign("channels", std::move(channels));
    return compact(out);
}

std::string json_line(const wire::CheckResult& check) {
    ojson out(jsoncons::json_object_arg);
    out.insert_or_assign("type", "check_result");
    out.insert_or_assign("time", rfc3339_utc(std::chrono::system_clock::now()));
    out.insert_or_assign("check_id", check.check_id());
    out.insert_or_assign("state", check.success() ? "ok" : "error");
    out.insert_or_assign("success", check.success());
    // The reason only when there is one.
    if (check.has_message())
        out.insert_or_assign("message", json_message(view_of(check.message())));
    return compact(out);
}

std::string json_line(const wire::NotificationResponse& response) {
    ojson out(jsoncons::json_object_arg);
    out.insert_or_assign("type", "notification_response");
    out.insert_or_assign("time", rfc3339_utc(std::chrono::system_clock::now()));
    out.insert_or_assign("success", response.success());
    ojson lines(jsoncons::json_array_arg);
    for (const auto& line : response.lines()) {
        ojson l(jsoncons::json_object_arg);
        l.insert_or_assign("severity", line.severity());
        l.insert_or_assign("text", line.text());
        lines.push_back(std::move(l));
    }
    out.insert_or_assign("lines", std::move(lines));
    if (response.has_message())
        out.insert_or_assign("message", json_message(view_of(response.message())));
    return compact(out);
}

std::string table_block(const scan_view& scan, const std::string& clock, const table_style& style) {
    std::string who = "#" + std::to_string(scan.sensor_id);
    if (!scan.name.empty()) who = scan.name + " " + who;
    std::string out = paint(clock, "2", style) + "  " + paint(who, "1", style) + " " +
                      scan.display + "  " +
                      status(upper(scan.state), scan.state == "ok", scan.state == "warning", style);
    if (scan.collected_seconds) {
        out += "  (" +
               host_text("collected", style.language, {number_text(*scan.collected_seconds)}) + ")";
    }
    out += "\n";
    if (scan.message) out += indent_lines(scan.message->text, "    ");
    std::size_t name_width = 0;
    std::size_t value_width = 0;
    std::vector<std::string> values;
    for (const auto& c : scan.channels) {
        values.push_back(c.has_value ? value_text(c) : "-");
        name_width = std::max(name_width, columns(c.name));
        value_width = std::max(value_width, values.back().size());
    }
    for (std::size_t i = 0; i < scan.channels.size(); ++i) {
        const auto& c = scan.channels[i];
        std::string row = "    " + c.name + std::string(name_width - columns(c.name), ' ') + "  " +
                          pad_left(values[i], value_width);
        if (!c.unit.empty()) row += " " + c.unit;
        if (c.counter && c.raw) row += "  (counter " + std::to_string(*c.raw) + ")";
        if (!c.state.empty()) row += "  " + paint(c.state, "36", style);
        if (!c.limit_state.empty() && c.limit_state != "ok") {
            row += "  " + status(upper(c.limit_state), false, c.limit_state == "warning", style);
        }
        out += row + "\n";
    }
    return out;
}

std::string table_block(const wire::CheckResult& check, const std::string& check_name,
                        const std::string& clock, const table_style& style) {
    std::string out = paint(clock, "2", style) + "  Check " + check_name + "  " +
                      status(check.success() ? "OK" : "FAILED", check.success(), false, style) +
                      "\n";
    if (check.has_message()) {
        out += indent_lines(render_text(check.message()), "    ");
    } else if (!check.success()) {
        out += "    No connection could be made with these settings (--log-level 7 shows why).\n";
    }
    return out;
}

std::string table_block(const wire::NotificationResponse& response, const std::string& target,
                        const std::string& clock, const table_style& style) {
    std::string out =
        paint(clock, "2", style) + "  Notification to " + target + "  " +
        status(response.success() ? "DELIVERED" : "FAILED", response.success(), false, style) +
        "\n";
    if (response.has_message()) out += indent_lines(render_text(response.message()), "    ");
    for (const auto& line : response.lines()) {
        out += "    " + pad_right(severity_name(line.severity()), 8) + line.text() + "\n";
    }
    return out;
}

namespace {

const char* nagios_word(const std::string& state) {
    if (state == "ok") return "OK";
    if (state == "warning") return "WARNING";
    if (state == "error") return "CRITICAL";
    return "UNKNOWN";
}

// Units that monitoring-plugin hosts understand; others are left out of the data.
std::string nagios_unit(const std::string& unit) {
    static const char* const known[] = {"s", "ms", "us", "%", "B", "KB", "MB", "GB", "TB", "c"};
    if (unit == "bytes") return "B";
    for (const char* k : known) {
        if (unit == k) return unit;
    }
    return "";
}

std::string nagios_range(const std::optional<double>& min, const std::optional<double>& max) {
    if (min && max) return number_text(*min) + ":" + number_text(*max);
    if (max) return number_text(*max);
    if (min) return number_text(*min) + ":";
    return "";
}

std::string first_line(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

}  // namespace

std::string nagios_line(const scan_view& scan,
                        const std::map<std::string, channel_limits>& limits) {
    std::string out = std::string(nagios_word(scan.state)) + " - " +
                      (scan.name.empty() ? "" : scan.name + " ") + scan.display + " #" +
                      std::to_string(scan.sensor_id);
    if (scan.message) out += ": " + first_line(scan.message->text);
    std::string data;
    for (const auto& c : scan.channels) {
        std::string label = c.name;
        for (std::size_t at = label.find('\''); at != std::string::npos;
             at = label.find('\'', at + 2)) {
            label.insert(at, 1, '\'');
        }
        std::string item = "'" + label + "'=" +
                           (c.has_value && (c.integer || std::isfinite(c.floating_value))
                                ? value_text(c) + nagios_unit(c.unit)
                                : "U");
        if (const auto it = limits.find(c.name); it != limits.end()) {
            const auto& l = it->second;
            item += ";" + nagios_range(l.warning_min, l.warning_max) + ";" +
                    nagios_range(l.error_min, l.error_max);
        }
        data += (data.empty() ? "" : " ") + item;
    }
    return data.empty() ? out : out + " | " + data;
}

std::string nagios_line(const wire::CheckResult& check, const std::string& check_name) {
    std::string out = std::string(check.success() ? "OK" : "CRITICAL") + " - " + check_name;
    if (check.has_message()) out += ": " + first_line(render_text(check.message()));
    return out;
}

result_printer::result_printer(std::ostream& out, bool json, const description* doc,
                               table_style style)
    : result_printer(out, json ? output_format::json : output_format::table, doc,
                     std::move(style)) {}

result_printer::result_printer(std::ostream& out, output_format format, const description* doc,
                               table_style style)
    : out_(out), format_(format), doc_(doc), style_(std::move(style)) {}

void result_printer::write(const std::string& text) {
    // Whole blocks under one lock, so parallel scans never interleave; flushed, so a reader
    // at the other end of a pipe sees each result as it comes.
    std::lock_guard lock(mutex_);
    out_ << text;
    out_.flush();
}

template <typename Result>
Result result_printer::in_language(Result result) const {
    if (doc_ != nullptr) localize(result, *doc_, style_.language);
    return result;
}

void result_printer::print(const wire::ScanResult& result, const std::string& kind) {
    print(make_scan_view(in_language(result), kind, doc_));
}

void result_printer::print(const scan_view& scan,
                           const std::map<std::string, channel_limits>& limits) {
    switch (format_) {
        case output_format::json:
            return write(json_line(scan) + "\n");
        case output_format::nagios:
            return write(nagios_line(scan, limits) + "\n");
        case output_format::table:
            return write(table_block(scan, clock_now(), style_));
    }
}

void result_printer::print(const wire::CheckResult& result, const std::string& check_name) {
    const auto check = in_language(result);
    switch (format_) {
        case output_format::json:
            return write(json_line(check) + "\n");
        case output_format::nagios:
            return write(nagios_line(check, check_name) + "\n");
        case output_format::table:
            return write(table_block(check, check_name, clock_now(), style_));
    }
}

void result_printer::print(const wire::NotificationResponse& response, const std::string& target) {
    const auto shown = in_language(response);
    write(json() ? json_line(shown) + "\n" : table_block(shown, target, clock_now(), style_));
}

void result_printer::note(const std::string& text) {
    if (format_ == output_format::table) write(text + "\n");
}

std::string clock_now() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char buffer[16];
    std::strftime(buffer, sizeof buffer, "%H:%M:%S", &local);
    return buffer;
}

bool want_color() {
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
}

}  // namespace corvanis::monitoring_modules::host
