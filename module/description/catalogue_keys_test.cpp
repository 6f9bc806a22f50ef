// Every message the code can raise must reach the host under its key with the same English text.
#include <gtest/gtest.h>

#include <set>

#include <jsoncons/json.hpp>

#include "libi18n/i18n_msg.h"
#include "libjsonparser/errors.h"
#include "libparser/errors.h"
#include "libregex/regex_errors.h"
#include "libtavohelper/errors.h"
#include "libtimeutils/errors.h"
#include "module/description/description.h"
#include "mqtt/exceptions.h"
#include "mqtt/sensors/channels.h"

namespace corvanis::monitoring_modules::mqtt {
namespace {

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
};
// clang-format on

TEST(catalogue_keys, every_message_of_the_code_is_in_the_english_catalogue_with_its_text) {
    const auto document = jsoncons::ojson::parse(module_description());
    const auto& english = document.at("Text").at("English").at("Translation");
    std::set<std::string> keys;
    for (const auto& [prefix, table] : tables) {
        const auto messages = table();
        EXPECT_FALSE(messages.empty()) << prefix;
        for (const auto* message : messages) {
            SCOPED_TRACE(message->key());
            EXPECT_TRUE(keys.insert(message->key()).second) << "key defined twice";
            EXPECT_TRUE(message->key().starts_with(prefix));
            ASSERT_TRUE(english.contains(message->key()));
            EXPECT_EQ(english.at(message->key()).at("Display").as<std::string>(),
                      message->default_text());
        }
    }
}

}  // namespace
}  // namespace corvanis::monitoring_modules::mqtt
