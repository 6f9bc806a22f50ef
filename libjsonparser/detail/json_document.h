#pragma once

// Internal to libjsonparser: the one header that names jsoncons. Include it from the
// library's own sources only, so that users of the parsers never compile jsoncons.

#include <cstdint>
#include <string>

#include <jsoncons/json.hpp>

namespace corvanis::monitoring_modules::libjsonparser::detail {

// Order-preserving, so that the text of an object keeps the sender's member order.
using json = jsoncons::ojson;

struct json_document {
    json root;
};

// A JSON array holding what a path selected, in document order.
struct match_list {
    json values{jsoncons::json_array_arg};
};

// Throws exceptions::parse_error with the parser's diagnosis.
json parse_json(std::string_view text);

// Throws libparser::exceptions::empty_result for an empty `path`.
void require_path(const std::string& path);

// The one value of `matches` that a typed query works on; see json_parser.h for the rules.
const json& single_value(const match_list& matches, const std::string& path);

// "a number", "an object" ...: the kind of `value` for diagnoses.
const char* kind_of(const json& value);

std::string to_text(const json& value);
std::int64_t to_int64(const json& value);
double to_double(const json& value);
bool to_bool(const json& value);

}  // namespace corvanis::monitoring_modules::libjsonparser::detail
