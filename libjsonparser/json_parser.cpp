#include "libjsonparser/json_parser.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "libjsonparser/detail/json_document.h"
#include "libjsonparser/errors.h"
#include "libparser/errors.h"

namespace corvanis::monitoring_modules::libjsonparser {

namespace detail {

const char* kind_of(const json& value) {
    if (value.is_bool()) return "a boolean";
    if (value.is_number()) return "a number";
    if (value.is_string()) return "a string";
    if (value.is_array()) return "an array";
    if (value.is_object()) return "an object";
    return "null";
}

namespace {

[[noreturn]] void throw_unexpected_type(const std::string& expected, const json& value) {
    throw libparser::exceptions::unexpected_type(libparser::messages::unexpected_type()(
        "Expected " + expected + ", received " + kind_of(value) + "."));
}

[[noreturn]] void throw_conversion_error(const json& value, const char* target) {
    throw exceptions::conversion_error(messages::conversion()(to_text(value), target));
}

[[noreturn]] void throw_unexpected_array(const json& values) {
    throw exceptions::unexpected_array_error(messages::unexpected_array()(values.to_string()));
}

// Blanks as the C library's isspace() knows them in the "C" locale.
std::string_view skip_blanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\n\v\f\r");
    return first == std::string_view::npos ? std::string_view{} : text.substr(first);
}

bool starts_with_digit(std::string_view text) {
    return !text.empty() && text.front() >= '0' && text.front() <= '9';
}

// strtoll() rules, base 10, without its dependence on the locale: leading blanks, an
// optional sign, then digits up to the first other character.
std::optional<std::int64_t> integer_prefix(std::string_view text) {
    text = skip_blanks(text);
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!starts_with_digit(text)) return std::nullopt;
    }
    std::int64_t value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{}) return std::nullopt;
    return value;
}

// strtod() rules for decimal notation, locale-independent; "inf", "nan" and values out
// of range fail, since no channel can show them.
std::optional<double> decimal_prefix(std::string_view text) {
    text = skip_blanks(text);
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (text.empty() || text.front() == '-' || text.front() == '+') return std::nullopt;
    }
    double value = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc{} || !std::isfinite(value)) return std::nullopt;
    return value;
}

bool is_empty_value(const json& value) {
    return value.is_null() ||
           ((value.is_string() || value.is_array() || value.is_object()) && value.empty());
}

}  // namespace

json parse_json(std::string_view text) {
    try {
        return json::parse(text);
    } catch (const jsoncons::json_exception& e) {
        throw exceptions::parse_error(messages::parse()(e.what()));
    }
}

void require_path(const std::string& path) {
    if (path.empty()) {
        throw libparser::exceptions::empty_result(libparser::messages::empty_result()(path));
    }
}

const json& single_value(const match_list& matches, const std::string& path) {
    const json& values = matches.values;
    if (values.size() > 1) throw_unexpected_array(values);
    if (values.empty() || is_empty_value(values[0])) {
        throw libparser::exceptions::empty_result(libparser::messages::empty_result()(path));
    }
    return values[0];
}

std::string to_text(const json& value) {
    if (value.is_string()) return std::string(value.as_string_view());
    return value.to_string();
}

std::int64_t to_int64(const json& value) {
    if (value.is_int64()) return value.as<std::int64_t>();
    if (value.is_uint64()) throw_conversion_error(value, "integer");
    if (value.is_double()) {
        // Only integral values: 2^63 is the first double beyond the range.
        const double number = value.as<double>();
        if (std::trunc(number) == number && number >= -9223372036854775808.0 &&
            number < 9223372036854775808.0) {
            return static_cast<std::int64_t>(number);
        }
        throw_conversion_error(value, "integer");
    }
    if (value.is_string()) {
        if (const auto number = integer_prefix(value.as_string_view())) return *number;
        throw_conversion_error(value, "integer");
    }
    if (value.is_array()) throw_unexpected_array(value);
    throw_unexpected_type("an integer", value);
}

double to_double(const json& value) {
    if (value.is_int64() || value.is_uint64() || value.is_double()) return value.as<double>();
    if (value.is_string()) {
        if (const auto number = decimal_prefix(value.as_string_view())) return *number;
        throw_conversion_error(value, "floating point");
    }
    if (value.is_array()) throw_unexpected_array(value);
    throw_unexpected_type("a floating point number", value);
}

bool to_bool(const json& value) {
    if (value.is_bool()) return value.as<bool>();
    if (value.is_string() && !value.is_number()) {
        const auto text = value.as_string_view();
        if (text == "true") return true;
        if (text == "false") return false;
        throw_conversion_error(value, "boolean");
    }
    if (value.is_array()) throw_unexpected_array(value);
    throw_unexpected_type("a boolean", value);
}

}  // namespace detail

json_parser::json_parser(const std::string& document, selector select_values)
    : document_(std::make_unique<const detail::json_document>(
          detail::json_document{detail::parse_json(document)})),
      select_(select_values) {}

json_parser::~json_parser() = default;

detail::match_list json_parser::select(const std::string& path) const {
    detail::require_path(path);
    return select_(*document_, path);
}

std::string json_parser::query_text(const std::string& path) const {
    return detail::to_text(detail::single_value(select(path), path));
}

std::int64_t json_parser::query_int64(const std::string& path) const {
    return detail::to_int64(detail::single_value(select(path), path));
}

double json_parser::query_double(const std::string& path) const {
    return detail::to_double(detail::single_value(select(path), path));
}

bool json_parser::query_bool(const std::string& path) const {
    return detail::to_bool(detail::single_value(select(path), path));
}

bool json_parser::contains(const std::string& path) const {
    return !select(path).values.empty();
}

std::vector<std::string> json_parser::query_text_list(const std::string& path) const {
    const auto matches = select(path);
    std::vector<std::string> texts;
    for (const auto& value : matches.values.array_range()) {
        texts.push_back(detail::to_text(value));
    }
    return texts;
}

std::vector<std::int64_t> json_parser::query_int64_list(const std::string&) const {
    throw libparser::exceptions::not_implemented();
}

std::vector<double> json_parser::query_double_list(const std::string&) const {
    throw libparser::exceptions::not_implemented();
}

void json_parser::validate(const std::string&) const {
    throw libparser::exceptions::not_implemented();
}

}  // namespace corvanis::monitoring_modules::libjsonparser
