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
#include <map>

namespace corvanis::monitoring_modules::host {

namespace wire = tavo::wire;

namespace {

const char* status_name(int code) {
    switch (code) {
        case 0:
            return "OK";
        case 1:
            return "WARNING";
        case 2:
            return "UNKNOWN";
        default:
            return "ERROR";
    }
}

std::string paint(const std::string& text, const char* sgr, const table_style& style) {
    if (!style.color) return text;
    return std::string("\033[") + sgr + "m" + text + "\033[0m";
}

std::string status(const std::string& text, bool good, bool warn, const table_style& style) {
    return paint(text, good ? "1;32" : warn ? "1;33" : "1;31", style);
}

std::string json_number(double value) {
    if (!std::isfinite(value)) return "null";
    char buffer[64];
    const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return ec == std::errc() ? std::string(buffer, end) : "null";
}

std::string json_message(const std::optional<message_view>& message) {
    if (!message) return "null";
    std::string out = "{\"key\":" + json_quote(message->key) +
                      ",\"text\":" + json_quote(message->text) + ",\"args\":[";
    for (std::size_t i = 0; i < message->args.size(); ++i) {
        if (i > 0) out += ',';
        out += json_quote(message->args[i]);
    }
    return out + "]}";
}

message_view view_of(const wire::I18nMessage& message) {
    return {message.key(), render_text(message), {message.args().begin(), message.args().end()}};
}

std::string value_text(const channel_view& channel) {
    if (channel.integer) return std::to_string(channel.integer_value);
    const double v = channel.floating_value;
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
            if (scale != 0 && scale != 1) {
                c.floating_value =
                    (c.integer ? static_cast<double>(c.integer_value) : c.floating_value) * scale;
                c.integer = false;
            }
            if (!d.lookup().empty() && c.integer) {
                const std::string value_name = std::to_string(c.integer_value);
                c.state = doc != nullptr
                              ? doc->text("lookup." + d.lookup() + "." + value_name, "English")
                              : "";
                if (c.state.empty() && doc != nullptr) {
                    if (const auto* lookup = doc->find_lookup(d.lookup())) {
                        for (const auto& entry : lookup->values) {
                            if (entry.value == c.integer_value) c.state = entry.display;
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
    std::string out = "{\"type\":\"scan_result\",\"sensor_id\":" + std::to_string(scan.sensor_id) +
                      ",\"kind\":" + json_quote(scan.kind) +
                      ",\"response_code\":" + std::to_string(scan.response_code) +
                      ",\"error\":" + (scan.error ? "true" : "false") +
                      ",\"message\":" + json_message(scan.message) + ",\"channels\":[";
    for (std::size_t i = 0; i < scan.channels.size(); ++i) {
        const auto& c = scan.channels[i];
        out += std::string(i ? "," : "") + "{\"id\":" + std::to_string(c.id) +
               ",\"name\":" + json_quote(c.name) + ",\"unit\":" + json_quote(c.unit) +
               ",\"value\":" +
               (c.integer ? std::to_string(c.integer_value) : json_number(c.floating_value)) + "}";
    }
    return out + "]}";
}

std::string json_line(const wire::CheckResult& check) {
    std::string out =
        "{\"type\":\"check_result\",\"check_id\":" + std::to_string(check.check_id()) +
        ",\"success\":" + (check.success() ? "true" : "false");
    // The reason only when there is one, so a plain success stays the documented three fields.
    if (check.has_message()) out += ",\"message\":" + json_message(view_of(check.message()));
    return out + "}";
}

std::string json_line(const wire::NotificationResponse& response) {
    std::string out = std::string("{\"type\":\"notification_response\",\"success\":") +
                      (response.success() ? "true" : "false") + ",\"lines\":[";
    for (int i = 0; i < response.lines_size(); ++i) {
        const auto& line = response.lines(i);
        out += std::string(i ? "," : "") + "{\"severity\":" + std::to_string(line.severity()) +
               ",\"text\":" + json_quote(line.text()) + "}";
    }
    out += "]";
    if (response.has_message()) out += ",\"message\":" + json_message(view_of(response.message()));
    return out + "}";
}

std::string table_block(const scan_view& scan, const std::string& clock, const table_style& style) {
    std::string id = "#";
    id += std::to_string(scan.sensor_id);
    std::string out = paint(clock, "2", style) + "  " + paint(id, "1", style) + " " + scan.display +
                      "  " +
                      status(status_name(scan.response_code), scan.response_code == 0,
                             scan.response_code == 1, style) +
                      "\n";
    if (scan.message) out += indent_lines(scan.message->text, "    ");
    std::size_t name_width = 0;
    std::size_t value_width = 0;
    std::vector<std::string> values;
    for (const auto& c : scan.channels) {
        values.push_back(value_text(c));
        name_width = std::max(name_width, columns(c.name));
        value_width = std::max(value_width, values.back().size());
    }
    for (std::size_t i = 0; i < scan.channels.size(); ++i) {
        const auto& c = scan.channels[i];
        std::string row = "    " + c.name + std::string(name_width - columns(c.name), ' ') + "  " +
                          pad_left(values[i], value_width);
        if (!c.unit.empty()) row += " " + c.unit;
        if (!c.state.empty()) row += "  " + paint(c.state, "36", style);
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

result_printer::result_printer(std::ostream& out, bool json, const description* doc,
                               table_style style)
    : out_(out), json_(json), doc_(doc), style_(style) {}

void result_printer::write(const std::string& text) {
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
    const auto view = make_scan_view(in_language(result), kind, doc_);
    write(json_ ? json_line(view) + "\n" : table_block(view, clock_now(), style_));
}

void result_printer::print(const wire::CheckResult& check, const std::string& check_name) {
    const auto shown = in_language(check);
    write(json_ ? json_line(shown) + "\n" : table_block(shown, check_name, clock_now(), style_));
}

void result_printer::print(const wire::NotificationResponse& response, const std::string& target) {
    const auto shown = in_language(response);
    write(json_ ? json_line(shown) + "\n" : table_block(shown, target, clock_now(), style_));
}

void result_printer::note(const std::string& text) {
    if (!json_) write(text + "\n");
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
