// Every message the code can raise must reach the host under its key with the same English text.
#include <gtest/gtest.h>

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

std::vector<const libi18n::i18n_msg*> libi18n_messages() {
    return {&libi18n::messages::generic()};
}

// One line per library that defines messages.
// clang-format off
const std::pair<const char*, message_table> tables[] = {
    {"libi18n", &libi18n_messages},
    {"libtavohelper", &libtavohelper::messages::all},
    {"libparser", &libparser::messages::all},
    {"libjsonparser", &libjsonparser::messages::all},
    {"libregex", &libregex::messages::all},
    {"libtimeutils", &libtimeutils::messages::all},
    {"mqtt client", &messages::all},
    {"mqtt sensors", &messages::sensor_messages},
};
// clang-format on

TEST(catalogue_keys, every_message_of_the_code_is_in_the_english_catalogue_with_its_text) {
    const auto document = jsoncons::ojson::parse(module_description());
    const auto& english = document.at("Text").at("English").at("Translation");
    for (const auto& [library, table] : tables) {
        const auto messages = table();
        EXPECT_FALSE(messages.empty()) << library;
        for (const auto* message : messages) {
            SCOPED_TRACE(std::string(library) + ": " + message->key());
            ASSERT_TRUE(english.contains(message->key()));
            EXPECT_EQ(english.at(message->key()).at("Display").as<std::string>(),
                      message->default_text());
        }
    }
}

}  // namespace
}  // namespace corvanis::monitoring_modules::mqtt
