#include "host/operations.h"

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>

#include "host/errors.h"
#include "host/log_style.h"

#ifndef TAVO_PROBE_VERSION
#define TAVO_PROBE_VERSION "unknown"
#endif

namespace corvanis::monitoring_modules::host {

void keep_shard(probe_config& config, const shard_assignment& shard) {
    std::erase_if(config.sensors,
                  [&](const sensor_entry& sensor) { return !shard.owns(sensor.id); });
}

probe_identity identify(probe& p, const std::optional<shard_assignment>& shard) {
    return {TAVO_PROBE_VERSION, p.doc().version(), p.module().api_level(),
            shard ? shard->text() : ""};
}

void add_sensors(status_board& board, const probe_config& config, const description& doc) {
    for (const auto& sensor : config.sensors) {
        const auto* kind = doc.find_sensor(sensor.kind);
        board.add_sensor(sensor.id, sensor.name, sensor.kind, kind ? kind->display : "");
    }
}

std::unique_ptr<http_endpoint> serve_board(const std::string& listen, const status_board& board,
                                           probe_identity probe) {
    if (listen.empty()) return nullptr;
    const auto address = parse_listen_address(listen);
    auto endpoint = std::make_unique<http_endpoint>(address, board, std::move(probe));
    const bool v6 = address.host.find(':') != std::string::npos;
    const std::string where = "http://" + (v6 ? "[" + address.host + "]" : address.host) + ":" +
                              std::to_string(endpoint->port()) + "/";
    log_event(address.loopback() ? 6 : 5,
              "tavo-probe: serving the status page on " + where + ", metrics on " + where +
                  "metrics" +
                  (address.loopback() ? "" : " (reachable from other hosts, as --listen asked)"));
    return endpoint;
}

int version_command(const global_options& global) {
    std::cout << "tavo-probe " << TAVO_PROBE_VERSION << std::endl;
    try {
        probe p(global);
        std::cout << "module " << p.doc().module_display() << " " << p.doc().version()
                  << ", API level " << p.module().api_level() << std::endl;
    } catch (const host_error& e) {
        log_event(3, std::string("tavo-probe: ") + e.what());
        return e.code();
    }
    return exit_ok;
}

}  // namespace corvanis::monitoring_modules::host
