#include "libjsonparser/jsonpath_parser.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <sstream>

#include "libjsonparser/errors.h"
#include "libparser/errors.h"

namespace jp = corvanis::monitoring_modules::libjsonparser;
namespace lp = corvanis::monitoring_modules::libparser;
namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

const std::string empty_result = "libparser.error.empty_result";
const std::string unexpected_type = "libparser.error.unexpected_type";
const std::string conversion = "libjsonparser.error.conversion";
const std::string query_error = "libjsonparser.error.query";
const std::string unexpected_array = "libjsonparser.error.unexpected_array";

// What a query gave: its value as text, or the key and arguments of what it threw.
struct outcome {
    std::string value;
    std::string key;
    std::vector<std::string> args;
    bool operator==(const outcome&) const = default;
};

std::ostream& operator<<(std::ostream& os, const outcome& o) {
    if (o.key.empty()) return os << "value " << o.value;
    os << o.key << "(";
    for (const auto& a : o.args) os << "'" << a << "' ";
    return os << ")";
}

template <class T>
std::string as_text(const T& value) {
    std::ostringstream os;
    os.precision(17);
    os << std::boolalpha << value;
    return os.str();
}

template <class F>
outcome run(F&& query) {
    try {
        return {as_text(query()), {}, {}};
    } catch (const i18n::i18n_exception& e) {
        return {{}, e.message().key(), e.message().args()};
    }
}

enum class type { text, int64, dbl, boolean };

// The same query through a path text or a compiled path.
template <class Path>
outcome query(const jp::jsonpath_parser& p, type t, const Path& path) {
    switch (t) {
        case type::text:
            return run([&] { return p.query_text(path); });
        case type::int64:
            return run([&] { return p.query_int64(path); });
        case type::dbl:
            return run([&] { return p.query_double(path); });
        case type::boolean:
            return run([&] { return p.query_bool(path); });
    }
    return {};
}

outcome value(std::string text) {
    return {std::move(text), {}, {}};
}
outcome error(std::string key, std::vector<std::string> args = {}) {
    return {{}, std::move(key), std::move(args)};
}

struct query_case {
    std::string path;
    type as;
    outcome expected;
    bool check_args = true;  // false: only the key is compared
};

const char* const payload = R"({
    "int": 42, "neg": -7, "max": 9223372036854775807, "unsigned": 18446744073709551615,
    "dbl": 2.5, "whole": 3.0, "huge": 1e300, "bigint": 99999999999999999999,
    "str": "42abc", "blank": " \t17", "plus": "+5", "plus_minus": "+-5", "letters": "abc",
    "too_long": "99999999999999999999", "sci": "2.5e3 kPa", "half": "  -.5", "inf": "inf",
    "t": true, "f": false, "t_text": "true", "t_upper": "TRUE",
    "nul": null, "empty": "", "obj": {"b": 1, "a": [2]}, "eo": {}, "ea": [],
    "one": [5], "two": [1, 2], "items": [{"v": 1}, {"v": 2}]
})";

