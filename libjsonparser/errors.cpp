#include "libjsonparser/errors.h"

namespace corvanis::monitoring_modules::libjsonparser::messages {

std::vector<const libi18n::i18n_msg*> all() {
    return {&conversion(),       &parse(),          &query(),
            &unexpected_array(), &invalid_schema(), &validation()};
}

}  // namespace corvanis::monitoring_modules::libjsonparser::messages
