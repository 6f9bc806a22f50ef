#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "host/config.h"
#include "host/description.h"
#include "host/module_host.h"
#include "host/output.h"
#include "host/settings.h"
#include "host/state_store.h"

namespace corvanis::monitoring_modules::host {

struct global_options {
    std::string module_path;  // empty: the libMQTT.so beside the program
    std::optional<int> log_level;
    std::string language;  // as asked for (name or ISO 639-1 code); empty: from the locale
};

// A delivered notification's own log lines are debug detail: shown at --log-level 7 only.
inline bool shows_debug(const global_options& options) {
    return options.log_level.value_or(0) >= 7;
}

// Where settings come from on the command line.
struct settings_options {
    std::vector<std::string> sets;       // KEY=VALUE
    std::vector<std::string> set_files;  // KEY=PATH
    std::string config;                  // YAML file, may be empty
};

// The required checks as the sensors of a probe share them: each check's schema, built once,
// and which checks passed a moment ago. Sensors on one broker with the same credentials run
// the same check; while it passed within `reuse_for`, the others take that outcome instead of
// each opening a connection. Failures are never shared: each sensor tries again.
class shared_checks {
  public:
    using clock = std::chrono::steady_clock;
    explicit shared_checks(clock::duration reuse_for = std::chrono::seconds(5))
        : reuse_for_(reuse_for) {}

    // Throws host_error for a check the document does not offer.
    std::shared_ptr<const settings_schema> schema(const description& doc, const std::string& name);
    bool passed_recently(const std::string& name, const settings_map& values);
    void passed(const std::string& name, const settings_map& values);

  private:
    static std::string key(const std::string& name, const settings_map& values);

    const clock::duration reuse_for_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<const settings_schema>> schemas_;  // guarded by mutex_
    std::map<std::string, clock::time_point> passes_;                        // guarded by mutex_
};

// One loaded module with its description, state and log output, and the sensors
// created through it, which it destroys before the module is cleaned up.
class probe {
  public:
    // Throws host_error (exit 3) when the module cannot be loaded or the state cannot be opened.
    probe(const global_options& options, const std::string& state_path = "");
    ~probe();

    const description& doc() const { return *doc_; }
    module_session& module() { return *session_; }
    // The module's language for texts, picked from global_options::language.
    const std::string& language() const { return language_; }

    // Creates the sensor with the data kept for it; the module's reason when it cannot.
    std::optional<message_view> try_create_sensor(int id, const settings_schema& schema,
                                                  const settings_map& values);
    // Throws host_error with the module's reason.
    void create_sensor(int id, const settings_schema& schema, const settings_map& values);
    // When the sensor last asked the host to keep data (the subscribe-custom sensor does so
    // for each new message), if it did since it was created.
    std::optional<std::chrono::system_clock::time_point> last_kept(int id) const;
    state_store& state() { return *state_; }
    shared_checks& checks() { return checks_; }
    void destroy_sensor(int id);
    void destroy_all();
    std::string kind_of(int id) const;

  private:
    void print_log(const wire::Log& log);

    int log_level_;
    std::unique_ptr<state_store> state_;
    std::mutex log_mutex_;
    module_inbox inbox_;
    std::unique_ptr<module_session> session_;
    std::unique_ptr<description> doc_;
    std::string language_;
    shared_checks checks_;
    mutable std::mutex sensors_mutex_;
    std::map<int, std::string>
        sensors_;  // live sensors by id with their kind; guarded by sensors_mutex_
    std::map<int, std::chrono::system_clock::time_point>
        kept_;  // when each live sensor last kept data; guarded by sensors_mutex_
};

// The layers of one sensor or check: shared defaults of the config, its own settings,
// then --set and --set-file. `own` and `own_where` may be null. The config's defaults are
// checked against every kind unless `defaults_checked` says an earlier call for the same
// config did so (with thousands of sensors, that check took minutes).
std::vector<settings_layer> settings_layers(const description& doc, const probe_config* config,
                                            const std::vector<setting_pair>* own,
                                            const std::string& own_origin,
                                            const settings_options& cli,
                                            const setting_origins* own_where = nullptr,
                                            bool defaults_checked = false);

// A stop request from the signals or, when `seconds` is set, after that long.
class run_limit {
  public:
    run_limit(std::stop_token signals, std::optional<double> seconds);
    std::stop_token token() const { return source_.get_token(); }

  private:
    std::stop_source source_;
    std::stop_callback<std::function<void()>> link_;
    std::jthread timer_;
};

std::chrono::steady_clock::duration seconds_to_duration(double seconds);

}  // namespace corvanis::monitoring_modules::host
