#include "libregex/regex_errors.h"

namespace corvanis::monitoring_modules::libregex {

namespace messages {
std::vector<const libi18n::i18n_msg*> all() {
    return {&character_class(), &escape_sequence(), &backreference(),  &brackets(),
            &parentheses(),     &braces(),          &braces_content(), &character_range(),
            &repetition(),      &invalid()};
}
}  // namespace messages

void translate_regex_error(const std::regex_error& error, const std::string& pattern,
                           liblog::log_interface& log) {
    log.log(liblog::severity::error,
            "Regex error: " + std::string(error.what()) + ". Pattern used: " + pattern);
    using namespace exceptions;
    // By ordinal: the standard names the codes but libraries are free in their values' types.
    switch (static_cast<int>(error.code())) {
        case 0:  // error_collate
        case 1:  // error_ctype
            throw regex_character_class(messages::character_class()(pattern));
        case 2:
            throw regex_escape_sequence(messages::escape_sequence()(pattern));
        case 3:
            throw regex_backreference(messages::backreference()(pattern));
        case 4:
            throw regex_brackets(messages::brackets()(pattern));
        case 5:
            throw regex_parentheses(messages::parentheses()(pattern));
        case 6:
            throw regex_braces(messages::braces()(pattern));
        case 7:
            throw regex_braces_content(messages::braces_content()(pattern));
        case 8:
            throw regex_character_range(messages::character_range()(pattern));
        case 10:
            throw regex_repetition(messages::repetition()(pattern));
        default:  // error_space, error_complexity, error_stack and anything newer
            throw regex_invalid(messages::invalid()(pattern));
    }
}

}  // namespace corvanis::monitoring_modules::libregex
