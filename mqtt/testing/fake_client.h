#pragma once
// A broker and its clients in memory, for tests of the code that uses mqtt_client_interface.

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "liblog/log_interface.h"
#include "liblog/memory_logger.h"
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

// The texts of a memory log's lines, in order.
std::vector<std::string> texts(const liblog::memory_logger& log);

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

    // What the broker does; tests change it through configure().
    struct behaviour {
        bool connected = true;  // what every client's is_connected answers
        std::int64_t connect_duration = 0;
        std::map<operation, std::chrono::milliseconds> delays;  // before each answer
        // Applied to each published payload on its way to subscribers; std::nullopt drops it.
        std::function<std::optional<std::string>(std::string payload)> route;
    };
    // What the clients did.
    struct record {
        // Settings of the clients made, in order; without their loggers, which stay the users'.
        std::vector<mqtt_client_settings> connects;
        std::vector<std::string> subscribed;  // filters, in call order
        std::vector<std::string> unsubscribed;
        std::vector<publication> publications;  // the ones that succeeded
        std::size_t live_clients = 0;
    };

    void configure(const std::function<void(behaviour&)>& change);
    record history() const;
    // The next `op` of a client whose id starts with `client_id_prefix` throws `failure`
    // (connect: the client is not made). Failures queue in the order given.
    void fail_next(operation op, std::exception_ptr failure, std::string client_id_prefix = "");

    // Delivers to every live matching subscription; answers how many received it.
    std::size_t publish(const std::string& topic, const std::string& payload);
    // Writes a line through the fan-out of every live client.
    void log(liblog::severity level, const std::string& text);

    struct state;

  private:
    std::shared_ptr<state> state_;
};

}  // namespace corvanis::monitoring_modules::mqtt::testing
