#pragma once

namespace corvanis::monitoring_modules::mqtt {

// The version every sensor and check announces, and the module reports. Kept here, below
// both, so the sensors need nothing from the module that registers them.
inline constexpr const char* module_version = "1.16.0.20981";

}  // namespace corvanis::monitoring_modules::mqtt
