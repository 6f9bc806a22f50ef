#include "libtavohelper/checks/check_base.h"

namespace corvanis::monitoring_modules::libtavohelper::checks {

// Defined here so that the framework library holds the one copy of the type information.
check_interface::~check_interface() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::checks
