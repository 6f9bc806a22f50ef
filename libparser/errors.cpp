#include "libparser/errors.h"

namespace corvanis::monitoring_modules::libparser::messages {

std::vector<const libi18n::i18n_msg*> all() {
    return {&empty_result(), &unexpected_type()};
}

}  // namespace corvanis::monitoring_modules::libparser::messages
