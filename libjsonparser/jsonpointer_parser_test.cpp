#include "libjsonparser/jsonpointer_parser.h"

#include <gtest/gtest.h>

#include "libjsonparser/errors.h"
#include "libparser/errors.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;
namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

// The whole number a query gave, or the key of what it threw.
template <class Parser>
std::string number_or_key(const Parser& parser, const std::string& path) {
    try {
        return std::to_string(parser.query_int64(path));
    } catch (const i18n::i18n_exception& e) {
        return e.message().key();
    }
}

// Only selection differs from the JSONPath parser; its conversions, tested there, are shared.
TEST(jsonpointer_parser, exact_and_case_insensitive_selection_table) {
    const char* const empty = "libparser.error.empty_result";
    const char* const query = "libjsonparser.error.query";
    const char* const array = "libjsonparser.error.unexpected_array";
    const struct {
        const char* path;
        const char* exact;
        const char* ignoring_case;
    } cases[] = {
        // clang-format off
        {"/name", "2", "2"},        {"/NAME", empty, "1"},     {"/temp/value", empty, "21"},
        {"/a~1b", "3", "3"},        {"/m~0n", "4", "4"},       {"/list/2/0", "30", "30"},
        {"/list/01", empty, empty}, {"/list/3", empty, empty}, {"/list/-", empty, empty},
        {"/", "5", "5"},            {"name", query, query},    {"/m~2n", query, query},
        {"/list", array, array},
    };
    // clang-format on
    const char* const payload = R"({"Name": 1, "name": 2, "Temp": {"Value": "21 C"},
        "a/b": 3, "m~n": 4, "list": [10, 20, [30]], "": 5})";
    const jp::jsonpointer_parser exact(payload);
    const jp::case_insensitive_jsonpointer_parser ignoring_case(payload);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(number_or_key(exact, c.path), c.exact);
        EXPECT_EQ(number_or_key(ignoring_case, c.path), c.ignoring_case);
    }
}

}  // namespace
