#include "mqtt/topic_subscription.h"

#include <algorithm>
#include <array>

#include "libstringutils/utf8.h"
#include "mqtt/exceptions.h"

namespace corvanis::monitoring_modules::mqtt {

namespace messages {
std::vector<const libi18n::i18n_msg*> topic_messages() {
    return {&topic_too_long(), &topic_not_utf8(), &topic_contains_nul(), &publish_topic_empty(),
            &publish_topic_wildcard()};
}
}  // namespace messages

namespace {

constexpr std::array<bool, 256> make_level_table() {
    std::array<bool, 256> table{};
    for (int c = 'a'; c <= 'z'; ++c) table[c] = true;
    for (int c = 'A'; c <= 'Z'; ++c) table[c] = true;
    for (int c = '0'; c <= '9'; ++c) table[c] = true;
    for (char c : {' ', '_', '.', '-'}) table[static_cast<unsigned char>(c)] = true;
    return table;
}
constexpr auto level_char = make_level_table();

bool is_multi_level_text(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return c == '/' || level_char[static_cast<unsigned char>(c)];
    });
}

// How much of a topic an error message quotes: enough to recognise it.
constexpr std::size_t quoted_length = 60;

[[noreturn]] void refuse(const libi18n::i18n_msg& message) {
    throw exceptions::invalid_topic(message);
}

}  // namespace

bool is_wildcard_level(std::string_view level) noexcept {
    return std::all_of(level.begin(), level.end(),
                       [](char c) { return level_char[static_cast<unsigned char>(c)]; });
}

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

namespace {
// What every topic and filter must be before the broker sees it.
void check_topic_text(std::string_view topic) {
    if (topic.size() > max_topic_length) {
        const auto start = libstringutils::to_valid_utf8(
            libstringutils::utf8_prefix(topic.substr(0, 4 * quoted_length), quoted_length));
        refuse(messages::topic_too_long()(start, std::to_string(topic.size()),
                                          std::to_string(max_topic_length)));
    }
    if (!libstringutils::is_valid_utf8(topic)) {
        refuse(messages::topic_not_utf8()(libstringutils::to_valid_utf8(topic)));
    }
    if (topic.find('\0') != std::string_view::npos) {
        std::string shown;
        for (char c : topic) c == '\0' ? shown += "\\0" : shown += c;
        refuse(messages::topic_contains_nul()(shown));
    }
}
}  // namespace

void check_topic_filter(std::string_view filter) {
    check_topic_text(filter);
    if (!is_valid_topic_filter(filter)) {
        refuse(messages::invalid_topic()(filter));
    }
}

void check_publish_topic(std::string_view topic) {
    if (topic.empty()) {
        refuse(messages::publish_topic_empty());
    }
    check_topic_text(topic);
    if (const auto wildcard = topic.find_first_of("+#"); wildcard != std::string_view::npos) {
        refuse(messages::publish_topic_wildcard()(topic, topic.substr(wildcard, 1)));
    }
}

bool topic_matches(std::string_view filter, std::string_view topic) noexcept {
    std::size_t f = 0;
    std::size_t t = 0;
    while (true) {
        const auto f_end = std::min(filter.find('/', f), filter.size());
        const auto level = filter.substr(f, f_end - f);
        if (level == "#" && f_end == filter.size()) {
            return is_multi_level_text(topic.substr(t));
        }
        const auto t_end = std::min(topic.find('/', t), topic.size());
        const auto topic_level = topic.substr(t, t_end - t);
        if (level == "+" ? !is_wildcard_level(topic_level) : level != topic_level) {
            return false;
        }
        if (f_end == filter.size() || t_end == topic.size()) {
            return f_end == filter.size() && t_end == topic.size();
        }
        f = f_end + 1;
        t = t_end + 1;
    }
}

topic_subscription::topic_subscription(std::string filter, quality_of_service qos,
                                       message_handler handler,
                                       const std::shared_ptr<liblog::log_interface>&)
    : filter_(std::move(filter)), qos_(qos), handler_(std::move(handler)) {
    check_topic_filter(filter_);
}

void topic_subscription::receive(std::shared_ptr<const received_message> message) {
    handler_(std::move(message));
}

}  // namespace corvanis::monitoring_modules::mqtt
