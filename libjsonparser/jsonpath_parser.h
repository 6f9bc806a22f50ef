#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "libjsonparser/json_parser.h"
#include "libparser/parser_interface.h"

namespace corvanis::monitoring_modules::libjsonparser {

// A JSONPath compiled once and evaluated on many documents. Construction never fails
// for a bad path: the diagnosis is kept, and every query with it throws the same
// exception as the query with the path's text would. Immutable; copies share the
// compiled form and may be used from several threads at once.
class compiled_jsonpath {
  public:
    explicit compiled_jsonpath(std::string path);

    const std::string& path() const noexcept;
    // Why the path does not compile, as queries with it report it; empty when it compiled
    // or is empty. Lets a caller refuse a bad path before the first document arrives.
    const std::string& diagnosis() const noexcept;

  private:
    friend class jsonpath_parser;
    struct impl;
    std::shared_ptr<const impl> impl_;
};

// Paths are JSONPath expressions, with one function beyond the standard set: eval(s)
// takes a string and yields the JSON value written in it, so that eval($.inner) with
// "inner": "{\"t\": 21.5}" is the object {"t":21.5}. Any other argument, or a string that
// is not JSON, fails the whole query with query_error, also inside a filter.
// Conversion rules and exceptions: see json_parser.h.
class jsonpath_parser final : public json_parser {
  public:
    // Throws exceptions::parse_error unless `document` is exactly one JSON value.
    explicit jsonpath_parser(const std::string& document);

    using json_parser::query_bool;
    using json_parser::query_double;
    using json_parser::query_int64;
    using json_parser::query_text;

    // Same results and exceptions as the queries with path.path().
    std::string query_text(const compiled_jsonpath& path) const;
    std::int64_t query_int64(const compiled_jsonpath& path) const;
    double query_double(const compiled_jsonpath& path) const;
    bool query_bool(const compiled_jsonpath& path) const;

  private:
    static detail::match_list select_by_jsonpath(const detail::json_document& document,
                                                 const std::string& path);
};

// The factory the module registers for libparser::parser_interface: a jsonpath_parser
// over `document`. Throws exceptions::parse_error.
std::unique_ptr<libparser::parser_interface> make_jsonpath_parser(const std::string& document);

}  // namespace corvanis::monitoring_modules::libjsonparser
