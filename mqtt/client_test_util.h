#pragma once

// Shared by the client's unit and system tests.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "liblog/memory_logger.h"
#include "libstringutils/random_string_generator.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/mqtt_client_paho.h"
#include "mqtt/topic_subscription.h"
#include "tests/support/expectations.h"
#include "tests/support/mosquitto_broker.h"
#include "tests/support/process.h"

namespace corvanis::monitoring_modules::mqtt::testing {

// A memory log with the queries the tests ask of it.
class client_log : public liblog::memory_logger {
  public:
    // Positions of the lines containing the text, at the level when one is given.
    std::vector<long> find(const std::string& text,
                           std::optional<liblog::severity> level = {}) const {
        std::vector<long> found;
        const auto all = lines();
        for (std::size_t i = 0; i < all.size(); ++i) {
            if ((!level || all[i].first == *level) && all[i].second.find(text) != std::string::npos)
                found.push_back(static_cast<long>(i));
        }
        return found;
    }
    std::size_t count(const std::string& text) const { return find(text).size(); }
    bool has(liblog::severity level, const std::string& text) const {
        return !find(text, level).empty();
    }
    // Position of the first line containing the text, or -1.
    long index_of(const std::string& text) const {
        const auto found = find(text);
        return found.empty() ? -1 : found.front();
    }
    bool wait_for(const std::string& text, std::size_t times = 1) const {
        return test_support::eventually([&] { return count(text) >= times; });
    }
};

// A subscription that keeps what it receives.
class recorded_subscription {
  public:
    explicit recorded_subscription(const std::string& filter)
        : subscription(std::make_shared<topic_subscription>(
              filter, quality_of_service::exactly_once,
              [this](std::shared_ptr<const received_message> message) {
                  std::lock_guard lock(mutex_);
                  messages_.push_back(std::move(message));
              })) {}

    std::vector<std::shared_ptr<const received_message>> messages() const {
        std::lock_guard lock(mutex_);
        return messages_;
    }
    std::size_t size() const { return messages().size(); }
    bool wait_for(std::size_t count) const {
        return test_support::eventually([&] { return size() >= count; });
    }

    std::shared_ptr<topic_subscription> subscription;

  private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<const received_message>> messages_;
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

// Clients against local brokers: skipped without mosquitto; every thread a client started must
// have ended once it is gone.
class broker_client_test : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!test_support::mosquitto_available()) GTEST_SKIP() << "mosquitto is not installed";
        threads_before_ = test_support::thread_baseline();
    }
    mqtt_client_settings settings_for(std::int64_t port, const std::string& id,
                                      std::uint64_t connect_timeout) const {
        mqtt_client_settings s;
        s.connection.host = "127.0.0.1";
        s.connection.port = port;
        s.connection.client_id = id;
        s.connection.connect_timeout = connect_timeout;
        s.logger = log;
        return s;
    }
    static std::unique_ptr<mqtt_client_paho> make(mqtt_client_settings s,
                                                  reconnect_options reconnect) {
        return std::make_unique<mqtt_client_paho>(std::move(s), make_container(),
                                                  std::move(reconnect));
    }
    bool no_thread_left() const {
        return test_support::eventually(
            [&] { return test_support::thread_count() <= threads_before_; },
            std::chrono::seconds(5));
    }

    std::shared_ptr<client_log> log = std::make_shared<client_log>();
    std::size_t threads_before_ = 0;
};

}  // namespace corvanis::monitoring_modules::mqtt::testing
