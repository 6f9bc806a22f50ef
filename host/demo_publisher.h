#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace corvanis::monitoring_modules::host {

// Demo traffic: a small plant that reports JSON readings to a broker once a second,
// and listens on the notification topic so the demo can show what arrived there.
class demo_publisher {
  public:
    static constexpr const char* boiler_topic = "demo/plant/boiler";
    static constexpr const char* notification_topic = "demo/notifications";
    using receive_handler =
        std::function<void(const std::string& topic, const std::string& payload)>;

    // Connects and subscribes to the notification topic. Throws host_error.
    // `on_notification` runs on the client library's thread.
    demo_publisher(const std::string& host, int port, receive_handler on_notification);
    // Stops publishing and disconnects.
    ~demo_publisher();
    demo_publisher(const demo_publisher&) = delete;
    demo_publisher& operator=(const demo_publisher&) = delete;

    // Publishes one round now, then one every second until destruction.
    void start();

    // The readings of round `tick`, as (topic, JSON payload).
    static std::vector<std::pair<std::string, std::string>> readings(unsigned long tick);

  private:
    struct client;
    void publish_round(unsigned long tick);

    receive_handler on_notification_;
    client* client_ = nullptr;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace corvanis::monitoring_modules::host
