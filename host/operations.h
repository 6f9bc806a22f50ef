#pragma once

#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "host/config.h"
#include "host/http_endpoint.h"
#include "host/probe.h"
#include "host/shard.h"
#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

// Drops the sensors another shard runs.
void keep_shard(probe_config& config, const shard_assignment& shard);

probe_identity identify(probe& p, const std::optional<shard_assignment>& shard);

// Every sensor of the config on the board, so that those not yet scanned show as unknown.
void add_sensors(status_board& board, const probe_config& config, const description& doc);

// Serves the board on `listen` (empty: nothing served) and says where. Throws host_error.
std::unique_ptr<http_endpoint> serve_board(const std::string& listen, const status_board& board,
                                           probe_identity probe);

// Prints tavo-probe's version, then the module's version and API level; exit 3 when the
// module cannot be loaded (after the first line).
int version_command(const global_options& global);

}  // namespace corvanis::monitoring_modules::host
