#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/description.h"
#include "tavo.pb.h"

namespace corvanis::monitoring_modules::host {

enum class target_kind { sensor, check, notification };

// The kind the host asks for notifications; the description document does not list it.
inline constexpr const char* notification_kind = "mqtt_notification";

// Every setting one sensor kind, check or notification accepts, by full key.
struct settings_schema {
    target_kind target = target_kind::sensor;
    std::string kind;
    std::vector<setting_def> settings;           // common settings first, then form order
    std::map<std::string, std::string> aliases;  // accepted spelling -> key

    const setting_def* find(const std::string& key) const;
    // The key an alias stands for, or the key itself.
    std::string canonical(const std::string& key) const;
    // The full key for `given`: itself, its alias, or the one key whose trailing dotted
    // parts it is ("port" for credentials.connection_mqtt.port). Empty when none fits;
    // throws host_error listing the candidates when several do.
    std::string resolve(const std::string& given) const;
};

// The settings the host adds for every sensor and the check: host, timeout, interval ...
std::vector<setting_def> common_settings();
// The settings of one section with full keys. Throws host_error for an unknown section.
std::vector<setting_def> section_settings(const description& doc, const std::string& section,
                                          const std::vector<std::string>& only_groups = {});

// Throw host_error for a kind the document does not offer; the text lists those it does.
settings_schema sensor_schema(const description& doc, const std::string& kind);
// An empty name picks the document's first check.
settings_schema check_schema(const description& doc, const std::string& name = "");
settings_schema notification_schema(const description& doc, int pid);

using setting_pair = std::pair<std::string, std::string>;
using settings_map = std::map<std::string, std::string>;
// Where each value came from ("plant.yaml:12"), by key as written or as resolved.
using setting_origins = std::map<std::string, std::string>;

// One source of values, applied in order over the defaults. `origin` names the
// source in error texts ("--set", "defaults in plant.yaml").
struct settings_layer {
    std::string origin;
    std::vector<setting_pair> values;
    bool skip_foreign = false;  // shared defaults: keys this kind lacks are left out
    setting_origins where;      // by key as given; may be empty
};

// What resolving starts from: every setting's default, text fields empty.
settings_map default_values(const settings_schema& schema);
// The document's defaults, then the host's own, then each layer. Throws host_error
// naming the key and its origin for a key the kind does not have. A user name given
// without saying whether to log in means logging in. `origins`, when given, receives
// where each value that a layer set came from.
settings_map resolve_settings(const settings_schema& schema,
                              const std::vector<settings_layer>& layers,
                              setting_origins* origins = nullptr);
// Throws host_error for a value its kind rejects, a shown required setting left empty or
// PEM text that does not hold what its setting needs. Texts start with the value's
// origin when `origins` has it.
void validate_settings(const settings_schema& schema, const settings_map& values,
                       const setting_origins* origins = nullptr);
// Secret settings go to secure_settings, the others to settings.
tavo::wire::SettingsBlock make_block(const settings_schema& schema, const settings_map& values);

// "KEY=VALUE" as given to --set. Throws host_error.
setting_pair parse_assignment(const std::string& text, const std::string& option);
// "KEY=PATH" as given to --set-file: the value is the file's content. Throws host_error.
setting_pair read_assignment_file(const std::string& text);
// A file's content; a single line loses its one trailing line end (files made with echo).
// Throws host_error.
std::string read_setting_file(const std::string& path);

// Keys that some sensor, the check or the notification accepts; shared defaults must use one.
bool is_known_anywhere(const description& doc, const std::string& key);

}  // namespace corvanis::monitoring_modules::host
