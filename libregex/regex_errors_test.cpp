#include <gtest/gtest.h>

#include "liblog/memory_logger.h"
#include "libregex/regex_errors.h"

namespace rx = corvanis::monitoring_modules::libregex;
namespace lg = corvanis::monitoring_modules::liblog;

namespace {

// Runs the translation and returns what it threw.
rx::exceptions::regex_invalid translate(const std::regex_error& error, const std::string& pattern,
                                        lg::log_interface& log) {
    try {
        rx::translate_regex_error(error, pattern, log);
    } catch (const rx::exceptions::regex_invalid& e) {
        return e;
    }
    ADD_FAILURE() << "no regex_invalid thrown";
    return rx::exceptions::regex_invalid(rx::messages::invalid()(pattern));
}

TEST(translate_regex_error, every_engine_code_maps_to_its_message) {
    const struct {
        int code;
        const char* key;
    } table[] = {
        {0, "libregex.error.character_class"}, {1, "libregex.error.character_class"},
        {2, "libregex.error.escape_sequence"}, {3, "libregex.error.backreference"},
        {4, "libregex.error.brackets"},        {5, "libregex.error.parentheses"},
        {6, "libregex.error.braces"},          {7, "libregex.error.braces_content"},
        {8, "libregex.error.character_range"}, {9, "libregex.error.invalid"},
        {10, "libregex.error.repetition"},     {11, "libregex.error.invalid"},
        {12, "libregex.error.invalid"},        {13, "libregex.error.invalid"},
        {15, "libregex.error.invalid"},
    };
    lg::null_logger log;
    for (const auto& row : table) {
        const std::regex_error error(static_cast<std::regex_constants::error_type>(row.code));
        const auto thrown = translate(error, "p(", log);
        EXPECT_EQ(thrown.message().key(), row.key) << "code " << row.code;
        EXPECT_EQ(thrown.message().args(), std::vector<std::string>{"p("}) << "code " << row.code;
        EXPECT_NE(std::string(thrown.what()).find("\"p(\""), std::string::npos) << row.code;
    }
}

TEST(translate_regex_error, the_log_line_carries_the_engine_text_the_message_does_not) {
    lg::memory_logger log;
    const std::regex_error error(std::regex_constants::error_brace);
    const auto thrown = translate(error, "a{2,", log);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].first, lg::severity::error);
    EXPECT_EQ(lines[0].second,
              std::string("Regex error: ") + error.what() + ". Pattern used: a{2,");
    EXPECT_EQ(std::string(thrown.what()).find(error.what()), std::string::npos);
}

}  // namespace
