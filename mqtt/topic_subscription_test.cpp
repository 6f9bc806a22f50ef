#include <gtest/gtest.h>

#include "liblog/memory_logger.h"
#include "mqtt/exceptions.h"
#include "mqtt/topic_subscription.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace lg = corvanis::monitoring_modules::liblog;

namespace {

std::shared_ptr<mqtt::topic_subscription> make(const std::string& filter) {
    return std::make_shared<mqtt::topic_subscription>(
        filter, mqtt::quality_of_service::at_most_once, [](auto) {});
}

TEST(topic_subscription, filters_with_misplaced_wildcards_are_rejected) {
    for (const char* valid : {"", "#", "/#", "a/#", "+", "+/+", "a/+/c", "/", "+/#", "a//b",
                              "a b/c.d-e_f", "sensor:1/x"}) {
        EXPECT_TRUE(mqtt::is_valid_topic_filter(valid)) << valid;
        EXPECT_NO_THROW(make(valid)) << valid;
    }
    for (const char* invalid :
         {"a/#/b", "a#", "a+/b", "+a", "a/b#", "#/a", "a/+b", "++", "##", "a/#/#", "/+x"}) {
        EXPECT_FALSE(mqtt::is_valid_topic_filter(invalid)) << invalid;
        try {
            make(invalid);
            ADD_FAILURE() << invalid;
        } catch (const mqtt::exceptions::invalid_topic& e) {
            EXPECT_EQ(e.message().key(), "error.invalid_topic");
            EXPECT_EQ(e.message().args(), std::vector<std::string>{invalid});
        }
    }
}

TEST(topic_subscription, wildcards_match_whole_levels_of_the_narrowed_character_set) {
    const struct {
        const char* filter;
        const char* topic;
        bool matches;
    } table[] = {
        {"a/+/c", "a/b/c", true},
        {"a/+/c", "a//c", true},
        {"a/+/c", "a/b/c/d", false},
        {"a/#", "a/", true},
        {"a/#", "a/b/c", true},
        {"a/#", "a", false},
        {"#", "x/y/z", true},
        {"#", "", true},
        {"#", "$SYS/x", false},
        {"a.b/+", "a.b/x", true},
        {"a.b/+", "aXb/x", false},
        {"sensor/+", "sensor/x:y", false},
        {"sensor/+", "sensor/x y_z.1-2", true},
        {"sensor/+", "sensor/\xc3\xa9", false},
        {"+", "a/b", false},
        {"a/b", "a/bc", false},
        {"x:y/+", "x:y/z", true},
        {"(a)[b]{c}*?^$|/#", "(a)[b]{c}*?^$|/d", true},
        {"", "", true},
        {"", "a", false},
    };
    for (const auto& row : table) {
        EXPECT_EQ(make(row.filter)->matches(row.topic), row.matches)
            << row.filter << " vs " << row.topic;
    }
}

// A backslash is not escaped: it keeps its meaning in the expression, and a lone one at the
// end is an expression error that reaches the caller localised.
TEST(topic_subscription, a_backslash_in_the_filter_acts_as_an_escape) {
    EXPECT_TRUE(make("a\\d")->matches("a7"));
    EXPECT_FALSE(make("a\\d")->matches("a\\d"));

    auto log = std::make_shared<lg::memory_logger>();
    try {
        mqtt::topic_subscription bad("a\\", mqtt::quality_of_service::at_most_once, {}, log);
        ADD_FAILURE() << "compiled";
    } catch (const corvanis::monitoring_modules::libi18n::i18n_exception& e) {
        EXPECT_EQ(e.message().key(), "libregex.error.escape_sequence");
    }
    ASSERT_EQ(log->lines().size(), 1u);
    EXPECT_NE(log->lines()[0].second.find("Pattern used: a\\"), std::string::npos);
}

}  // namespace
