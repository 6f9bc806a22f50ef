#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libparser/parser_interface.h"

namespace corvanis::monitoring_modules::libjsonparser {

namespace detail {
struct json_document;
struct match_list;
}  // namespace detail

// What the JSON parsers share: the document, parsed once at construction, and the rules
// that turn the values a path selects into the requested type. Derived classes supply the
// path language as a selector function.
//
// Typed queries take exactly one value: nothing selected, or a single null, "", [] or {},
// throws libparser::exceptions::empty_result; two or more values, or an array where a
// number or boolean is asked for, throw exceptions::unexpected_array_error.
// - text: strings as they are, any other value as compact JSON text.
// - int64: JSON integers in range; floating-point numbers only when integral and in range;
//   strings by base-10 prefix rules ("  42abc" is 42, "abc" fails). Otherwise
//   exceptions::conversion_error (argument "integer").
// - double: any JSON number; strings by decimal prefix rules, locale-independent,
//   finite results only. Otherwise conversion_error ("floating point").
// - bool: JSON booleans and the strings "true" and "false"; other strings throw
//   conversion_error ("boolean").
// A kind a query cannot take (an object; a boolean for a number; a number for a boolean)
// throws libparser::exceptions::unexpected_type.
class json_parser : public libparser::parser_interface {
  public:
    ~json_parser() override;
    json_parser(const json_parser&) = delete;
    json_parser& operator=(const json_parser&) = delete;

    std::string query_text(const std::string& path) const override;
    std::int64_t query_int64(const std::string& path) const override;
    double query_double(const std::string& path) const override;
    bool query_bool(const std::string& path) const override;

    bool contains(const std::string& path) const override;
    std::vector<std::string> query_text_list(const std::string& path) const override;
    // These three throw libparser::exceptions::not_implemented.
    std::vector<std::int64_t> query_int64_list(const std::string& path) const override;
    std::vector<double> query_double_list(const std::string& path) const override;
    void validate(const std::string& schema) const override;

  protected:
    // Every value `path` selects in the document, in document order. Never called with
    // an empty path; throws exceptions::query_error for a path it cannot use.
    using selector = detail::match_list (*)(const detail::json_document& document,
                                            const std::string& path);

    // Throws exceptions::parse_error unless `document` is exactly one JSON value.
    json_parser(const std::string& document, selector select_values);

    const detail::json_document& document() const noexcept { return *document_; }

  private:
    detail::match_list select(const std::string& path) const;

    std::unique_ptr<const detail::json_document> document_;
    selector select_;
};

}  // namespace corvanis::monitoring_modules::libjsonparser
