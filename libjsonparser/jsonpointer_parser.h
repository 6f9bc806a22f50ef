#pragma once

#include <string>

#include "libjsonparser/json_parser.h"

namespace corvanis::monitoring_modules::libjsonparser {

// Paths are JSON Pointers ("/a/0/b", with "~1" for "/" and "~0" for "~" in names). A
// pointer selects at most one value; a pointer that does not start with "/" throws
// exceptions::query_error. Conversion rules and exceptions: see json_parser.h.
class jsonpointer_parser final : public json_parser {
  public:
    // Throws exceptions::parse_error unless `document` is exactly one JSON value.
    explicit jsonpointer_parser(const std::string& document);
};

// As jsonpointer_parser, but member names match without regard to ASCII letter case.
// A member whose name matches exactly wins; otherwise the first in document order.
class case_insensitive_jsonpointer_parser final : public json_parser {
  public:
    explicit case_insensitive_jsonpointer_parser(const std::string& document);
};

}  // namespace corvanis::monitoring_modules::libjsonparser
