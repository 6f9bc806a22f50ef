#include "libjsonparser/jsonpath_parser.h"

#include <gtest/gtest.h>

#include <sstream>

#include "libjsonparser/errors.h"
#include "libparser/errors.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;
namespace lp = corvanis::monitoring_modules::libparser;
namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

const std::string empty = "libparser.error.empty_result";
const std::string unexpected_type = "libparser.error.unexpected_type";
const std::string conversion = "libjsonparser.error.conversion";
const std::string query_error = "libjsonparser.error.query";
const std::string unexpected_array = "libjsonparser.error.unexpected_array";
const std::string any_args = "(*)";      // compare the key only
const std::string not_compiled = "(!)";  // the key only, of a path that does not compile

template <class T>
std::string text_of(const T& value) {
    std::ostringstream os;
    os.precision(17);
    os << std::boolalpha << value;
    return os.str();
}

enum class type { text, int64, dbl, boolean };

// A query's value as text, or "key(arg|arg)" of what it threw; the same for a path
// text and a compiled path.
template <class Path>
std::string query(const jp::jsonpath_parser& p, type t, const Path& path) {
    try {
        switch (t) {
            case type::text:
                return p.query_text(path);
            case type::int64:
                return text_of(p.query_int64(path));
            case type::dbl:
                return text_of(p.query_double(path));
            case type::boolean:
                return text_of(p.query_bool(path));
        }
    } catch (const i18n::i18n_exception& e) {
        std::string out = e.message().key() + "(";
        const auto& args = e.message().args();
        for (std::size_t i = 0; i < args.size(); ++i) out += (i ? "|" : "") + args[i];
        return out + ")";
    }
    return "no such type";
}

const char* const payload = R"({
    "int": 42, "max": 9223372036854775807, "unsigned": 18446744073709551615,
    "dbl": 2.5, "whole": 3.0, "huge": 1e300, "bigint": 99999999999999999999,
    "str": "42abc", "blank": " \t17", "plus": "+5", "plus_minus": "+-5", "letters": "abc",
    "too_long": "99999999999999999999", "sci": "2.5e3 kPa", "half": "  -.5", "inf": "inf",
    "t": true, "f": false, "t_text": "true", "t_upper": "TRUE",
    "nul": null, "empty": "", "obj": {"b": 1, "a": [2]}, "eo": {}, "ea": [],
    "one": [5], "two": [1, 2], "items": [{"v": 1}, {"v": 2}],
    "inner": "{\"t\": 21.5, \"s\": \"x\"}", "num": "42", "bad": "{oops",
    "texts": [{"v": "3"}, {"v": "7"}, {"v": "12"}], "mixed": [{"v": "3"}, {"v": 11}]
})";

