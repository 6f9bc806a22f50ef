#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <set>

#include "mqtt/topic_filter_index.h"
#include "mqtt/topic_subscription.h"
#include "mqtt/topic_test_util.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;

namespace {

std::set<std::string> matched(const mqtt::topic_filter_index& index, const std::string& topic) {
    std::set<std::string> filters;
    index.match(topic, [&](const mqtt::topic_filter_index::entry& e) {
        EXPECT_TRUE(filters.insert(e.filter).second) << "visited twice: " << e.filter;
    });
    return filters;
}

// The reference semantics, as a regular expression: the filter's text escaped, "+" one
// level of [a-zA-Z0-9 _.-] and "#" any number of such levels. Only for small filters: the
// engine recurses per character.
std::regex reference_expression(const std::string& filter) {
    static const std::regex special(R"([[\]{}()*+?.\\^$|])");
    static const std::regex escaped_plus(R"(\\\+)");
    static const std::regex hash("#");
    std::string expression = std::regex_replace(filter, special, R"(\$&)");
    expression = std::regex_replace(expression, escaped_plus, "[a-zA-Z0-9 _.-]*");
    return std::regex(std::regex_replace(expression, hash, R"([a-zA-Z0-9 \/_.-]*)"));
}

int pick(std::mt19937& rng, std::size_t high) {
    return std::uniform_int_distribution<int>(0, static_cast<int>(high))(rng);
}

// Levels drawn from a small pool so that filters and topics collide often: plain words, empty
// levels, characters a wildcard level must refuse (":", "$", "\xc3\xa9", "\\") or that the
// regular expression would misread if unescaped (".", "*", "(", "\\"). Only a filter gets
// wildcards, as whole levels.
std::string random_levels(std::mt19937& rng, bool filter) {
    static const std::vector<std::string> pool = {"a",   "b",  "ab", "",   "x y", "a.b",
                                                  "aXb", "_-", "1",  ":",  "$",   "\xc3\xa9",
                                                  "a*",  "(",  "+x", "#y", "\\d", "\\"};
    std::string text;
    for (int i = 0, levels = 1 + pick(rng, 4); i < levels; ++i) {
        std::string level = filter && pick(rng, 9) < 3 ? "+" : pool[pick(rng, pool.size() - 1)];
        if (filter && level != "+" && level.find_first_of("+#") != std::string::npos) level = "c";
        text += (i ? "/" : "") + level;
    }
    if (filter && pick(rng, 3) == 0) text = pick(rng, 4) == 0 ? "#" : text + "/#";
    return text;
}

// The index and the subscription must report exactly the filters whose expression fully
// matches the topic.
TEST(topic_filter_index, agrees_with_the_regular_expression_on_random_filters_and_topics) {
    const unsigned seed = 20240611;
    std::mt19937 rng(seed);
    for (int round = 0; round < 40; ++round) {
        mqtt::topic_filter_index index;
        std::vector<std::pair<std::string, std::regex>> filters;
        for (int i = 0; i < 60; ++i) {
            const auto filter = random_levels(rng, true);
            ASSERT_TRUE(mqtt::is_valid_topic_filter(filter)) << filter;
            if (index.find(filter) == nullptr) {
                index.insert(filter);
                filters.emplace_back(filter, reference_expression(filter));
            }
        }
        for (int t = 0; t < 200; ++t) {
            const auto topic = random_levels(rng, false);
            std::set<std::string> expected;
            for (const auto& [filter, expression] : filters) {
                const bool matches = std::regex_match(topic, expression);
                if (matches) expected.insert(filter);
                ASSERT_EQ(mqtt::topic_matches(filter, topic), matches) << filter << " " << topic;
            }
            ASSERT_EQ(matched(index, topic), expected)
                << "seed " << seed << " round " << round << " topic '" << topic << "'";
        }
    }
}

TEST(topic_filter_index, erasing_a_filter_keeps_its_neighbours) {
    mqtt::topic_filter_index index;
    for (const char* f : {"a/b", "a/b/c", "a/+", "a/#", "#", "+/b"}) index.insert(f);
    EXPECT_EQ(matched(index, "a/b"), (std::set<std::string>{"a/b", "a/+", "a/#", "#", "+/b"}));
    index.erase("a/b");
    index.erase("a/#");
    index.erase("never/added");
    EXPECT_EQ(index.size(), 4u);
    EXPECT_EQ(matched(index, "a/b"), (std::set<std::string>{"a/+", "#", "+/b"}));
    EXPECT_EQ(matched(index, "a/b/c"), (std::set<std::string>{"a/b/c", "#"}));
    for (const char* f : {"a/b/c", "a/+", "#", "+/b"}) index.erase(f);
    EXPECT_EQ(index.size(), 0u);
    EXPECT_TRUE(matched(index, "a/b").empty());
}

TEST(topic_filter_index, filters_the_levels_cannot_decide_are_always_offered) {
    mqtt::topic_filter_index index;
    index.insert("a\\d");  // a plain character
    index.insert("a#b");   // invalid, only a custom subscription would bring it
    index.insert("a/b");
    EXPECT_TRUE(index.find("a#b")->needs_check);
    for (const char* f : {"a\\d", "a/b"}) EXPECT_FALSE(index.find(f)->needs_check) << f;
    EXPECT_EQ(matched(index, "zzz"), (std::set<std::string>{"a#b"}));
    EXPECT_EQ(matched(index, "a\\d"), (std::set<std::string>{"a#b", "a\\d"}));
    index.erase("a#b");
    EXPECT_EQ(matched(index, "a/b"), (std::set<std::string>{"a/b"}));
}

TEST(topic_filter_index, deep_topics_beyond_the_stack_buffer_still_match) {
    mqtt::topic_filter_index index;
    std::string deep = "l";
    for (int i = 1; i < 40; ++i) deep += "/l";
    index.insert(deep);
    index.insert("l/#");
    EXPECT_EQ(matched(index, deep), (std::set<std::string>{deep, "l/#"}));
}

// A filter of 32,768 levels nests the index as deep: insert, match, erase and destruction
// must all get through it.
TEST(topic_filter_index, the_deepest_filters_mqtt_allows_are_indexed_and_released) {
    mqtt::testing::run_on_small_stack(256 * 1024, [] {
        const std::string slashes(mqtt::max_topic_length, '/');
        std::string pluses;
        while (pluses.size() + 2 <= mqtt::max_topic_length) pluses += "+/";
        pluses += "+";
        {
            mqtt::topic_filter_index index;
            index.insert(slashes);
            index.insert(pluses);
            index.insert(slashes.substr(1) + "#");
            EXPECT_EQ(matched(index, slashes),
                      (std::set<std::string>{slashes, slashes.substr(1) + "#"}));
            EXPECT_EQ(matched(index, std::string(pluses.size() / 2, '/')),
                      (std::set<std::string>{pluses}));
            index.erase(slashes);
            EXPECT_EQ(index.size(), 2u);
        }  // destroyed with the deep filters still in place
    });
}

}  // namespace
