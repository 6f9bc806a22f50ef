#include "libjsonparser/jsonpointer_parser.h"

#include <algorithm>
#include <charconv>

#include <jsoncons_ext/jsonpointer/jsonpointer.hpp>

#include "libjsonparser/detail/json_document.h"
#include "libjsonparser/errors.h"

namespace corvanis::monitoring_modules::libjsonparser {

namespace {

using detail::json;

bool equal_ignoring_case(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                              [&](char x, char y) { return lower(x) == lower(y); });
}

// The child that `token` names, or nullptr. Array indexes are digits without leading zeros.
const json* child(const json& parent, const std::string& token, bool ignore_case) {
    if (parent.is_object()) {
        const auto exact = parent.find(token);
        if (exact != parent.object_range().end()) return &exact->value();
        if (ignore_case) {
            for (const auto& member : parent.object_range()) {
                if (equal_ignoring_case(member.key(), token)) return &member.value();
            }
        }
        return nullptr;
    }
    if (parent.is_array()) {
        if (token.empty() || (token.size() > 1 && token.front() == '0')) return nullptr;
        std::size_t index = 0;
        const auto [end, ec] = std::from_chars(token.data(), token.data() + token.size(), index);
        if (ec != std::errc{} || end != token.data() + token.size() || index >= parent.size()) {
            return nullptr;
        }
        return &parent[index];
    }
    return nullptr;
}

detail::match_list walk(const json& root, const std::string& path, bool ignore_case) {
    std::error_code ec;
    const auto pointer = jsoncons::jsonpointer::json_pointer::parse(path, ec);
    if (ec) throw exceptions::query_error(messages::query()(ec.message()));
    const json* current = &root;
    for (const auto& token : pointer) {
        current = child(*current, token, ignore_case);
        if (current == nullptr) return {};
    }
    detail::match_list matches;
    matches.values.push_back(*current);
    return matches;
}

detail::match_list select_exact(const detail::json_document& document, const std::string& path) {
    return walk(document.root, path, false);
}

detail::match_list select_ignoring_case(const detail::json_document& document,
                                        const std::string& path) {
    return walk(document.root, path, true);
}

}  // namespace

jsonpointer_parser::jsonpointer_parser(const std::string& document)
    : json_parser(document, &select_exact) {}

case_insensitive_jsonpointer_parser::case_insensitive_jsonpointer_parser(
    const std::string& document)
    : json_parser(document, &select_ignoring_case) {}

}  // namespace corvanis::monitoring_modules::libjsonparser
