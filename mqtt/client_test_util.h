#pragma once

// Shared by the client's unit and system tests.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "liblog/memory_logger.h"
#include "libstringutils/random_string_generator.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/topic_subscription.h"
#include "tests/support/expectations.h"

namespace corvanis::monitoring_modules::mqtt::testing {

// A memory log with the queries the tests ask of it.
class client_log : public liblog::memory_logger {
  public:
    // Lines containing the text.
    std::size_t count(const std::string& text) const {
        std::size_t n = 0;
        for (const auto& [level, line] : lines()) n += line.find(text) != std::string::npos;
        return n;
    }
    bool has(liblog::severity level, const std::string& text) const {
        for (const auto& [l, line] : lines()) {
            if (l == level && line.find(text) != std::string::npos) return true;
        }
        return false;
    }
    // Position of the first line containing the text, or -1.
    long index_of(const std::string& text) const {
        const auto all = lines();
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (all[i].second.find(text) != std::string::npos) return static_cast<long>(i);
        }
        return -1;
    }
    bool wait_for(const std::string& text, std::size_t times = 1) const {
        return test_support::eventually([&] { return count(text) >= times; });
    }
    std::string dump() const {
        std::string text;
        for (const auto& [level, line] : lines()) {
            text += std::to_string(liblog::to_int(level)) + " " + line + "\n";
        }
        return text;
    }
};

// Keeps what a topic_subscription hands to its handler.
class recorder {
  public:
    topic_subscription::message_handler handler() {
        return [this](std::shared_ptr<const received_message> message) {
            std::lock_guard lock(mutex_);
            messages_.push_back(std::move(message));
        };
    }
    std::vector<std::shared_ptr<const received_message>> messages() const {
        std::lock_guard lock(mutex_);
        return messages_;
    }
    std::size_t size() const { return messages().size(); }
    bool wait_for(std::size_t count) const {
        return test_support::eventually([&] { return size() >= count; });
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<const received_message>> messages_;
};

// A subscription with its recorder, kept alive together.
struct recorded_subscription {
    recorder messages;
    std::shared_ptr<topic_subscription> subscription;

    explicit recorded_subscription(const std::string& filter)
        : subscription(std::make_shared<topic_subscription>(
              filter, quality_of_service::exactly_once, messages.handler())) {}
};

// A container as the module object builds it: the random string generator and the client factory.
inline std::shared_ptr<libtavohelper::module::service_container> make_container() {
    auto container = std::make_shared<libtavohelper::module::service_container>();
    container->register_factory<libstringutils::random_string_generator_interface>(
        std::function<std::unique_ptr<libstringutils::random_string_generator_interface>()>(
            &libstringutils::make_random_string_generator));
    container->register_factory<mqtt_client_interface, mqtt_client_settings>(
        make_client_factory(container));
    return container;
}

inline mqtt_client_settings settings_for(const std::string& host, std::int64_t port,
                                         const std::string& client_id,
                                         std::shared_ptr<liblog::log_interface> logger) {
    mqtt_client_settings s;
    s.connection.host = host;
    s.connection.port = port;
    s.connection.client_id = client_id;
    s.connection.connect_timeout = 5;
    s.logger = std::move(logger);
    return s;
}

}  // namespace corvanis::monitoring_modules::mqtt::testing
