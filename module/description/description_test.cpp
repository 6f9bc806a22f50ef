#include "module/description/description.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>

#include <jsoncons/json.hpp>

#include "libjsonparser/errors.h"
#include "libparser/errors.h"
#include "libregex/regex_errors.h"
#include "libtavohelper/errors.h"
#include "libtimeutils/errors.h"
#include "mqtt/exceptions.h"
#include "mqtt/sensors/channels.h"
#include "mqtt/sensors/subscribe_custom_sensor.h"
#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt {
namespace {

using jsoncons::ojson;

const ojson& document() {
    static const ojson parsed = ojson::parse(module_description());
    return parsed;
}

std::vector<std::string> names(const ojson& object) {
    std::vector<std::string> out;
    for (const auto& member : object.object_range()) out.push_back(member.key());
    return out;
}

const ojson& translations(const std::string& language) {
    return document().at("Text").at(language).at("Translation");
}

std::string english(const std::string& key) {
    return translations("English").at(key).at("Display").as<std::string>();
}

std::vector<std::string> placeholders_of(const std::string& text) {
    static const std::regex placeholder("%[0-9]+:s");
    std::vector<std::string> out;
    for (std::sregex_iterator it(text.begin(), text.end(), placeholder), end; it != end; ++it)
        out.push_back(it->str());
    std::sort(out.begin(), out.end());
    return out;
}

TEST(description_document, sensors_require_the_connect_check_and_one_needs_persistent_data) {
    const auto& sensors = document().at("Sensors");
    ASSERT_EQ(names(sensors), (std::vector<std::string>{"roundtrip_sensor", "statistics_sensor",
                                                        "subscribe_custom_sensor"}));
    for (const auto& sensor : sensors.object_range()) {
        SCOPED_TRACE(sensor.key());
        EXPECT_EQ(sensor.value().at("RequiredChecks"), ojson::parse(R"(["mqtt_connect_check"])"));
        EXPECT_EQ(sensor.value().contains("Flag"), sensor.key() == "subscribe_custom_sensor");
        EXPECT_EQ(sensor.value().at("Help").as<std::string>(), english(sensor.key() + ".help"));
    }
    EXPECT_EQ(sensors.at("subscribe_custom_sensor").at("Flag"),
              ojson::parse(R"(["SensorFlagNeedsPersistentData"])"));
    EXPECT_EQ(document().at("Checks").at("mqtt_connect_check").at("Sections"),
              ojson::parse(R"(["credentials"])"));
}

TEST(text_section, nine_languages_lack_exactly_the_english_only_keys) {
    EXPECT_EQ(names(document().at("Text")),
              (std::vector<std::string>{"Russian", "Brazilian", "Dutch", "Japanese", "French",
                                        "Spanish", "English", "German", "SimplifiedChinese"}));
    const auto english_keys = names(translations("English"));
    EXPECT_EQ(english_keys.size(), 347u);
    std::vector<std::string> shared;
    std::copy_if(english_keys.begin(), english_keys.end(), std::back_inserter(shared),
                 [](const std::string& k) {
                     return !k.starts_with("libregex.error.") && !k.starts_with("lookup.rttstate.");
                 });
    EXPECT_EQ(shared.size(), 332u);
    for (const auto& language : names(document().at("Text"))) {
        if (language == "English") continue;
        SCOPED_TRACE(language);
        EXPECT_EQ(names(translations(language)), shared);
    }
}

TEST(text_section, every_text_is_filled_and_keeps_the_english_placeholders) {
    for (const auto& language : document().at("Text").object_range()) {
        for (const auto& entry : language.value().at("Translation").object_range()) {
            SCOPED_TRACE(language.key() + ": " + entry.key());
            const auto text = entry.value().at("Display").as<std::string>();
            EXPECT_FALSE(text.empty());
            EXPECT_EQ((entry.key() + text).find("{cur}"), std::string::npos);  // channel expanded
            EXPECT_EQ(placeholders_of(text), placeholders_of(english(entry.key())));
        }
    }
}

using message_table = std::vector<const libi18n::i18n_msg*> (*)();

// One line per library that defines messages, with the prefix its keys must carry.
// clang-format off
const std::pair<std::string, message_table> tables[] = {
    {"libi18n.error.",
     +[] { return std::vector<const libi18n::i18n_msg*>{&libi18n::messages::generic()}; }},
    {"libtavohelper.error.", &libtavohelper::messages::all},
    {"libparser.error.", &libparser::messages::all},
    {"libjsonparser.error.", &libjsonparser::messages::all},
    {"libregex.error.", &libregex::messages::all},
    {"libtimeutils.error.", &libtimeutils::messages::all},
    {"", &messages::all},
    {"", &messages::sensor_messages},
    {"", &messages::topic_messages},
    {"", &messages::subscribe_custom_messages},
};
// clang-format on

// Every message the code can raise reaches the host under its key with the same English text.
TEST(text_section, every_message_of_the_code_is_in_the_english_catalogue_with_its_text) {
    std::set<std::string> keys;
    for (const auto& [prefix, table] : tables) {
        const auto messages = table();
        EXPECT_FALSE(messages.empty()) << prefix;
        for (const auto* message : messages) {
            SCOPED_TRACE(message->key());
            EXPECT_TRUE(keys.insert(message->key()).second) << "key defined twice";
            EXPECT_TRUE(message->key().starts_with(prefix));
            ASSERT_TRUE(translations("English").contains(message->key()));
            EXPECT_EQ(english(message->key()), message->default_text());
        }
    }
}

}  // namespace
}  // namespace corvanis::monitoring_modules::mqtt
