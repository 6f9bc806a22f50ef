#include <gtest/gtest.h>

#include "liblog/memory_logger.h"
#include "libregex/regex_errors.h"

namespace rx = corvanis::monitoring_modules::libregex;
namespace lg = corvanis::monitoring_modules::liblog;

namespace {

// The engine's text goes to the log only: the host's message carries nothing but the pattern.
TEST(translate_regex_error, every_engine_code_maps_to_its_message_and_logs_the_engine_text) {
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
    for (const auto& row : table) {
        SCOPED_TRACE(row.code);
        const std::regex_error error(static_cast<std::regex_constants::error_type>(row.code));
        lg::memory_logger log;
        try {
            rx::translate_regex_error(error, "p(", log);
            ADD_FAILURE() << "no regex_invalid thrown";
        } catch (const rx::exceptions::regex_invalid& e) {
            EXPECT_EQ(e.message().key(), row.key);
            EXPECT_EQ(e.message().args(), std::vector<std::string>{"p("});
            EXPECT_NE(std::string(e.what()).find("\"p(\""), std::string::npos);
        }
        EXPECT_EQ(log.lines(),
                  (lg::log_lines{{lg::severity::error, std::string("Regex error: ") + error.what() +
                                                           ". Pattern used: p("}}));
    }
}

}  // namespace
