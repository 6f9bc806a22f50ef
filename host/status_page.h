#pragma once

#include <string>

#include "host/metrics.h"
#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

// {"probe": {...}, "sensors": [...]}: each sensor is its latest result with the fields of a
// JSON line, plus "display" and, per channel, "history" (recent shown values, null for a
// scan without one). A sensor not yet scanned has state "unknown" and "time" null.
std::string status_json(const status_board& board, const probe_identity& probe);

// The live status page, complete in itself (style, script and the data of `status_json`
// inlined); it refreshes from api/status every few seconds.
std::string status_page(const std::string& status_json);

}  // namespace corvanis::monitoring_modules::host
