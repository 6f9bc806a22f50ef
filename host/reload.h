#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

#include "host/probe.h"
#include "host/scheduler.h"
#include "host/sensor_runner.h"

namespace corvanis::monitoring_modules::host {

// What a new configuration does to the sensors that run.
struct reload_plan {
    std::vector<int> kept;                   // the same in every respect
    std::vector<planned_sensor> relabelled;  // only name, limits or staleness differ
    std::vector<planned_sensor> recreated;   // kind, resolved settings or interval differ
    std::vector<int> removed;
    std::vector<planned_sensor> added;
};

reload_plan compare_plans(const std::vector<planned_sensor>& running,
                          const std::vector<planned_sensor>& wanted);

// The sensors of a run, changed as a whole while their scans go on. A sensor whose module
// settings stay keeps its instance, its state, its counters and its history; one whose
// settings change is destroyed and created again under the same id. Only one thread
// calls `apply` at a time; the scheduler's workers call `at`.
class sensor_set {
  public:
    sensor_set(probe& p, std::string language) : probe_(p), language_(std::move(language)) {}

    // Brings the set and the scheduler to `wanted`. Stops early (the set stays consistent)
    // when `stop` is requested between two sensors.
    reload_plan apply(const std::vector<planned_sensor>& wanted, scan_scheduler& scheduler,
                      std::stop_token stop = {});
    // Throws std::out_of_range for an id that is not (or no longer) in the set.
    sensor_runner& at(int id);

  private:
    std::vector<planned_sensor> plans() const;

    probe& probe_;
    std::string language_;
    mutable std::mutex mutex_;
    // guarded by mutex_ (the map; a runner is used by one scan at a time)
    std::map<int, std::unique_ptr<sensor_runner>> runners_;
};

// One line for the log: what a reload did.
std::string describe_reload(const std::string& config, const reload_plan& plan);

}  // namespace corvanis::monitoring_modules::host
