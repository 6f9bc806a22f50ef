#include <algorithm>
#include <iostream>

#include "host/commands.h"
#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

// Every fault should say where in the file it sits; those found by kind carry the entry's.
std::string located(const std::string& fault, const probe_config& config,
                    const std::string& location) {
    return fault.starts_with(config.name + ":") ? fault : location + ": " + fault;
}

}  // namespace

int validate_command(const global_options& global, const std::string& config_path) {
    const auto config = load_config(config_path);
    probe p(global);
    std::vector<std::string> faults;
    if (config.sensors.empty())
        faults.push_back(config.name + ": no sensors to run (sensors: is empty)");
    const auto check_one = [&](const settings_schema& schema, const std::vector<setting_pair>* own,
                               const setting_origins* where, const std::string& label) {
        setting_origins origins;
        const auto values = resolve_settings(
            schema, settings_layers(p.doc(), &config, own, label, {}, where), &origins);
        validate_settings(schema, values, &origins);
    };
    for (const auto& entry : config.sensors) {
        const std::string label = "sensor " + std::to_string(entry.id);
        try {
            check_one(sensor_schema(p.doc(), entry.kind), &entry.settings, &entry.where,
                      label + " in " + config.name);
        } catch (const host_error& e) {
            faults.push_back(located(e.what(), config, entry.location + ": " + label));
        }
    }
    try {
        check_one(check_schema(p.doc()), &config.check_settings, &config.check_where,
                  "check settings in " + config.name);
    } catch (const host_error& e) {
        faults.push_back(located(e.what(), config, config.name + ": check"));
    }
    // A fault in defaults: shows in every sensor; once is enough.
    std::vector<std::string> distinct;
    for (auto& fault : faults) {
        if (std::find(distinct.begin(), distinct.end(), fault) == distinct.end())
            distinct.push_back(std::move(fault));
    }
    faults = std::move(distinct);
    for (const auto& fault : faults) std::cerr << "tavo-probe: " << fault << "\n";
    if (!faults.empty()) {
        std::cerr << "tavo-probe: " << config.name << ": " << faults.size() << " fault"
                  << (faults.size() == 1 ? "" : "s") << std::endl;
        return exit_setup_failed;
    }
    std::cout << config.name << ": " << config.sensors.size() << " sensor"
              << (config.sensors.size() == 1 ? "" : "s") << " and the check settings are valid"
              << std::endl;
    return exit_ok;
}

}  // namespace corvanis::monitoring_modules::host
