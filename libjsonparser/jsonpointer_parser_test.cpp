#include "libjsonparser/jsonpointer_parser.h"

#include <gtest/gtest.h>

#include "libjsonparser/errors.h"
#include "libparser/errors.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;
namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

// The text a query gave, or the key of what it threw.
template <class Parser>
std::string text_or_key(const Parser& parser, const std::string& path) {
    try {
        return parser.query_text(path);
    } catch (const i18n::i18n_exception& e) {
        return e.message().key();
    }
}

const char* const payload = R"({
    "Name": "first", "name": "exact", "Temp": {"Value": 21},
    "a/b": 1, "m~n": 2, "list": [10, 20, [30]], "": "blank key"
})";

// Only selection differs from the JSONPath parser: conversions and document parsing are
// shared, and tested there.
TEST(jsonpointer_parser, exact_and_case_insensitive_selection_table) {
    struct pointer_case {
        const char* path;
        const char* exact;
        const char* ignoring_case;
    };
    const char* const empty = "libparser.error.empty_result";
    const char* const query = "libjsonparser.error.query";
    const std::vector<pointer_case> cases = {
        {"/name", "exact", "exact"},
        {"/NAME", empty, "first"},
        {"/temp/value", empty, "21"},
        {"/a~1b", "1", "1"},
        {"/m~0n", "2", "2"},
        {"/list/2", "[30]", "[30]"},
        {"/list/2/0", "30", "30"},
        {"/list/01", empty, empty},
        {"/list/3", empty, empty},
        {"/list/-", empty, empty},
        {"/list/x", empty, empty},
        {"/Temp/Value/deeper", empty, empty},
        {"/", "blank key", "blank key"},
        {"", empty, empty},
        {"name", query, query},
        {"/m~2n", query, query},
    };
    const jp::jsonpointer_parser exact(payload);
    const jp::case_insensitive_jsonpointer_parser ignoring_case(payload);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(text_or_key(exact, c.path), c.exact);
        EXPECT_EQ(text_or_key(ignoring_case, c.path), c.ignoring_case);
    }
}

}  // namespace
