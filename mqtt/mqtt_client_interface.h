#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "liblog/log_interface.h"
#include "mqtt/exceptions.h"

namespace corvanis::monitoring_modules::mqtt {

enum class quality_of_service : int {
    at_most_once = 0,
    at_least_once = 1,
    exactly_once = 2,
};

// One message as the client hands it to every matching subscription; shared between them.
struct received_message {
    std::string topic;
    std::vector<char> payload;  // copied out of the library's message, possibly empty
    std::chrono::system_clock::time_point arrival_time;

    std::string_view payload_view() const noexcept { return {payload.data(), payload.size()}; }
};

// What a client delivers to. The client holds subscriptions weakly: dropping the last
// shared pointer ends the subscription without an unsubscribe call.
class topic_subscription_interface {
  public:
    virtual ~topic_subscription_interface() = default;
    virtual const std::string& get_topic_filter() const = 0;
    // Whether the topic matches the filter under the client's wildcard rules. The client
    // decides delivery by the filter and asks this only for filters it cannot index.
    virtual bool matches(std::string_view topic) const = 0;
    // Called on a library thread, never under a client lock. Must not call subscribe,
    // unsubscribe or publish of the delivering client: those wait for the thread that runs it.
    // May run once more while, or just after, unsubscribe returns.
    virtual void receive(std::shared_ptr<const received_message> message) = 0;
};

// A broker connection shared by every user with equal settings (see client_pool.h).
// All operations may be called from any thread.
class mqtt_client_interface {
  public:
    virtual ~mqtt_client_interface() = default;

    // Registers the subscription under its filter and subscribes at the broker (QoS 2),
    // or, while disconnected, after the next reconnect. Empty pointers are ignored.
    // subscribe, unsubscribe and publish wait for the broker at most the connect timeout, then
    // throw exceptions::timeout; other failures throw the mapped client_failure.
    virtual void subscribe(const std::shared_ptr<topic_subscription_interface>& subscription) = 0;
    // Unsubscribes at the broker when this was the filter's last subscription.
    virtual void unsubscribe(const std::shared_ptr<topic_subscription_interface>& subscription) = 0;
    // Waits until the library completes the request. Throws could_not_publish_not_connected,
    // message_too_long (payload over 256 MiB), timeout or the mapped client_failure.
    virtual void publish(const std::string& topic, const std::string& payload,
                         const quality_of_service& qos, bool retained) = 0;

    // Clients alive in the process.
    virtual std::uint32_t get_active_client_count() const = 0;
    // Milliseconds the initial connection attempt took; -1 until measured.
    virtual std::int64_t get_connect_duration() const = 0;
    virtual bool is_connected() const = 0;
    // Why the client is not connected: the typed failure of its last connection attempt
    // (not_authorized, tcp_tls_connect_failure, ...) or connection_lost after a loss. Empty
    // while nothing has failed.
    virtual std::exception_ptr last_failure() const { return nullptr; }
    // False while a reconnect could not put every subscription back (a refused re-subscription):
    // the client is connected, but some of its sensors receive nothing.
    virtual bool subscriptions_in_place() const { return true; }
    // For scans: returns when connected with every subscription in place, else throws
    // last_failure() (connection_lost when there is none).
    void throw_if_disconnected() const {
        if (is_connected() && subscriptions_in_place()) return;
        if (const auto failure = last_failure()) std::rethrow_exception(failure);
        throw exceptions::connection_lost(messages::connection_lost());
    }
    // The effective id, random suffix included.
    virtual std::string get_client_id() const = 0;
    // Distinct topic filters registered.
    virtual std::uint64_t get_subscribed_topic_count() const = 0;

    // The client's lines of severity <= threshold go to the logger, held weakly.
    // Empty pointers are ignored.
    virtual void add_logger(const std::shared_ptr<liblog::log_interface>& logger,
                            int threshold = liblog::to_int(liblog::severity::debug)) = 0;
    virtual void remove_logger(const std::shared_ptr<liblog::log_interface>& logger) = 0;
};

}  // namespace corvanis::monitoring_modules::mqtt
