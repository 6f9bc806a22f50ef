#pragma once

#include <string>

namespace corvanis::monitoring_modules::mqtt {

// The module description document as compact JSON, assembled once while the library loads.
// The string lives until the process ends; each request hands out a copy of it.
const std::string& module_description();

}  // namespace corvanis::monitoring_modules::mqtt