std::vector<query_case> query_table() {
    const auto max = std::to_string(std::numeric_limits<std::int64_t>::max());
    return {
        // nothing, or only an empty value, selected
        {"$.missing", type::int64, error(empty_result, {"$.missing"})},
        {"$.int.deeper", type::text, error(empty_result, {"$.int.deeper"})},
        {"$.items[5].v", type::dbl, error(empty_result, {"$.items[5].v"})},
        {"", type::text, error(empty_result, {""})},
        {"$.nul", type::text, error(empty_result, {"$.nul"})},
        {"$.empty", type::text, error(empty_result, {"$.empty"})},
        {"$.eo", type::text, error(empty_result, {"$.eo"})},
        {"$.ea", type::int64, error(empty_result, {"$.ea"})},
        {"$.items[?(@.v > 9)].v", type::int64, error(empty_result, {"$.items[?(@.v > 9)].v"})},
        // one value from an array of one; several values or an array value are refused
        {"$.one[*]", type::int64, value("5")},
        {"$.items[?(@.v > 1)].v", type::int64, value("2")},
        {"$.two[*]", type::int64, error(unexpected_array, {"[1,2]"})},
        {"$.items[*].v", type::text, error(unexpected_array, {"[1,2]"})},
        {"$.one", type::int64, error(unexpected_array, {"[5]"})},
        {"$.two", type::dbl, error(unexpected_array, {"[1,2]"})},
        {"$.two", type::boolean, error(unexpected_array, {"[1,2]"})},
        // integers
        {"$.int", type::int64, value("42")},
        {"$.neg", type::int64, value("-7")},
        {"$.max", type::int64, value(max)},
        {"$.unsigned", type::int64, error(conversion, {"18446744073709551615", "integer"})},
        {"$.whole", type::int64, value("3")},
        {"$.dbl", type::int64, error(conversion, {"2.5", "integer"})},
        {"$.huge", type::int64, error(conversion, {"1e+300", "integer"})},
        {"$.bigint", type::int64, error(conversion, {"99999999999999999999", "integer"})},
        {"$.str", type::int64, value("42")},
        {"$.blank", type::int64, value("17")},
        {"$.plus", type::int64, value("5")},
        {"$.sci", type::int64, value("2")},
        {"$.plus_minus", type::int64, error(conversion, {"+-5", "integer"})},
        {"$.letters", type::int64, error(conversion, {"abc", "integer"})},
        {"$.too_long", type::int64, error(conversion, {"99999999999999999999", "integer"})},
        {"$.t", type::int64, error(unexpected_type, {"Expected an integer, received a boolean."})},
        {"$.obj", type::int64,
         error(unexpected_type, {"Expected an integer, received an object."})},
        // floating point
        {"$.dbl", type::dbl, value("2.5")},
        {"$.int", type::dbl, value("42")},
        {"$.unsigned", type::dbl, value("1.8446744073709552e+19")},
        {"$.bigint", type::dbl, value("1e+20")},
        {"$.str", type::dbl, value("42")},
        {"$.sci", type::dbl, value("2500")},
        {"$.half", type::dbl, value("-0.5")},
        {"$.letters", type::dbl, error(conversion, {"abc", "floating point"})},
        {"$.inf", type::dbl, error(conversion, {"inf", "floating point"})},
        {"$.plus_minus", type::dbl, error(conversion, {"+-5", "floating point"})},
        {"$.f", type::dbl, error(unexpected_type), false},
        // booleans
        {"$.t", type::boolean, value("true")},
        {"$.f", type::boolean, value("false")},
        {"$.t_text", type::boolean, value("true")},
        {"$.t_upper", type::boolean, error(conversion, {"TRUE", "boolean"})},
        {"$.int", type::boolean,
         error(unexpected_type, {"Expected a boolean, received a number."})},
        // text: strings as they are, anything else as compact JSON in the sender's order
        {"$.str", type::text, value("42abc")},
        {"$.int", type::text, value("42")},
        {"$.whole", type::text, value("3.0")},
        {"$.bigint", type::text, value("99999999999999999999")},
        {"$.t", type::text, value("true")},
        {"$.obj", type::text, value(R"({"b":1,"a":[2]})")},
        {"$.one", type::text, value("[5]")},
        {"length($.two)", type::int64, value("2")},
        // paths that do not compile or name unknown functions
        {"$[", type::text, error(query_error, {"Syntax error at line 1 and column 3"})},
        {"$.int +", type::int64, error(query_error), false},
        {"nosuch($.int)", type::int64, error(query_error), false},
        {"eval($.str, $.int)", type::text, error(query_error), false},
    };
}

