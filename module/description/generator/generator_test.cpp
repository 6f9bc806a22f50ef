#include <gtest/gtest.h>

#include <functional>

#include <jsoncons/json.hpp>

#include "module/description/generator/document_builder.h"

namespace corvanis::monitoring_modules::mqtt::description {
namespace {

using entries = std::vector<std::pair<std::string, std::string>>;

const std::string skeleton = R"({
  "Revision": 1,
  "MetaData": {"Name": "m", "Display": "{text}"},
  "Sensors": {"s": {"Name": "s", "Display": "{text}", "RequiredChecks": ["c"],
                    "Settings": {"Sections": ["sec"]}}},
  "Checks": {"c": {"Name": "c", "Sections": ["sec"]}},
  "Sections": {"sec": {"Name": "sec", "Display": "{text}", "Groups": ["g"]}},
  "Groups": {"g": {"Name": "g", "Items": [
    {"Name": "on", "Display": "{text}", "Help": "{text}", "Default": "no",
     "Selection": {"Options": [{"Value": "no", "Display": "{text}"}, {"Value": "yes", "Display": "{text}"}]}},
    {"$channels": {"First": 1, "Last": 3, "Condition": "up",
      "Selection": {"Name": "ch{cur}", "Display": "{text}", "Help": "{text}", "Default": "down",
                    "Selection": {"Options": [{"Value": "down", "Display": "{text}"},
                                             {"Value": "up", "Display": "{text}"}]}},
      "Settings": [{"Name": "ch{cur}_path", "Display": "{text}", "Help": "{text}", "Text": {}}]}}]}},
  "Lookups": {"l": {"Name": "l", "LookupValues": [{"Name": "ok", "Display": "{text}", "Value": 0}]}}
})";

// clang-format off
const entries english = {
    {"module.display", "M"}, {"error.x", "Failed: %0:s"}, {"re.error.y", "Pattern %0:s"},
    {"s.display", "S"}, {"lookup.l.0", "Fine"}, {"sec.display", "Section"},
    {"g.on.display", "On"}, {"g.on.help", "Turns it on."}, {"g.on.option.no", "No"},
    {"g.on.option.yes", "Yes"}, {"g.ch{cur}.display", "Channel #{cur}"},
    {"g.ch{cur}.help", "Adds a channel."}, {"g.ch{cur}.option.down", "Off"},
    {"g.ch{cur}.option.up", "On"}, {"g.ch{cur}_path.display", "Path #{cur}"},
    {"g.ch{cur}_path.help", "Where channel {cur} reads."}};
// clang-format on

// The German file: English's texts less the English-only keys, marked so they differ.
entries german_of(const entries& source) {
    entries out;
    for (const auto& [key, text] : source)
        if (!key.starts_with("re.error.") && !key.starts_with("lookup."))
            out.emplace_back(key, "DE " + text);
    return out;
}

// Written by hand so that a test can repeat a key.
std::string to_json(const entries& source) {
    std::string out = "{";
    for (const auto& [key, text] : source)
        out += (out.size() > 1 ? ",\n" : "\n") + jsoncons::json(key).to_string() + ": " +
               jsoncons::json(text).to_string();
    return out + "\n}";
}

struct case_data {
    entries english = description::english;
    entries german = german_of(description::english);
    std::string skeleton = description::skeleton;
    std::optional<std::size_t> english_keys = 24;
    std::string extra_language;
};

std::string build(const case_data& data, error_list& errors) {
    build_input input{
        data.skeleton, {}, {"English", "German"}, {"re.error.", "lookup."}, data.english_keys};
    input.catalogues.push_back(parse_catalogue("English", to_json(data.english), errors));
    input.catalogues.push_back(parse_catalogue("German", to_json(data.german), errors));
    if (!data.extra_language.empty())
        input.catalogues.push_back(parse_catalogue(data.extra_language, "{}", errors));
    const auto document = build_document(input, errors);
    EXPECT_EQ(document.empty(), !errors.empty());
    return document;
}

