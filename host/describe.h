#pragma once

#include <string>

#include "host/description.h"
#include "host/output.h"

namespace corvanis::monitoring_modules::host {

// The module's sensors, check, notification and every setting with its default, as
// readable text in `language` (texts the language lacks are shown in English). A non-empty
// `only` shows one sensor kind, the check or the notification; throws host_error for a
// name the module does not offer.
std::string describe_text(const description& doc, const std::string& language, int api_level,
                          const table_style& style, const std::string& only = "");

}  // namespace corvanis::monitoring_modules::host
