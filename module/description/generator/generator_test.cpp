#include <gtest/gtest.h>

#include <algorithm>

#include <jsoncons/json.hpp>

#include "module/description/generator/document_builder.h"

namespace corvanis::monitoring_modules::mqtt::description {
namespace {

using entries = std::vector<std::pair<std::string, std::string>>;

// The least a document holds, with one channel template to expand.
const std::string skeleton = R"({
  "Revision": 1, "MetaData": {"Name": "m", "Display": "{text}"},
  "Sensors": {}, "Checks": {}, "Sections": {}, "Lookups": {},
  "Groups": {"g": {"Name": "g", "Items": [{"$channels": {"First": 1, "Last": 2, "Condition": "up",
    "Selection": {"Name": "ch{cur}", "Display": "{text}", "Help": "{text}",
                  "Selection": {"Options": [{"Value": "up", "Display": "{text}"}]}},
    "Settings": [{"Name": "ch{cur}_path", "Display": "{text}", "Help": "{text}", "Text": {}}]}}]}}
})";

// clang-format off
const entries english = {
    {"module.display", "M"}, {"g.ch{cur}.display", "Channel #{cur}"},
    {"g.ch{cur}.help", "Adds a channel."}, {"g.ch{cur}.option.up", "On"},
    {"g.ch{cur}_path.display", "Path #{cur}"}, {"g.ch{cur}_path.help", "Where {cur} reads."}};
// clang-format on

entries german_of(const entries& source) {
    entries out;
    for (const auto& [key, text] : source) out.emplace_back(key, "DE " + text);
    return out;
}

std::string to_json(const entries& source) {
    jsoncons::ojson out(jsoncons::json_object_arg);
    for (const auto& [key, text] : source) out.insert_or_assign(key, text);
    return out.to_string();
}

std::string build(const entries& en, const entries& de, error_list& errors) {
    build_input input{skeleton, {}, {"English", "German"}, {}, 8};
    input.catalogues.push_back(parse_catalogue("English", to_json(en), errors));
    input.catalogues.push_back(parse_catalogue("German", to_json(de), errors));
    const auto document = build_document(input, errors);
    EXPECT_EQ(document.empty(), !errors.empty());
    return document;
}

// The faults a catalogue edit most often brings; the rest would show in the shipped document.
TEST(generator, a_lost_channel_marker_or_a_missing_text_is_refused_by_name) {
    error_list clean;  // the unchanged data builds, with its 8 keys once expanded
    EXPECT_FALSE(build(english, german_of(english), clean).empty())
        << ::testing::PrintToString(clean);
    auto lost_marker = german_of(english);
    lost_marker[4].second = "Pfad";  // g.ch{cur}_path.display
    auto missing = english;
    missing.erase(missing.begin() + 3);  // g.ch{cur}.option.up
    const std::tuple<entries, entries, std::string> rows[] = {
        {english, lost_marker, "\"{cur}\""},
        {missing, german_of(english), "no English text for \"g.ch2.option.up\""}};
    for (const auto& [en, de, finding] : rows) {
        error_list errors;
        build(en, de, errors);
        EXPECT_TRUE(std::any_of(errors.begin(), errors.end(), [&](const std::string& e) {
            return e.find(finding) != std::string::npos;
        })) << ::testing::PrintToString(errors);
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
