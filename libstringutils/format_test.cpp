#include "libstringutils/format.h"

#include <gtest/gtest.h>

namespace su = corvanis::monitoring_modules::libstringutils;

namespace {

struct format_case {
    const char* format;
    std::vector<std::string> args;
    const char* expected;  // nullptr: an exception is expected
    const char* error;     // what() of the expected exception
};

TEST(format, grammar_table) {
    const std::vector<format_case> cases = {
        {"", {"unused"}, "", nullptr},
        {"no placeholders", {}, "no placeholders", nullptr},
        {"%0:s and %0:s", {"a"}, "a and a", nullptr},
        {"%1:s-%0:s", {"x", "y"}, "y-x", nullptr},
        {"%%0:s", {"a"}, "%0:s", nullptr},
        {"100%%", {}, "100%", nullptr},
        {"%0:s%1:s", {"a", "b", "c"}, "ab", nullptr},
        {"%10:s", {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "ten"}, "ten", nullptr},
        {"100%", {}, nullptr, "Malformed placeholder in format string."},
        {"%0:d", {"a"}, nullptr, "Malformed placeholder in format string."},
        {"%1 left", {"a", "b"}, nullptr, "Malformed placeholder in format string."},
        {"%x", {}, nullptr, "Malformed placeholder in format string."},
        {"%3:s", {"a", "b", "c"}, nullptr, "Index 3 is too high for argument list."},
        {"%03:s", {"a"}, nullptr, "Index 03 is too high for argument list."},
        {"%0:s", {}, nullptr, "Index 0 is too high for argument list."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format);
        if (c.expected) {
            EXPECT_EQ(su::format(c.format, c.args), c.expected);
        } else {
            try {
                su::format(c.format, c.args);
                ADD_FAILURE() << "no exception";
            } catch (const su::exceptions::exception& e) {
                EXPECT_STREQ(e.what(), c.error);
            }
        }
    }
}

TEST(format, index_beyond_64_bits_raises_the_conversion_error) {
    EXPECT_THROW(su::format("%99999999999999999999:s", {"a"}), std::out_of_range);
}

}  // namespace
