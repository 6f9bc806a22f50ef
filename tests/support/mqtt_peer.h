#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/mosquitto_broker.h"

namespace corvanis::monitoring_modules::test_support {

struct peer_message {
    std::string topic;
    std::string payload;
    int qos = 0;
};

// The other side of a system test, through mosquitto_pub and mosquitto_sub: separate
// processes, independent of the code under test and of its MQTT library. Connects with what
// the broker asks for (its first user's password, the test CA, the client certificate).
// Throws std::runtime_error when a tool fails.
class mqtt_peer {
  public:
    // Publishes under the client id when one is given; subscribers use it with "-sub<N>" appended.
    explicit mqtt_peer(const mosquitto_broker& broker, std::string client_id = {});
    ~mqtt_peer();  // stops the subscribers
    mqtt_peer(const mqtt_peer&) = delete;
    mqtt_peer& operator=(const mqtt_peer&) = delete;

    // Returns once the message has been handed to the broker (QoS 1 and 2: acknowledged).
    void publish(const std::string& topic, const std::string& payload, int qos = 1,
                 bool retained = false);
    // Starts a subscriber for the filter; returns once the broker has acknowledged it.
    void subscribe(const std::string& filter, int qos = 1);

    // Waits until the subscribers have received at least count messages in all (or the timeout
    // has passed) and returns them, each subscriber's in arrival order.
    std::vector<peer_message> wait_for_messages(std::size_t count,
                                                std::chrono::milliseconds timeout);

  private:
    // argv with the connection options the broker asks for, and the client id when one is set.
    std::vector<std::string> command(std::vector<std::string> argv,
                                     const std::string& client_id) const;
    std::vector<peer_message> received() const;

    const mosquitto_broker& broker_;
    std::string client_id_;
    temp_dir dir_{"mqtt-test-peer"};
    std::vector<pid_t> subscribers_;
    std::vector<std::filesystem::path> outputs_;
};

}  // namespace corvanis::monitoring_modules::test_support
