#include <gtest/gtest.h>

#include "libi18n/i18n_exception.h"

namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

LIBI18N_MESSAGE(sample, "test.error.sample", "Value %0:s is not %1:s.")

TEST(i18n_msg, arguments_fill_a_copy_and_leave_the_definition_untouched) {
    const auto raised = sample()("7", "even");
    EXPECT_EQ(raised.key(), "test.error.sample");
    EXPECT_EQ(raised.render(), "Value 7 is not even.");
    EXPECT_TRUE(sample().args().empty());
    EXPECT_EQ(&sample(), &sample());
}

TEST(i18n_msg, literal_text_is_never_formatted) {
    EXPECT_EQ(i18n::i18n_msg::literal("100% done %0:s").render(), "100% done %0:s");
}

TEST(i18n_exception, what_is_the_english_text_and_the_message_keeps_key_and_args) {
    const i18n::i18n_exception e(sample()("a", "b"));
    EXPECT_STREQ(e.what(), "Value a is not b.");
    EXPECT_EQ(e.message().args(), (std::vector<std::string>{"a", "b"}));
}

TEST(i18n_exception, a_message_that_cannot_be_rendered_falls_back_to_its_text) {
    const i18n::i18n_exception e(sample()("only one"));
    EXPECT_STREQ(e.what(), "Value %0:s is not %1:s.");
}

TEST(i18n_exception, plain_exceptions_become_the_generic_message) {
    const auto msg = i18n::to_i18n_msg(std::runtime_error("disk full"));
    EXPECT_EQ(msg.key(), "libi18n.error.generic");
    EXPECT_EQ(msg.render(), "An error occurred. disk full");
    const i18n::i18n_exception localised(sample()("x", "y"));
    EXPECT_EQ(i18n::to_i18n_msg(localised).key(), "test.error.sample");
}

}  // namespace