TEST(jsonpath_parser, typed_queries_by_path_text_and_by_compiled_path) {
    const struct {
        std::string path;
        type as;
        std::string expected;
    } cases[] = {
        // nothing, or only an empty value, selected
        {"$.missing", type::int64, empty + "($.missing)"},
        {"", type::text, empty + "()"},
        {"$.nul", type::text, empty + "($.nul)"},
        {"$.empty", type::text, empty + "($.empty)"},
        {"$.eo", type::text, empty + "($.eo)"},
        {"$.ea", type::int64, empty + "($.ea)"},
        // one value from an array of one; several values or an array value are refused
        {"$.one[*]", type::int64, "5"},
        {"$.two[*]", type::int64, unexpected_array + "([1,2])"},
        {"$.one", type::int64, unexpected_array + "([5])"},
        {"$.two", type::dbl, unexpected_array + "([1,2])"},
        {"$.two", type::boolean, unexpected_array + "([1,2])"},
        // integers
        {"$.int", type::int64, "42"},
        {"$.max", type::int64, "9223372036854775807"},
        {"$.unsigned", type::int64, conversion + "(18446744073709551615|integer)"},
        {"$.whole", type::int64, "3"},
        {"$.dbl", type::int64, conversion + "(2.5|integer)"},
        {"$.huge", type::int64, conversion + "(1e+300|integer)"},
        {"$.bigint", type::int64, conversion + "(99999999999999999999|integer)"},
        {"$.str", type::int64, "42"},
        {"$.blank", type::int64, "17"},
        {"$.plus", type::int64, "5"},
        {"$.sci", type::int64, "2"},
        {"$.plus_minus", type::int64, conversion + "(+-5|integer)"},
        {"$.letters", type::int64, conversion + "(abc|integer)"},
        {"$.too_long", type::int64, conversion + "(99999999999999999999|integer)"},
        {"$.t", type::int64, unexpected_type + "(Expected an integer, received a boolean.)"},
        {"$.obj", type::int64, unexpected_type + "(Expected an integer, received an object.)"},
        // floating point
        {"$.dbl", type::dbl, "2.5"},
        {"$.int", type::dbl, "42"},
        {"$.unsigned", type::dbl, "1.8446744073709552e+19"},
        {"$.bigint", type::dbl, "1e+20"},
        {"$.sci", type::dbl, "2500"},
        {"$.half", type::dbl, "-0.5"},
        {"$.letters", type::dbl, conversion + "(abc|floating point)"},
        {"$.inf", type::dbl, conversion + "(inf|floating point)"},
        {"$.plus_minus", type::dbl, conversion + "(+-5|floating point)"},
        {"$.f", type::dbl, unexpected_type + any_args},
        // booleans
        {"$.t", type::boolean, "true"},
        {"$.f", type::boolean, "false"},
        {"$.t_text", type::boolean, "true"},
        {"$.t_upper", type::boolean, conversion + "(TRUE|boolean)"},
        {"$.int", type::boolean, unexpected_type + "(Expected a boolean, received a number.)"},
        // text: strings as they are, anything else as compact JSON in the sender's order
        {"$.str", type::text, "42abc"},
        {"$.whole", type::text, "3.0"},
        {"$.bigint", type::text, "99999999999999999999"},
        {"$.obj", type::text, R"({"b":1,"a":[2]})"},
        {"$.one", type::text, "[5]"},
        {"length($.two)", type::int64, "2"},
        // eval() reads the JSON written in a string, and nothing else
        {"eval($.inner)", type::text, R"({"t":21.5,"s":"x"})"},
        {"eval($.num)", type::int64, "42"},
        {"$.texts[?(eval(@.v) > 10)].v", type::int64, "12"},
        {"eval($.inner).t", type::dbl, "21.5"},
        {"eval($.int)", type::text,
         query_error + "(eval() takes a string, not a number: Invalid type)"},
        {"eval($.inner.t)", type::text, query_error + any_args},
        {"eval($.bad)", type::text, query_error + any_args},
        // one wrong argument inside a filter fails the whole query rather than hiding it
        {"$.mixed[?(eval(@.v) > 10)].v", type::text, query_error + any_args},
        // paths that do not compile or name unknown functions
        {"$[", type::text, query_error + "(Syntax error at line 1 and column 3)"},
        {"temp", type::text, query_error + not_compiled},
        {"$.a[?(@.v >", type::text, query_error + not_compiled},
        {"nosuch($.int)", type::int64, query_error + not_compiled},
        {"eval($.str, $.int)", type::text, query_error + any_args},
    };
    const jp::jsonpath_parser parser(payload);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        auto got = query(parser, c.as, c.path);
        const jp::compiled_jsonpath compiled(c.path);
        EXPECT_EQ(compiled.path(), c.path);
        EXPECT_EQ(query(parser, c.as, compiled), got);
        // A path that does not compile says so before any query, with the query's words (and
        // one that compiles has nothing to say, or its query would fail here).
        if (!compiled.diagnosis().empty()) {
            EXPECT_EQ(got, query_error + "(" + compiled.diagnosis() + ")");
        }
        if (c.expected.ends_with(not_compiled)) {
            EXPECT_NE(compiled.diagnosis(), "");
            got = got.substr(0, got.find('(')) + not_compiled;
        }
        if (c.expected.ends_with(any_args)) got = got.substr(0, got.find('(')) + any_args;
        EXPECT_EQ(got, c.expected);
    }
}

TEST(jsonpath_parser, documents_that_are_not_one_json_value_are_refused) {
    for (const std::string document : {"", "   ", "{oops", "{} {}", "[1,", "\"open", "{'a': 1}"}) {
        SCOPED_TRACE(document);
        try {
            jp::make_jsonpath_parser(document);
            ADD_FAILURE() << "no exception";
        } catch (const jp::exceptions::parse_error& e) {
            EXPECT_EQ(e.message().key(), "libjsonparser.error.parse");
            ASSERT_EQ(e.message().args().size(), 1U);
            EXPECT_NE(e.message().args()[0].find("line"), std::string::npos);
        }
    }
    EXPECT_EQ(jp::make_jsonpath_parser("17")->query_int64("$"), 17);
}

TEST(jsonpath_parser, the_further_operations_of_the_interface) {
    const auto parser = jp::make_jsonpath_parser(payload);
    EXPECT_TRUE(parser->contains("$.nul"));
    EXPECT_FALSE(parser->contains("$.missing"));
    EXPECT_THROW(parser->contains("$["), jp::exceptions::query_error);
    EXPECT_EQ(parser->query_text_list("$.items[*].v"), (std::vector<std::string>{"1", "2"}));
    EXPECT_TRUE(parser->query_text_list("$.missing").empty());
    EXPECT_THROW(parser->query_int64_list("$.two[*]"), lp::exceptions::not_implemented);
}

}  // namespace
