#include <gtest/gtest.h>

#include "mqtt/exceptions.h"
#include "mqtt/topic_subscription.h"
#include "mqtt/topic_test_util.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;

namespace {

std::shared_ptr<mqtt::topic_subscription> make(const std::string& filter) {
    return std::make_shared<mqtt::topic_subscription>(
        filter, mqtt::quality_of_service::at_most_once, [](auto) {});
}

TEST(topic_subscription, filters_with_misplaced_wildcards_are_rejected) {
    for (const char* valid : {"", "#", "/#", "a/#", "+", "+/+", "a/+/c", "/", "+/#", "a//b",
                              "a b/c.d-e_f", "sensor:1/x", "a\\"}) {
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

// Each reason a filter or topic can be unusable is refused with its own message and the
// topic in it, long before the broker would drop the connection over it.
TEST(topic_subscription, unusable_filters_and_publish_topics_are_refused_with_the_reason) {
    const std::string longest(mqtt::max_topic_length, 'a');
    const struct {
        std::string topic;
        const char* as_filter;   // key of the refusal, nullptr: accepted
        const char* to_publish;  // key of the refusal, nullptr: accepted
    } rows[] = {
        {"a/b", nullptr, nullptr},
        {"\xC2\xB5g/m\xC2\xB3", nullptr, nullptr},
        {longest, nullptr, nullptr},
        {longest + "a", "error.topic_too_long", "error.topic_too_long"},
        {"", nullptr, "error.publish_topic_empty"},
        {"a/+", nullptr, "error.publish_topic_wildcard"},
        {"a/#", nullptr, "error.publish_topic_wildcard"},
        {"a+b", "error.invalid_topic", "error.publish_topic_wildcard"},
        {std::string("a\0b", 3), "error.topic_contains_nul", "error.topic_contains_nul"},
        {"a/\xFF", "error.topic_not_utf8", "error.topic_not_utf8"},
        {"a/\xED\xA0\x80", "error.topic_not_utf8", "error.topic_not_utf8"},
    };
    const auto refusal = [](auto&& check) -> std::string {
        try {
            check();
        } catch (const mqtt::exceptions::invalid_topic& e) {
            return e.message().key();
        }
        return "accepted";
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.topic.substr(0, 20)));
        EXPECT_EQ(refusal([&] { make(row.topic); }), row.as_filter ? row.as_filter : "accepted");
        EXPECT_EQ(refusal([&] { mqtt::check_publish_topic(row.topic); }),
                  row.to_publish ? row.to_publish : "accepted");
    }
}

TEST(topic_subscription, refusals_quote_the_topic_readably) {
    const auto args = [](const std::string& topic) {
        try {
            mqtt::check_publish_topic(topic);
        } catch (const mqtt::exceptions::invalid_topic& e) {
            return e.message().args();
        }
        return std::vector<std::string>{};
    };
    EXPECT_EQ(args("alerts/#"), (std::vector<std::string>{"alerts/#", "#"}));
    EXPECT_EQ(args(std::string("alerts\0x", 8)), std::vector<std::string>{"alerts\\0x"});
    EXPECT_EQ(args("a\xFFz"), std::vector<std::string>{"a\xEF\xBF\xBDz"});
    const auto too_long = args(std::string(70000, 'x'));
    ASSERT_EQ(too_long.size(), 3u);
    EXPECT_EQ(too_long[0], std::string(60, 'x'));
    EXPECT_EQ(too_long[1], "70000");
    EXPECT_EQ(too_long[2], "65535");
}

// The largest filters and topics MQTT allows, on a small stack.
TEST(topic_subscription,
     filters_and_topics_of_the_maximal_size_match_without_exhausting_the_stack) {
    mqtt::testing::run_on_small_stack(256 * 1024, [] {
        const std::size_t n = mqtt::max_topic_length;
        const std::string levels = std::string(n / 2, 'a') + std::string(n - n / 2, '/');
        std::string plus_levels;
        while (plus_levels.size() + 2 <= n) plus_levels += "+/";
        plus_levels += "+";
        const struct {
            std::string filter;
            std::string topic;
            bool matches;
        } rows[] = {
            {std::string(n, 'a'), std::string(n, 'a'), true},
            {std::string(n - 1, '/') + "#", std::string(n, '/'), true},
            {plus_levels, std::string(plus_levels.size() / 2, '/'), true},
            {plus_levels, std::string(plus_levels.size() / 2 - 1, '/'), false},
            {"#", levels, true},
            {levels, levels, true},
            {levels, levels + "x", false},
        };
        for (const auto& row : rows) {
            EXPECT_EQ(make(row.filter)->matches(row.topic), row.matches) << row.filter.size();
        }
    });
}

}  // namespace
