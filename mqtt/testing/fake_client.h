#pragma once
// A broker and its clients in memory, for tests of the code that uses mqtt_client_interface.

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "liblog/log_interface.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/mqtt_client_settings.h"

namespace corvanis::monitoring_modules::mqtt::testing {

enum class operation { connect, subscribe, unsubscribe, publish };

// A failure as the real client raises it: failure<exceptions::not_authorized>(
// messages::not_authorized()).
template <class Exception, class Message>
std::exception_ptr failure(Message message) {
    return std::make_exception_ptr(Exception(std::move(message)));
}

// What a test sets up and reads back. The clients that factory() makes share this broker: a
// publish by one reaches the matching subscriptions of all, on the publishing thread and with no
// lock held, as the library's thread would deliver it. Copies share one broker; thread-safe.
class fake_broker {
  public:
    struct publication {
        std::string client_id;
        std::string topic;
        std::string payload;
        quality_of_service qos;
        bool retained;
    };

    fake_broker();

    // To register in a container for mqtt_client_interface, as the module registers the real one.
    // A client logs "Connected" at debug to the settings' logger; a refused one logs the
    // failure's text at error there before the factory throws it.
    std::function<std::unique_ptr<mqtt_client_interface>(mqtt_client_settings)> factory() const;

    // The next `op` of a client whose id starts with `client_id_prefix` throws `failure`
    // (connect: the client is not made). Failures queue in the order given.
    void fail_next(operation op, std::exception_ptr failure, std::string client_id_prefix = "");
    // Each `op` waits this long before it answers.
    void set_delay(operation op, std::chrono::milliseconds delay);
    void set_connected(bool connected);
    void set_connect_duration(std::int64_t milliseconds);
    // Applied to the payload of each message a client publishes; std::nullopt drops it.
    void set_route(std::function<std::optional<std::string>(std::string payload)> route);

    // Delivers to every live matching subscription; answers how many received it.
    std::size_t publish(const std::string& topic, const std::string& payload);
    // Writes a line through the fan-out of every live client.
    void log(liblog::severity level, const std::string& text);

    // Settings of the clients made, in order; without their loggers, which stay the users'.
    std::vector<mqtt_client_settings> connects() const;
    std::vector<std::string> subscribed() const;  // filters, in call order
    std::vector<std::string> unsubscribed() const;
    std::vector<publication> publications() const;  // the ones that succeeded
    std::size_t live_clients() const;

    struct state;

  private:
    std::shared_ptr<state> state_;
};

}  // namespace corvanis::monitoring_modules::mqtt::testing
