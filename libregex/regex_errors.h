#pragma once

#include <regex>
#include <string>
#include <vector>

#include "libi18n/i18n_exception.h"
#include "liblog/log_interface.h"

namespace corvanis::monitoring_modules::libregex {

namespace messages {
#define LIBREGEX_MSG(name, key, text) LIBI18N_MESSAGE(name, "libregex.error." key, text)
LIBREGEX_MSG(character_class, "character_class",
             "Invalid character class name in regular expression \"%0:s\". Ensure character class "
             "names like [:digit:] or [:alpha:] are spelled correctly.")
LIBREGEX_MSG(escape_sequence, "escape_sequence",
             "Invalid escape sequence in regular expression \"%0:s\". Check backslash usage - "
             "common sequences include \\d (digit), \\s (space), \\w (word character).")
LIBREGEX_MSG(backreference, "backreference",
             "Invalid backreference in regular expression \"%0:s\". Ensure backreferences like \\1 "
             "or \\2 refer to existing capture groups.")
LIBREGEX_MSG(brackets, "brackets",
             "Mismatched square brackets in regular expression \"%0:s\". Each '[' must have a "
             "corresponding ']'.")
LIBREGEX_MSG(
    parentheses, "parentheses",
    "Invalid parentheses or repetition in regular expression \"%0:s\". Check that each '(' "
    "has a matching ')' and that repetition operators (*, +, ?) follow a valid expression.")
LIBREGEX_MSG(braces, "braces",
             "Mismatched curly braces in regular expression \"%0:s\". Each '{' must have a "
             "corresponding '}'.")
LIBREGEX_MSG(
    braces_content, "braces_content",
    "Invalid content in curly braces in regular expression \"%0:s\". Braces should contain "
    "non-negative integers like {3} or {2,5} for repetition counts.")
LIBREGEX_MSG(character_range, "character_range",
             "Invalid character range in regular expression \"%0:s\". In ranges like [a-z], the "
             "first character must come before the second in the character set.")
LIBREGEX_MSG(
    repetition, "repetition",
    "Invalid repetition in regular expression \"%0:s\". Repetition operators (*, +, ?, {n}) "
    "must follow a valid expression, not another repetition operator.")
LIBREGEX_MSG(invalid, "invalid", "The regular expression \"%0:s\" is invalid.")
#undef LIBREGEX_MSG

// Every definition above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace exceptions {
// Base of the family: catching it catches every translated engine error.
class regex_invalid : public libi18n::_i18n_exception<libi18n::i18n_exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
#define LIBREGEX_ERROR(name)                                      \
    class name : public libi18n::_i18n_exception<regex_invalid> { \
      public:                                                     \
        using _i18n_exception::_i18n_exception;                   \
    };
LIBREGEX_ERROR(regex_character_class)
LIBREGEX_ERROR(regex_escape_sequence)
LIBREGEX_ERROR(regex_backreference)
LIBREGEX_ERROR(regex_brackets)
LIBREGEX_ERROR(regex_parentheses)
LIBREGEX_ERROR(regex_braces)
LIBREGEX_ERROR(regex_braces_content)
LIBREGEX_ERROR(regex_character_range)
LIBREGEX_ERROR(regex_repetition)
#undef LIBREGEX_ERROR
}  // namespace exceptions

// Logs "Regex error: <engine text>. Pattern used: <pattern>" at severity 3, then throws the
// localised exception for the engine's error code with the pattern as its argument.
[[noreturn]] void translate_regex_error(const std::regex_error& error, const std::string& pattern,
                                        liblog::log_interface& log);

}  // namespace corvanis::monitoring_modules::libregex
