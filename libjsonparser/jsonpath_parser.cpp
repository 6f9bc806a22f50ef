// The library's only translation unit with jsoncons JSONPath: it is costly to compile.
#include "libjsonparser/jsonpath_parser.h"

#include <optional>

#include <jsoncons_ext/jsonpath/jsonpath.hpp>

#include "libjsonparser/detail/json_document.h"
#include "libjsonparser/errors.h"

namespace corvanis::monitoring_modules::libjsonparser {

namespace {

namespace jsonpath = jsoncons::jsonpath;
using detail::json;
using expression = jsonpath::jsonpath_expression<json>;

// Thrown rather than reported through the error code: jsoncons turns a function's error
// code into "no match", and the user would never learn why the field is empty.
json eval(jsoncons::span<const jsonpath::parameter<json>> params, std::error_code&) {
    const json& argument = params[0].value();
    if (!argument.is_string() || argument.is_number()) {
        throw jsonpath::jsonpath_error(
            jsonpath::jsonpath_errc::invalid_type,
            std::string("eval() takes a string, not ") + detail::kind_of(argument));
    }
    try {
        return json::parse(argument.as_string_view());
    } catch (const jsoncons::ser_error& e) {
        throw jsonpath::jsonpath_error(jsonpath::jsonpath_errc::argument_parse_error,
                                       std::string("eval(): ") + e.what());
    }
}

const jsonpath::custom_functions<json>& custom_json_functions() {
    static const auto functions = [] {
        jsonpath::custom_functions<json> set;
        set.register_function("eval", 1, &eval);
        return set;
    }();
    return functions;
}

[[noreturn]] void throw_query_error(const std::string& diagnosis) {
    throw exceptions::query_error(messages::query()(diagnosis));
}

}  // namespace

struct compiled_jsonpath::impl {
    std::string path;
    std::optional<expression> compiled;  // absent for an empty path or a compile error
    std::string diagnosis;

    explicit impl(std::string text) : path(std::move(text)) {
        if (path.empty()) return;
        try {
            compiled.emplace(jsonpath::make_expression<json>(path, custom_json_functions()));
        } catch (const jsoncons::json_exception& e) {
            diagnosis = e.what();
        }
    }

    detail::match_list select(const json& root) const {
        detail::require_path(path);
        if (!compiled) throw_query_error(diagnosis);
        try {
            return {compiled->evaluate(root)};
        } catch (const jsoncons::json_exception& e) {
            throw_query_error(e.what());
        }
    }
};

compiled_jsonpath::compiled_jsonpath(std::string path)
    : impl_(std::make_shared<const impl>(std::move(path))) {}

const std::string& compiled_jsonpath::path() const noexcept {
    return impl_->path;
}

const std::string& compiled_jsonpath::diagnosis() const noexcept {
    return impl_->diagnosis;
}

jsonpath_parser::jsonpath_parser(const std::string& document)
    : json_parser(document, &select_by_jsonpath) {}

detail::match_list jsonpath_parser::select_by_jsonpath(const detail::json_document& document,
                                                       const std::string& path) {
    return compiled_jsonpath::impl(path).select(document.root);
}

std::string jsonpath_parser::query_text(const compiled_jsonpath& path) const {
    return detail::to_text(detail::single_value(path.impl_->select(document().root), path.path()));
}

std::int64_t jsonpath_parser::query_int64(const compiled_jsonpath& path) const {
    return detail::to_int64(detail::single_value(path.impl_->select(document().root), path.path()));
}

double jsonpath_parser::query_double(const compiled_jsonpath& path) const {
    return detail::to_double(
        detail::single_value(path.impl_->select(document().root), path.path()));
}

bool jsonpath_parser::query_bool(const compiled_jsonpath& path) const {
    return detail::to_bool(detail::single_value(path.impl_->select(document().root), path.path()));
}

std::unique_ptr<libparser::parser_interface> make_jsonpath_parser(const std::string& document) {
    return std::make_unique<jsonpath_parser>(document);
}

}  // namespace corvanis::monitoring_modules::libjsonparser
