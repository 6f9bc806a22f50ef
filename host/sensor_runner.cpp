#include "host/sensor_runner.h"

#include <algorithm>

#include "host/scheduler.h"

namespace corvanis::monitoring_modules::host {

namespace {

// Enough that a few slow brokers do not hold back the others, few enough for a small probe.
constexpr std::size_t max_workers = 4;

}  // namespace

planned_sensor plan_sensor(const description& doc, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers) {
    planned_sensor planned{id, sensor_schema(doc, kind), {}, {}};
    planned.values = resolve_settings(planned.schema, layers);
    validate_settings(planned.schema, planned.values);
    planned.interval = std::chrono::seconds(std::stoi(planned.values.at("interval")));
    return planned;
}

void run_sensors(probe& p, const std::vector<planned_sensor>& plan, result_printer& printer,
                 std::stop_token stop, status_board* board) {
    for (const auto& sensor : plan) {
        if (stop.stop_requested()) break;
        p.create_sensor(sensor.id, sensor.schema, sensor.values);
    }
    scan_scheduler scheduler(std::min(plan.size(), max_workers), [&](int id) {
        const auto result = p.module().scan(id);
        if (board != nullptr) board->record(make_scan_view(result, p.kind_of(id), &p.doc()));
        printer.print(result, p.kind_of(id));
    });
    for (const auto& sensor : plan) scheduler.add(sensor.id, sensor.interval);
    if (!stop.stop_requested()) scheduler.run(stop);
    p.destroy_all();
}

}  // namespace corvanis::monitoring_modules::host
