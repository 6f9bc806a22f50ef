#include "host/describe.h"

#include <algorithm>
#include <set>

#include "host/errors.h"
#include "host/settings.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr std::size_t text_width = 96;

std::string bold(const std::string& text, const table_style& style) {
    return style.color ? "\033[1m" + text + "\033[0m" : text;
}

std::string dim(const std::string& text, const table_style& style) {
    return style.color && !text.empty() ? "\033[2m" + text + "\033[0m" : text;
}

std::string wrap(const std::string& text, const std::string& indent) {
    std::string out;
    std::string line = indent;
    std::size_t start = 0;
    while (start < text.size()) {
        const auto end = text.find_first_of(" \n", start);
        const std::string word =
            text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (line.size() > indent.size() && line.size() + 1 + word.size() > text_width) {
            out += line + "\n";
            line = indent;
        }
        if (!word.empty()) line += (line.size() > indent.size() ? " " : "") + word;
        if (end != std::string::npos && text[end] == '\n') {
            out += line + "\n";
            line = indent;
        }
        if (end == std::string::npos) break;
        start = end + 1;
    }
    if (line.size() > indent.size()) out += line + "\n";
    return out;
}

std::string join(const std::vector<std::string>& items, const std::string& separator = ", ") {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : separator) + item;
    return out;
}

class writer {
  public:
    writer(const description& doc, const std::string& language, const table_style& style)
        : doc_(doc), language_(language), style_(style) {}

    // A text the host adds itself has no catalogue key; it stays English.
    std::string text(const setting_def& def, const std::string& suffix,
                     const std::string& fallback) const {
        if (def.group.empty()) return fallback;
        return doc_.text(def.group + "." + def.name + "." + suffix, language_, fallback);
    }

    std::string setting(const setting_def& def) const {
        std::string out =
            "  " + bold(def.key, style_) + "  " + text(def, "display", def.display) + "\n";
        std::vector<std::string> facts;
        if (def.default_value) {
            facts.push_back(def.secret && !def.default_value->empty()
                                ? "default (secret)"
                                : "default \"" + *def.default_value + "\"");
        } else {
            facts.push_back(def.required ? "required, no default" : "no default");
        }
        switch (def.kind) {
            case setting_kind::integer: {
                std::string range = "whole number";
                if (def.minimum && def.maximum) {
                    range +=
                        " " + std::to_string(*def.minimum) + ".." + std::to_string(*def.maximum);
                } else if (def.minimum) {
                    range += " >= " + std::to_string(*def.minimum);
                } else if (def.maximum) {
                    range += " <= " + std::to_string(*def.maximum);
                }
                facts.push_back(range);
                break;
            }
            case setting_kind::floating:
                facts.push_back("number");
                break;
            case setting_kind::selection: {
                std::vector<std::string> options;
                for (const auto& o : def.options) {
                    options.push_back(o.value + " (" + text(def, "option." + o.value, o.display) +
                                      ")");
                }
                facts.push_back("one of " + join(options, ", "));
                break;
            }
            case setting_kind::text:
                facts.push_back(def.multiline ? "multi-line text (--set-file)" : "text");
                break;
        }
        if (def.secret) facts.push_back("secret");
        if (!def.depends_on.empty())
            facts.push_back("used when " + def.depends_on + " = " + def.condition);
        out += wrap(join(facts, "; "), "      ");
        const std::string help = text(def, "help", def.help);
        if (!help.empty()) out += dim(wrap(help, "      "), style_);
        return out;
    }

    std::string settings(const std::vector<setting_def>& defs) const {
        std::string out;
        for (const auto& def : defs) out += setting(def);
        return out;
    }

  private:
    const description& doc_;
    const std::string& language_;
    const table_style& style_;
};

}  // namespace

std::string describe_text(const description& doc, const std::string& language, int api_level,
                          const table_style& style, const std::string& only) {
    const bool all = only.empty();
    if (!all && doc.find_sensor(only) == nullptr && doc.find_check(only) == nullptr &&
        only != notification_kind) {
        std::vector<std::string> names;
        for (const auto& sensor : doc.sensors()) names.push_back(sensor.name);
        for (const auto& check : doc.checks()) names.push_back(check.name);
        names.emplace_back(notification_kind);
        throw host_error("nothing to describe called \"" + only +
                         "\"; the module offers: " + join(names));
    }
    const auto shows = [&](const std::string& name) { return all || name == only; };
    const writer w(doc, language, style);
    std::string out = bold(doc.text("module.display", language, doc.module_display()), style);
    if (!doc.version().empty()) out += " " + doc.version();
    out += "  (module API level " + std::to_string(api_level) + ")\n";
    const auto about = doc.text("module.description", language, doc.module_description());
    if (!about.empty()) out += wrap(about, "");

    std::vector<std::string> sections;
    const auto remember = [&](const std::vector<std::string>& names) {
        for (const auto& name : names) {
            if (std::find(sections.begin(), sections.end(), name) == sections.end())
                sections.push_back(name);
        }
    };
    if (all || doc.find_sensor(only) != nullptr) {
        out += "\n";
        out += bold("Sensors", style) + "\n";
    }
    for (const auto& sensor : doc.sensors()) {
        if (!shows(sensor.name)) continue;
        out += "  " + bold(sensor.name, style) + "  " +
               doc.text(sensor.name + ".display", language, sensor.display) + "\n";
        out += wrap(doc.text(sensor.name + ".description", language, sensor.description), "      ");
        out += "      sections: " + join(sensor.sections) + "\n";
        remember(sensor.sections);
    }
    if (all && doc.sensors().empty()) out += "  (none)\n";
    if (all || doc.find_check(only) != nullptr) {
        out += "\n";
        out += bold("Check", style) + "\n";
    }
    for (const auto& check : doc.checks()) {
        if (!shows(check.name)) continue;
        out += "  " + bold(check.name, style) + "  sections: " + join(check.sections) + "\n";
        remember(check.sections);
    }
    if (all && doc.checks().empty()) out += "  (none)\n";
    if (shows(notification_kind)) {
        out += "\n";
        out += bold("Notification", style) + "\n  " + bold(notification_kind, style) +
               "  tavo-probe notify; settings: connection.host, connection.port, "
               "connection.client_id, and the user_credentials and tls groups of credentials\n";
    }

    if (only != notification_kind) {
        out += "\n";
        out += bold("Common settings of every sensor and the check", style) + "\n" +
               w.settings(common_settings());
    }
    for (const auto& name : sections) {
        const auto* section = doc.find_section(name);
        if (section == nullptr) continue;
        out += "\n";
        out += bold("Section " + name, style) + ": " +
               doc.text(name + ".display", language, section->display) + "\n";
        out += w.settings(section_settings(doc, name));
    }
    if (!shows(notification_kind)) return out;
    auto notification = notification_schema(doc, 0);
    notification.settings.resize(3);
    notification.settings[2].default_value = "tavo-probe-<process id>";
    out += "\n";
    out += bold("Notification connection", style) +
           " (host and credentials.connection_mqtt.port are " +
           "accepted for connection.host and connection.port)\n" +
           w.settings(notification.settings);
    return out;
}

}  // namespace corvanis::monitoring_modules::host
