#include "libtavohelper/notifications/notification.h"

namespace corvanis::monitoring_modules::libtavohelper::notifications {

// Defined here so that the framework library holds the one copy of the type information.
service_interface::~service_interface() = default;

}  // namespace corvanis::monitoring_modules::libtavohelper::notifications
