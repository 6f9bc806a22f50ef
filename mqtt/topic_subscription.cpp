#include "mqtt/topic_subscription.h"

#include "liblog/memory_logger.h"
#include "libregex/regex_errors.h"
#include "mqtt/exceptions.h"

namespace corvanis::monitoring_modules::mqtt {

bool is_valid_topic_filter(std::string_view filter) {
    if (const auto hash = filter.find('#'); hash != std::string_view::npos) {
        if (hash != filter.size() - 1 || (filter.size() > 1 && filter[hash - 1] != '/')) {
            return false;
        }
    }
    for (auto plus = filter.find('+'); plus != std::string_view::npos;
         plus = filter.find('+', plus + 1)) {
        const bool starts_level = plus == 0 || filter[plus - 1] == '/';
        const bool ends_level = plus == filter.size() - 1 || filter[plus + 1] == '/';
        if (!starts_level || !ends_level) {
            return false;
        }
    }
    return true;
}

std::string topic_filter_to_regex(std::string_view filter) {
    static const std::regex special(R"([[\]{}()*+?.\^$|])");
    static const std::regex escaped_plus(R"(\\\+)");
    static const std::regex hash("#");
    std::string expression = std::regex_replace(std::string(filter), special, R"(\$&)");
    expression = std::regex_replace(expression, escaped_plus, "[a-zA-Z0-9 _.-]*");
    return std::regex_replace(expression, hash, R"([a-zA-Z0-9 \/_.-]*)");
}

namespace {
std::regex compile(const std::string& expression,
                   const std::shared_ptr<liblog::log_interface>& log) {
    try {
        return std::regex(expression);
    } catch (const std::regex_error& e) {
        liblog::null_logger silent;
        libregex::translate_regex_error(e, expression, log ? *log : silent);
    }
}
}  // namespace

topic_subscription::topic_subscription(std::string filter, quality_of_service qos,
                                       message_handler handler,
                                       const std::shared_ptr<liblog::log_interface>& log)
    : filter_(std::move(filter)), qos_(qos), handler_(std::move(handler)) {
    if (!is_valid_topic_filter(filter_)) {
        throw exceptions::invalid_topic(messages::invalid_topic()(filter_));
    }
    expression_ = compile(topic_filter_to_regex(filter_), log);
}

bool topic_subscription::matches(std::string_view topic) const {
    return std::regex_match(topic.begin(), topic.end(), expression_);
}

void topic_subscription::receive(std::shared_ptr<const received_message> message) {
    handler_(std::move(message));
}

}  // namespace corvanis::monitoring_modules::mqtt
