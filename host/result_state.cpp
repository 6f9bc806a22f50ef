#include "host/result_state.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <stdexcept>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr std::array<const char*, 4> states_by_severity = {"ok", "warning", "unknown", "error"};

int rank(const std::string& state) {
    for (std::size_t i = 0; i < states_by_severity.size(); ++i) {
        if (state == states_by_severity[i]) return static_cast<int>(i);
    }
    return 2;  // anything unexpected counts as unknown
}

struct translation {
    const char* key;
    const char* language;
    const char* text;
};

// The module's catalogue has no texts for what only the host says, so the host keeps its own.
constexpr translation host_texts[] = {
    {"no_message_yet", "English", "no message received yet on %0"},
    {"no_message_yet", "German", "noch keine Nachricht empfangen auf %0"},
    {"no_message_yet", "French", "aucun message reçu pour l'instant sur %0"},
    {"no_message_yet", "Spanish", "todavía no se ha recibido ningún mensaje en %0"},
    {"no_new_message", "English", "no new message on %0 since %1"},
    {"no_new_message", "German", "keine neue Nachricht auf %0 seit %1"},
    {"no_new_message", "French", "aucun nouveau message sur %0 depuis %1"},
    {"no_new_message", "Spanish", "ningún mensaje nuevo en %0 desde %1"},
    {"stale", "English", "no message since %0"},
    {"stale", "German", "keine Nachricht seit %0"},
    {"stale", "French", "aucun message depuis %0"},
    {"stale", "Spanish", "ningún mensaje desde %0"},
    {"above", "English", "%0 = %1 is above %2 %3"},
    {"above", "German", "%0 = %1 liegt über %2 %3"},
    {"above", "French", "%0 = %1 dépasse %2 %3"},
    {"above", "Spanish", "%0 = %1 supera %2 %3"},
    {"below", "English", "%0 = %1 is below %2 %3"},
    {"below", "German", "%0 = %1 liegt unter %2 %3"},
    {"below", "French", "%0 = %1 est inférieur à %2 %3"},
    {"below", "Spanish", "%0 = %1 está por debajo de %2 %3"},
    {"collected", "English", "collected for %0 s"},
    {"collected", "German", "%0 s lang gesammelt"},
    {"collected", "French", "collecté pendant %0 s"},
    {"collected", "Spanish", "recogido durante %0 s"},
};

constexpr std::pair<const char*, const char*> language_codes[] = {
    {"en", "English"}, {"de", "German"}, {"fr", "French"}, {"es", "Spanish"}};

std::string language_name(const std::string& language) {
    for (const auto& [code, name] : language_codes) {
        if (language == code) return name;
    }
    return language;
}

std::string fill(const std::string& pattern, const std::vector<std::string>& args) {
    std::string out;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] >= '0' &&
            pattern[i + 1] <= '9') {
            const auto n = static_cast<std::size_t>(pattern[++i] - '0');
            if (n < args.size()) out += args[n];
            continue;
        }
        out += pattern[i];
    }
    return out;
}

std::string number_text(double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.15g", value);
    return buffer;
}

double shown_value(const channel_view& c) {
    return c.integer ? static_cast<double>(c.integer_value) : c.floating_value;
}

}  // namespace

std::string state_of_response_code(int response_code) {
    switch (response_code) {
        case 0:
            return "ok";
        case 1:
            return "warning";
        case 2:
            return "unknown";
        default:
            return "error";
    }
}

std::string worse_state(const std::string& a, const std::string& b) {
    return rank(b) > rank(a) ? b : a;
}

int exit_code_of(const std::string& state) {
    switch (rank(state)) {
        case 0:
            return exit_ok;
        case 1:
            return exit_warning;
        case 3:
            return exit_failed;
        default:
            return exit_setup_failed;
    }
}

std::string host_text(const std::string& key, const std::string& language,
                      const std::vector<std::string>& args) {
    const std::string name = language_name(language);
    const char* english = nullptr;
    for (const auto& t : host_texts) {
        if (key != t.key) continue;
        if (name == t.language) return fill(t.text, args);
        if (std::string_view(t.language) == "English") english = t.text;
    }
    return english != nullptr ? fill(english, args) : key;
}

