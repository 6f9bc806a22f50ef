#include <gtest/gtest.h>

#include "libi18n/i18n_exception.h"

namespace i18n = corvanis::monitoring_modules::libi18n;

namespace {

LIBI18N_MESSAGE(sample, "test.error.sample", "Value %0:s is not %1:s.")

TEST(i18n_exception, what_is_the_english_text_and_the_message_keeps_key_and_args) {
    const i18n::i18n_exception e(sample()("7", "even"));
    EXPECT_STREQ(e.what(), "Value 7 is not even.");
    EXPECT_EQ(e.message().key(), "test.error.sample");
    EXPECT_EQ(e.message().args(), (std::vector<std::string>{"7", "even"}));
    EXPECT_TRUE(sample().args().empty());  // raising filled a copy
}

TEST(i18n_exception, unrenderable_and_literal_texts_are_shown_as_written) {
    EXPECT_STREQ(i18n::i18n_exception(sample()("only one")).what(), "Value %0:s is not %1:s.");
    EXPECT_EQ(i18n::i18n_msg::literal("100% done %0:s").render(), "100% done %0:s");
}

}  // namespace
