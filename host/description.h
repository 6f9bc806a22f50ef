#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvanis::monitoring_modules::host {

enum class setting_kind { text, integer, floating, selection };

struct setting_option {
    std::string value;
    std::string display;
};

// One setting of a group as the module describes it. `name` is the setting's own
// name; its full key is formed when a kind's settings are assembled.
struct setting_def {
    std::string key;  // full key once assembled ("credentials.connection_mqtt.port")
    std::string group;
    std::string name;
    std::string display;
    std::string help;
    std::optional<std::string> default_value;
    setting_kind kind = setting_kind::text;
    bool secret = false;
    bool required = false;
    bool multiline = false;
    std::optional<long long> minimum;
    std::optional<long long> maximum;
    std::vector<setting_option> options;
    std::string depends_on;  // full key of the setting that controls visibility
    std::string condition;   // the value depends_on must hold
};

struct sensor_kind_def {
    std::string name;
    std::string display;
    std::string description;
    std::vector<std::string> sections;
    std::vector<std::string> required_checks;  // checks to pass before creating one
    bool push = false;                         // fed by messages between scans
};

struct check_def {
    std::string name;
    std::vector<std::string> sections;
};

struct section_def {
    std::string name;
    std::string display;
    std::vector<std::string> groups;
};

struct lookup_value {
    long long value = 0;
    std::string name;
    std::string display;
    std::string state;
};

struct lookup_def {
    std::string name;
    std::vector<lookup_value> values;
};

// The module description document, read once. Immutable, so any thread may read it.
class description {
  public:
    // Throws host_error when the text is not a description document.
    static description parse(const std::string& json);

    const std::string& raw() const { return raw_; }
    const std::string& module_display() const { return module_display_; }
    const std::string& module_description() const { return module_description_; }
    const std::string& version() const { return version_; }

    const std::vector<sensor_kind_def>& sensors() const { return sensors_; }
    const std::vector<check_def>& checks() const { return checks_; }
    const sensor_kind_def* find_sensor(const std::string& kind) const;
    const check_def* find_check(const std::string& name) const;
    const section_def* find_section(const std::string& name) const;
    // The settings of a group with bare names; empty for an unknown group.
    const std::vector<setting_def>& group_settings(const std::string& group) const;
    const lookup_def* find_lookup(const std::string& name) const;

    std::vector<std::string> languages() const;
    bool has_language(const std::string& language) const;
    // The module's language for `requested`: a name it has ("German"), an ISO 639-1 code
    // ("de", also as LANG writes it: "de_DE.UTF-8"); when empty, the language of LC_ALL,
    // LC_MESSAGES or LANG if the module has it, else English. Throws host_error for a
    // requested language the module lacks.
    std::string pick_language(const std::string& requested) const;
    // The key's text in `language`, else in English, else `fallback`.
    std::string text(const std::string& key, const std::string& language,
                     const std::string& fallback = "") const;

  private:
    std::string raw_;
    std::string module_display_;
    std::string module_description_;
    std::string version_;
    std::vector<sensor_kind_def> sensors_;
    std::vector<check_def> checks_;
    std::vector<section_def> sections_;
    std::map<std::string, std::vector<setting_def>> groups_;
    std::vector<lookup_def> lookups_;
    std::vector<std::string> language_order_;
    std::map<std::string, std::map<std::string, std::string>> texts_;  // language -> key -> text
};

}  // namespace corvanis::monitoring_modules::host
