#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::libi18n {

// Defined here so that one library holds the type information.
i18n_exception::~i18n_exception() = default;

}  // namespace corvanis::monitoring_modules::libi18n
