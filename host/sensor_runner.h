#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "host/output.h"
#include "host/probe.h"
#include "host/result_state.h"
#include "host/signals.h"
#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

struct planned_sensor {
    int id = 0;
    // Shared by every sensor of a kind: a schema with its help texts is larger than a sensor.
    std::shared_ptr<const settings_schema> schema;
    // Only the resolved values that differ from their defaults; resolved_values has them all.
    settings_map values;
    std::chrono::steady_clock::duration interval{};
    std::string name;
    std::map<std::string, channel_limits> limits;     // by channel name as shown
    std::optional<std::chrono::seconds> stale_after;  // push sensors only
};

// Each sensor kind's settings schema, built once and shared by the plans of its sensors.
class schema_cache {
  public:
    explicit schema_cache(const description& doc) : doc_(doc) {}
    // Throws host_error for a kind the document does not offer.
    std::shared_ptr<const settings_schema> of(const std::string& kind);

  private:
    const description& doc_;
    std::map<std::string, std::shared_ptr<const settings_schema>> by_kind_;
};

// Resolves and checks a sensor's settings before anything is created. Throws host_error.
planned_sensor plan_sensor(schema_cache& schemas, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers);
planned_sensor plan_sensor(const description& doc, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers);
// The same for a sensor of a config, with its name, limits and staleness.
planned_sensor plan_sensor(schema_cache& schemas, const sensor_entry& entry,
                           const std::vector<settings_layer>& layers);
planned_sensor plan_sensor(const description& doc, const sensor_entry& entry,
                           const std::vector<settings_layer>& layers);

// Every setting of a plan, defaults included, as the module gets them.
settings_map resolved_values(const planned_sensor& plan);

// One sensor as the host runs it: its required checks and creation, retried while they
// fail, and its scans with what the host makes of each result (counters, limits,
// staleness, states). Not thread-safe: one thread at a time, as the scheduler guarantees.
class sensor_runner {
  public:
    enum class readiness { created, check_failed, creation_failed, waiting };

    // `p` must outlive the runner.
    sensor_runner(probe& p, planned_sensor plan, std::string language = "English");

    // Runs the required checks and creates the sensor when it is not created and an
    // attempt is due (a check is retried at every call, a creation with back-off).
    readiness ensure_created();
    // The next result: a scan when the sensor exists, else the reason it does not.
    scan_view next_result();
    // Why the sensor does not exist, as an error result.
    scan_view failure() const;
    const planned_sensor& plan() const { return plan_; }
    // Safe from any thread, unlike the rest.
    bool created() const { return created_; }
    // Takes the new name, limits and staleness of `plan`; the instance stays as it is.
    void relabel(const planned_sensor& plan);
    bool push() const { return push_; }
    // Failed creation attempts since the last success.
    int creation_failures() const { return failed_creations_; }

  private:
    bool required_checks_pass(const settings_map& sensor_values);
    scan_view scan();
    void judge_staleness(scan_view& view);
    scan_view base_view() const;

    using clock = std::chrono::steady_clock;
    probe& probe_;
    planned_sensor plan_;
    std::string language_;
    bool push_ = false;
    std::string topic_;       // the topic filter among the settings, for texts
    bool dismisses_ = false;  // keeps no old message
    std::vector<std::string> required_checks_;
    std::atomic<bool> created_ = false;
    message_view failure_;
    int failed_creations_ = 0;
    clock::time_point next_attempt_{};
    std::chrono::system_clock::time_point last_message_{};  // creation time until one comes
    bool heard_any_ = false;  // a message has come since creation (or before, as kept data says)
    std::optional<std::chrono::system_clock::time_point> kept_seen_;
    counter_memory counters_;
};

// Where a run takes a new set of sensors from when asked to reload.
struct reload_source {
    reload_requests* requests = nullptr;  // null: no reloads
    std::string config;                   // for log lines
    // The sensors of the config as it is now; throws when it does not load.
    std::function<std::vector<planned_sensor>()> load;
};

// Creates every sensor, scans each on its own interval on a worker pool and prints each
// result until `stop`, then destroys them all. A sensor that cannot be created is an
// error result at its interval and is tried again; the others run meanwhile. Each reload
// request brings the sensors to what `reload.load` gives, or keeps them when it throws.
// Each result also goes to `board` when there is one, and the board follows reloads.
void run_sensors(probe& p, std::vector<planned_sensor> plan, result_printer& printer,
                 std::stop_token stop, const reload_source& reload = {},
                 status_board* board = nullptr);

}  // namespace corvanis::monitoring_modules::host