TEST(jsonpath_parser, typed_queries_table) {
    const jp::jsonpath_parser parser(payload);
    for (const auto& c : query_table()) {
        SCOPED_TRACE(c.path);
        auto got = query(parser, c.as, c.path);
        if (!c.check_args) got.args.clear();
        EXPECT_EQ(got, c.expected);
    }
}

TEST(jsonpath_parser, compiled_paths_give_the_same_values_and_errors_as_path_texts) {
    const jp::jsonpath_parser parser(payload);
    for (const auto& c : query_table()) {
        SCOPED_TRACE(c.path);
        const jp::compiled_jsonpath compiled(c.path);
        EXPECT_EQ(compiled.path(), c.path);
        EXPECT_EQ(query(parser, c.as, compiled), query(parser, c.as, c.path));
    }
}

TEST(jsonpath_parser, a_compiled_path_serves_many_documents) {
    const jp::compiled_jsonpath path("$.v");
    EXPECT_EQ(jp::jsonpath_parser(R"({"v": 1})").query_int64(path), 1);
    EXPECT_EQ(jp::jsonpath_parser(R"({"v": "2x"})").query_int64(path), 2);
    EXPECT_THROW(jp::jsonpath_parser(R"({"w": 3})").query_int64(path),
                 lp::exceptions::empty_result);
}

const char* const eval_payload = R"({
    "inner": "{\"t\": 21.5, \"s\": \"x\"}", "num": "42", "bad": "{oops", "n": 5,
    "items": [{"v": "3"}, {"v": "7"}, {"v": "12"}], "mixed": [{"v": "3"}, {"v": 11}]
})";

TEST(jsonpath_parser, eval_reads_the_json_written_in_a_string) {
    const jp::jsonpath_parser parser(eval_payload);
    const std::vector<query_case> cases = {
        {"eval($.inner)", type::text, value(R"({"t":21.5,"s":"x"})")},
        {"eval($.num)", type::int64, value("42")},
        {"eval($.num)", type::text, value("42")},
        {"$.items[?(eval(@.v) > 10)].v", type::int64, value("12")},
        {"eval($.n)", type::text,
         error(query_error, {"eval() takes a string, not a number: Invalid type"})},
        {"eval($.inner.t)", type::text, error(query_error), false},
        {"eval($.bad)", type::text, error(query_error), false},
        // one wrong argument inside a filter fails the whole query rather than hiding it
        {"$.mixed[?(eval(@.v) > 10)].v", type::text, error(query_error), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        auto got = query(parser, c.as, c.path);
        if (!c.check_args) got.args.clear();
        EXPECT_EQ(got, c.expected);
    }
    EXPECT_EQ(parser.query_text_list("$.items[?(eval(@.v) > 5)].v"),
              (std::vector<std::string>{"7", "12"}));
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
    EXPECT_THROW(parser->query_double_list("$.two[*]"), lp::exceptions::not_implemented);
    EXPECT_THROW(parser->validate("{}"), lp::exceptions::not_implemented);
}

TEST(libjsonparser_catalogue, keys_are_unique_prefixed_and_take_their_arguments) {
    const std::map<std::string, std::size_t> arity = {
        {"libjsonparser.error.conversion", 2},     {"libjsonparser.error.parse", 1},
        {"libjsonparser.error.query", 1},          {"libjsonparser.error.unexpected_array", 1},
        {"libjsonparser.error.invalid_schema", 1}, {"libjsonparser.error.validation", 1},
    };
    std::set<std::string> keys;
    for (const auto* msg : jp::messages::all()) {
        SCOPED_TRACE(msg->key());
        EXPECT_TRUE(keys.insert(msg->key()).second);
        ASSERT_EQ(arity.count(msg->key()), 1U);
        const std::vector<std::string> args(arity.at(msg->key()), "x");
        EXPECT_NO_THROW(msg->with_args(args).render());
        EXPECT_ANY_THROW(msg->with_args({args.begin(), args.end() - 1}).render());
    }
    EXPECT_EQ(keys.size(), arity.size());
}

}  // namespace
