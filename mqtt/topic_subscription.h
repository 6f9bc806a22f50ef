#pragma once

#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

#include "liblog/log_interface.h"
#include "mqtt/mqtt_client_interface.h"

namespace corvanis::monitoring_modules::mqtt {

// Whether the filter places its wildcards as MQTT allows: "#" only as the whole last level,
// "+" only as a whole level. The empty filter is valid.
bool is_valid_topic_filter(std::string_view filter);

// The regular expression a valid filter matches with: its text escaped, "+" as one level and
// "#" as any number of levels, each limited to the characters [a-zA-Z0-9 _.-] (plus "/" for
// "#"). A backslash in the filter is not escaped and keeps its meaning in the expression.
std::string topic_filter_to_regex(std::string_view filter);

// A sensor's subscription to one topic filter. Keeps no messages: each matching message goes
// to the handler on the library's thread.
class topic_subscription : public topic_subscription_interface {
  public:
    using message_handler = std::function<void(std::shared_ptr<const received_message>)>;

    // Throws invalid_topic for a filter with misplaced wildcards, and libregex's errors (after
    // logging the engine's text to log, when given) when the expression does not compile.
    topic_subscription(std::string filter, quality_of_service qos, message_handler handler,
                       const std::shared_ptr<liblog::log_interface>& log = nullptr);

    const std::string& get_topic_filter() const override { return filter_; }
    quality_of_service get_quality_of_service() const { return qos_; }
    // Full match of the whole topic against the filter's expression.
    bool matches(std::string_view topic) const override;
    // Throws std::bad_function_call when the handler is empty.
    void receive(std::shared_ptr<const received_message> message) override;

  private:
    std::string filter_;
    quality_of_service qos_;
    std::regex expression_;
    message_handler handler_;
};

}  // namespace corvanis::monitoring_modules::mqtt
