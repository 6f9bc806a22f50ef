#pragma once

#include <vector>

#include "libexception/exception.h"
#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::libparser {

namespace messages {
#define LIBPARSER_MSG(name, text) LIBI18N_MESSAGE(name, "libparser.error." #name, text)
LIBPARSER_MSG(empty_result, "The queried field \"%0:s\" is empty.")
LIBPARSER_MSG(unexpected_type, "The received value has an unexpected data type. %0:s")
#undef LIBPARSER_MSG

// Every definition above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> all();
}  // namespace messages

namespace exceptions {
class exception : public libi18n::_i18n_exception<libi18n::i18n_exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The path selects nothing, or only null, "", [] or {}. Argument: the path.
class empty_result : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};
// The selected value is of a kind the typed query cannot take. Argument: what was
// expected and what was received.
class unexpected_type : public libi18n::_i18n_exception<exception> {
  public:
    using _i18n_exception::_i18n_exception;
};

// A programming error rather than a data error, hence not localised and outside the
// family above: what() is "NOT YET IMPLEMENTED".
class not_implemented : public libexception::_exception<libexception::exception> {
  public:
    not_implemented() : _exception("NOT YET IMPLEMENTED") {}
};
}  // namespace exceptions

}  // namespace corvanis::monitoring_modules::libparser
