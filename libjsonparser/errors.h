#pragma once

#include <vector>

#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::libjsonparser {

namespace messages {
#define LIBJSONPARSER_MSG(name, text) LIBI18N_MESSAGE(name, "libjsonparser.error." #name, text)
LIBJSONPARSER_MSG(conversion, "'%0:s' could not be converted to '%1:s'.")
LIBJSONPARSER_MSG(parse, "The received JSON data could not be parsed. %0:s")
LIBJSONPARSER_MSG(query, "The provided JSONPath is incorrect. %0:s")
LIBJSONPARSER_MSG(unexpected_array,
                  "The received value is an array instead of a single value. %0:s")
LIBJSONPARSER_MSG(invalid_schema, "The provided JSON data is not a valid JSON Schema. %0:s")
LIBJSONPARSER_MSG(validation, "The received data does not match the JSON Schema. %0:s")
#undef LIBJSONPARSER_MSG

// Every definition above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace exceptions {
class exception : public libi18n::_i18n_exception<libi18n::i18n_exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// Arguments: the value's text and the target type ("integer", "floating point", "boolean").
class conversion_error : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The document is not JSON. Argument: the parser's diagnosis with line and column.
class parse_error : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The path does not compile or fails to evaluate. Argument: the diagnosis.
class query_error : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// A single value was asked for but several were selected, or the value is an array.
// Argument: the JSON text of the values.
class unexpected_array_error : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
class invalid_schema : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
class validation : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
}  // namespace exceptions

}  // namespace corvanis::monitoring_modules::libjsonparser
