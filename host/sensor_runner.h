#pragma once

#include <chrono>
#include <stop_token>
#include <string>
#include <vector>

#include "host/output.h"
#include "host/probe.h"
#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

struct planned_sensor {
    int id = 0;
    settings_schema schema;
    settings_map values;
    std::chrono::steady_clock::duration interval{};
};

// Resolves and checks a sensor's settings before anything is created. Throws host_error.
planned_sensor plan_sensor(const description& doc, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers);

// Creates every sensor, scans each on its own interval on a worker pool and prints each
// result until `stop`, then destroys them all. Throws host_error when a sensor cannot
// be created; those already created are destroyed.
// Each result also goes to `board` when there is one.
void run_sensors(probe& p, const std::vector<planned_sensor>& plan, result_printer& printer,
                 std::stop_token stop, status_board* board = nullptr);

}  // namespace corvanis::monitoring_modules::host