TEST(generator, inconsistent_data_is_refused_with_a_finding_that_names_it) {
    error_list clean;  // the unchanged data builds, with its 24 keys once expanded
    EXPECT_FALSE(build(case_data{}, clean).empty()) << ::testing::PrintToString(clean);
    struct row {
        const char* fault;
        std::function<void(case_data&)> change;
        std::string finding;
    };
    const auto set = [](entries& list, const std::string& key, const std::string& text) {
        for (auto& [k, t] : list)
            if (k == key) t = text;
    };
    const auto drop = [](entries& list, const std::string& key) {
        std::erase_if(list, [&](const auto& e) { return e.first == key; });
    };
    // Faults the shipped document's own tests would also catch (lost placeholders, missing or
    // empty translations, key counts) are left to them.
    const std::vector<row> rows = {
        {"translation drops the channel marker",
         [&](case_data& d) { set(d.german, "g.ch{cur}_path.display", "Pfad"); }, "\"{cur}\""},
        {"lone percent sign", [&](case_data& d) { set(d.english, "g.on.help", "100% on."); },
         "English: \"g.on.help\" has a '%'"},
        {"duplicate key", [](case_data& d) { d.english.emplace_back("s.display", "S again"); },
         "duplicate key \"s.display\""},
        {"document needs a missing text", [&](case_data& d) { drop(d.english, "g.on.option.yes"); },
         "no English text for \"g.on.option.yes\""},
        {"condition that is no option",
         [](case_data& d) {
             d.skeleton =
                 replace_all(d.skeleton, R"("Condition": "up")", R"("Condition": "maybe")");
         },
         "\"Condition\" is not an option of \"ch2\""},
        {"undefined required check",
         [](case_data& d) {
             d.skeleton = replace_all(d.skeleton, R"("RequiredChecks": ["c"])",
                                      R"("RequiredChecks": ["d"])");
         },
         "sensor s: \"d\" is not defined"},
        {"unknown language", [](case_data& d) { d.extra_language = "Klingon"; },
         "Klingon: not one of the document's languages"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.fault);
        case_data data;
        r.change(data);
        error_list errors;
        build(data, errors);
        const bool found = std::any_of(errors.begin(), errors.end(), [&](const std::string& e) {
            return e.find(r.finding) != std::string::npos;
        });
        EXPECT_TRUE(found) << ::testing::PrintToString(errors);
    }
}

TEST(generator, placeholders_follow_the_formatter_grammar) {
    using list = std::vector<std::string>;
    const std::vector<std::pair<std::string, std::optional<list>>> rows = {
        {"plain", list{}},        {"%1:s-%0:s and %0:s", list{"%0:s", "%0:s", "%1:s"}},
        {"100%% sure", list{}},   {"%%0:s", list{}},
        {"%12:s", list{"%12:s"}}, {"100%", std::nullopt},
        {"%0:d", std::nullopt},   {"%:s", std::nullopt},
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(placeholders(text), expected) << text;
}

// The raw string pieces of a generated source, in order.
std::vector<std::string> pieces_of(const std::string& source) {
    std::vector<std::string> out;
    for (auto pos = source.find("R\""); pos != std::string::npos; pos = source.find("R\"", pos)) {
        const auto open = source.find('(', pos);
        const std::string close = ")" + source.substr(pos + 2, open - pos - 2) + "\"sv";
        const auto end = source.find(close, open);
        out.push_back(source.substr(open + 1, end - open - 1));
        pos = end + close.size();
    }
    return out;
}

TEST(generator, generated_source_keeps_the_document_byte_for_byte) {
    std::string document = "{\"a\":\")doc\\\"\"}";
    while (document.size() < 30000) document += "\xd0\x96\xe6\x97\xa5)doc\"x";
    const auto pieces = pieces_of(render_cpp_source(document));
    ASSERT_GT(pieces.size(), 1u);
    std::string joined;
    for (const auto& piece : pieces) {
        EXPECT_NE(static_cast<unsigned char>(piece.front()) & 0xC0, 0x80)
            << "split inside a character";
        joined += piece;
    }
    EXPECT_EQ(joined, document);
}

}  // namespace
}  // namespace corvanis::monitoring_modules::mqtt::description
