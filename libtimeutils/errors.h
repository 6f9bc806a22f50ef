#pragma once

#include <vector>

#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::libtimeutils {

namespace messages {
#define LIBTIMEUTILS_MSG(name, text) LIBI18N_MESSAGE(name, "libtimeutils.error." #name, text)
LIBTIMEUTILS_MSG(could_not_parse,
                 "Could not parse timestamp \"%0:s\". The timestamp is not in the expected "
                 "format: \"%1:s\".")
LIBTIMEUTILS_MSG(invalid_date, "Invalid date: \"%0:s\".")
#undef LIBTIMEUTILS_MSG

// Every definition above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace exceptions {
class exception : public libi18n::_i18n_exception<libi18n::i18n_exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The text does not follow the format. Arguments: the text and the format.
class could_not_parse : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The text follows the format but names no instant this library can hold. Argument: the text.
class invalid_date : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
}  // namespace exceptions

}  // namespace corvanis::monitoring_modules::libtimeutils