void apply_limits(scan_view& scan, const std::map<std::string, channel_limits>& limits,
                  const std::string& language) {
    std::string reasons;
    std::vector<std::string> args;
    for (auto& c : scan.channels) {
        const auto it = limits.find(c.name);
        if (it == limits.end() || !c.has_value) continue;
        const auto& l = it->second;
        const double v = shown_value(c);
        std::string shown = number_text(v) + (c.unit.empty() ? "" : " " + c.unit);
        // Error bounds first, so a value beyond both is named by the graver one.
        const struct {
            const std::optional<double>& bound;
            bool upper;
            const char* name;
            const char* state;
        } checks[] = {{l.error_max, true, "error_max", "error"},
                      {l.error_min, false, "error_min", "error"},
                      {l.warning_max, true, "warning_max", "warning"},
                      {l.warning_min, false, "warning_min", "warning"}};
        c.limit_state = "ok";
        for (const auto& check : checks) {
            // NaN is beyond every bound: a reading that is no number must not look fine.
            const bool beyond =
                check.bound &&
                (std::isnan(v) || (check.upper ? v > *check.bound : v < *check.bound));
            if (!beyond) continue;
            c.limit_state = check.state;
            if (!reasons.empty()) reasons += "; ";
            reasons += host_text(check.upper ? "above" : "below", language,
                                 {c.name, shown, check.name, number_text(*check.bound)});
            args.push_back(c.name);
            break;
        }
        scan.state = worse_state(scan.state, c.limit_state);
    }
    if (reasons.empty()) return;
    if (scan.message && !scan.message->text.empty()) reasons += "; " + scan.message->text;
    scan.message = message_view{"host.limit", reasons, args};
}

void add_limit_option(const std::string& text, std::map<std::string, channel_limits>& limits) {
    const auto colon = text.rfind(':');
    const auto equals = text.find('=', colon == std::string::npos ? 0 : colon);
    if (colon == std::string::npos || colon == 0 || equals == std::string::npos) {
        throw host_error("--limit \"" + text + "\": expected CHANNEL:KEY=VALUE");
    }
    const std::string channel = text.substr(0, colon);
    const std::string key = text.substr(colon + 1, equals - colon - 1);
    const std::string value = text.substr(equals + 1);
    double number = 0;
    std::size_t used = 0;
    try {
        number = std::stod(value, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != value.size() || !std::isfinite(number)) {
        throw host_error("--limit \"" + text + "\": \"" + value + "\" is not a number");
    }
    auto& l = limits[channel];
    if (key == "warning_min") {
        l.warning_min = number;
    } else if (key == "warning_max") {
        l.warning_max = number;
    } else if (key == "error_min") {
        l.error_min = number;
    } else if (key == "error_max") {
        l.error_max = number;
    } else {
        throw host_error("--limit \"" + text + "\": unknown limit \"" + key +
                         "\"; use warning_min, warning_max, error_min or error_max");
    }
}

std::map<int, std::int64_t> counter_memory::apply(scan_view& scan) {
    std::map<int, std::int64_t> changed;
    for (auto& c : scan.channels) {
        if (!c.counter || !c.raw) continue;
        const auto previous = last_.find(c.id);
        const std::int64_t raw = *c.raw;
        c.has_value = previous != last_.end() && raw >= previous->second;
        if (c.has_value) {
            const std::int64_t delta = raw - previous->second;
            c.integer_value = delta;
            c.floating_value = static_cast<double>(delta) * c.scale;
        }
        if (previous == last_.end() || previous->second != raw) changed[c.id] = raw;
        last_[c.id] = raw;
    }
    return changed;
}

std::string rfc3339_utc(std::chrono::system_clock::time_point time) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(ms >= 0 ? ms / 1000 : (ms - 999) / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char buffer[40];
    const auto n = std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(buffer + n, sizeof buffer - n, ".%03dZ",
                  static_cast<int>(((ms % 1000) + 1000) % 1000));
    return buffer;
}

}  // namespace corvanis::monitoring_modules::host
