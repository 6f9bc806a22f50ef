#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "libexception/exception.h"

namespace corvanis::monitoring_modules::libstringutils {

namespace exceptions {
class exception : public libexception::_exception<libexception::exception> {
  public:
    ~exception() override;
    using _exception::_exception;
};
class format_string_error : public libexception::_exception<exception> {
  public:
    ~format_string_error() override;
    format_string_error();
};
class placeholder_index_not_in_arguments : public libexception::_exception<exception> {
  public:
    ~placeholder_index_not_in_arguments() override;
    explicit placeholder_index_not_in_arguments(std::string_view index_as_written);
};
}  // namespace exceptions

// Replaces "%N:s" by argument N and "%%" by "%". Throws format_string_error for any
// other "%", placeholder_index_not_in_arguments for N >= args.size(), and
// std::out_of_range for an index that does not fit a signed 64-bit number.
std::string format(std::string_view format_string, const std::vector<std::string>& args);

}  // namespace corvanis::monitoring_modules::libstringutils
