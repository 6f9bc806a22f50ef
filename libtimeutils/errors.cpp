#include "libtimeutils/errors.h"

namespace corvanis::monitoring_modules::libtimeutils::messages {

std::vector<const libi18n::i18n_msg*> all() {
    return {&could_not_parse(), &invalid_date()};
}

}  // namespace corvanis::monitoring_modules::libtimeutils::messages
