#include "libexception/exception.h"

namespace corvanis::monitoring_modules::libexception {

// Defined here so that one library holds the type information.
exception::~exception() = default;

}  // namespace corvanis::monitoring_modules::libexception
