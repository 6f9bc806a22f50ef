#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "libi18n/i18n_msg.h"
#include "liblog/log_interface.h"
#include "mqtt/mqtt_client_interface.h"

namespace corvanis::monitoring_modules::mqtt {

namespace messages {
LIBI18N_MESSAGE(topic_too_long, "error.topic_too_long",
                "The topic beginning with '%0:s' is %1:s bytes long. MQTT allows at most %2:s "
                "bytes.")
LIBI18N_MESSAGE(topic_not_utf8, "error.topic_not_utf8",
                "The topic '%0:s' is not valid UTF-8 text. Enter a valid topic in the settings of "
                "the sensor.")
LIBI18N_MESSAGE(topic_contains_nul, "error.topic_contains_nul",
                "The topic '%0:s' contains a NUL character (shown as \\0), which MQTT does not "
                "allow in topics.")
LIBI18N_MESSAGE(publish_topic_empty, "error.publish_topic_empty",
                "The topic to publish to is empty. Enter a topic without wildcards.")
LIBI18N_MESSAGE(publish_topic_wildcard, "error.publish_topic_wildcard",
                "Messages cannot be published to the topic '%0:s' because it contains the "
                "wildcard '%1:s'. Enter a topic without wildcards.")

// The definitions above, for catalogue checks.
std::vector<const libi18n::i18n_msg*> topic_messages();
}  // namespace messages

// The longest topic or filter MQTT can carry, in bytes.
inline constexpr std::size_t max_topic_length = 65535;

// Whether the filter places its wildcards as MQTT allows: "#" only as the whole last level,
// "+" only as a whole level. The empty filter is valid.
bool is_valid_topic_filter(std::string_view filter);

// Throws exceptions::invalid_topic, with a message naming the reason, for a filter longer
// than max_topic_length, not UTF-8, holding a NUL or with misplaced wildcards.
void check_topic_filter(std::string_view filter);

// Throws exceptions::invalid_topic for a topic that cannot be published to: empty, with a
// wildcard, or failing the checks of check_topic_filter. Call before connecting.
void check_publish_topic(std::string_view topic);

// Whether a valid filter matches the whole topic: literal levels compare byte for byte, "+"
// takes one level and "#" any number of levels, a wildcard only ever taking the characters
// [a-zA-Z0-9 _.-] (plus "/" for "#"). "a/#" needs the "/": it does not match "a". Linear in
// the lengths, without recursion, so any size is safe.
bool topic_matches(std::string_view filter, std::string_view topic) noexcept;

// Whether every character of a topic level may stand where "+" is.
bool is_wildcard_level(std::string_view level) noexcept;

// A sensor's subscription to one topic filter. Keeps no messages: each matching message goes
// to the handler on the library's thread.
class topic_subscription : public topic_subscription_interface {
  public:
    using message_handler = std::function<void(std::shared_ptr<const received_message>)>;

    // Throws what check_topic_filter throws. `log` is kept for the interface's callers and
    // not used.
    topic_subscription(std::string filter, quality_of_service qos, message_handler handler,
                       const std::shared_ptr<liblog::log_interface>& log = nullptr);

    const std::string& get_topic_filter() const override { return filter_; }
    quality_of_service get_quality_of_service() const { return qos_; }
    bool matches(std::string_view topic) const override { return topic_matches(filter_, topic); }
    // Throws std::bad_function_call when the handler is empty.
    void receive(std::shared_ptr<const received_message> message) override;

  private:
    std::string filter_;
    quality_of_service qos_;
    message_handler handler_;
};

}  // namespace corvanis::monitoring_modules::mqtt
