#include "host/demo_publisher.h"

#include <MQTTAsync.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>

#include "host/errors.h"

namespace corvanis::monitoring_modules::host {

namespace {

using namespace std::chrono_literals;

// Completion of one library request, waited for on the calling thread.
struct completion {
    std::promise<std::string> outcome;  // empty on success, else the reason

    static void succeeded(void* context, MQTTAsync_successData*) noexcept {
        static_cast<completion*>(context)->outcome.set_value("");
    }
    static void failed(void* context, MQTTAsync_failureData* data) noexcept {
        std::string why = "code " + std::to_string(data != nullptr ? data->code : -1);
        if (data != nullptr && data->message != nullptr) why += ": " + std::string(data->message);
        static_cast<completion*>(context)->outcome.set_value(why);
    }
    std::string wait() {
        auto future = outcome.get_future();
        if (future.wait_for(10s) != std::future_status::ready) return "no answer from the broker";
        return future.get();
    }
};

std::string number(double value, int decimals) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.*f", decimals, value);
    return buffer;
}

}  // namespace

struct demo_publisher::client {
    MQTTAsync handle = nullptr;
    receive_handler* on_notification = nullptr;

    static int arrived(void* context, char* topic, int topic_length,
                       MQTTAsync_message* message) noexcept {
        auto* self = static_cast<client*>(context);
        try {
            const std::string name =
                topic_length > 0 ? std::string(topic, static_cast<std::size_t>(topic_length))
                                 : std::string(topic);
            const std::string payload(static_cast<const char*>(message->payload),
                                      static_cast<std::size_t>(message->payloadlen));
            if (*self->on_notification) (*self->on_notification)(name, payload);
        } catch (...) {
            // Nothing may unwind into the library's thread; the demo only loses one line.
        }
        MQTTAsync_freeMessage(&message);
        MQTTAsync_free(topic);
        return 1;
    }
};

demo_publisher::demo_publisher(const std::string& host, int port, receive_handler on_notification)
    : on_notification_(std::move(on_notification)), client_(new client) {
    client_->on_notification = &on_notification_;
    const std::string uri = "tcp://" + host + ":" + std::to_string(port);
    const std::string id = "tavo-probe-demo-" + std::to_string(getpid());
    const auto fail = [&](const std::string& why) {
        if (client_->handle != nullptr) MQTTAsync_destroy(&client_->handle);
        delete client_;
        throw host_error("the demo publisher cannot reach " + uri + ": " + why);
    };
    if (MQTTAsync_create(&client_->handle, uri.c_str(), id.c_str(), MQTTCLIENT_PERSISTENCE_NONE,
                         nullptr) != MQTTASYNC_SUCCESS) {
        fail("cannot create a client");
    }
    MQTTAsync_setCallbacks(client_->handle, client_, nullptr, &client::arrived, nullptr);
    completion connected;
    MQTTAsync_connectOptions options = MQTTAsync_connectOptions_initializer;
    options.MQTTVersion = MQTTVERSION_3_1_1;
    options.cleansession = 1;
    options.keepAliveInterval = 20;
    options.onSuccess = &completion::succeeded;
    options.onFailure = &completion::failed;
    options.context = &connected;
    if (MQTTAsync_connect(client_->handle, &options) != MQTTASYNC_SUCCESS) fail("connect refused");
    if (const auto why = connected.wait(); !why.empty()) fail(why);
    completion subscribed;
    MQTTAsync_responseOptions response = MQTTAsync_responseOptions_initializer;
    response.onSuccess = &completion::succeeded;
    response.onFailure = &completion::failed;
    response.context = &subscribed;
    if (MQTTAsync_subscribe(client_->handle, notification_topic, 1, &response) !=
        MQTTASYNC_SUCCESS) {
        fail("subscribe refused");
    }
    if (const auto why = subscribed.wait(); !why.empty()) fail(why);
}

demo_publisher::~demo_publisher() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
    MQTTAsync_disconnectOptions options = MQTTAsync_disconnectOptions_initializer;
    options.timeout = 1000;
    MQTTAsync_disconnect(client_->handle, &options);
    // Give the disconnect its moment; destroy then ends whatever is left.
    for (int i = 0; i < 50 && MQTTAsync_isConnected(client_->handle); ++i)
        std::this_thread::sleep_for(20ms);
    MQTTAsync_destroy(&client_->handle);
    delete client_;
}

void demo_publisher::start() {
    thread_ = std::thread([this] {
        std::unique_lock lock(mutex_);
        for (unsigned long tick = 0; !stopping_; ++tick) {
            lock.unlock();
            publish_round(tick);
            lock.lock();
            wake_.wait_for(lock, 1s, [&] { return stopping_; });
        }
    });
}

void demo_publisher::publish_round(unsigned long tick) {
    for (const auto& [topic, payload] : readings(tick)) {
        MQTTAsync_message message = MQTTAsync_message_initializer;
        message.payload = const_cast<char*>(payload.data());
        message.payloadlen = static_cast<int>(payload.size());
        message.qos = 0;
        // Retained, so a sensor that subscribes later sees the latest reading at once.
        message.retained = 1;
        MQTTAsync_responseOptions options = MQTTAsync_responseOptions_initializer;
        MQTTAsync_sendMessage(client_->handle, topic.c_str(), &message, &options);
    }
}

std::vector<std::pair<std::string, std::string>> demo_publisher::readings(unsigned long tick) {
    const double t = static_cast<double>(tick);
    const double temperature = 71.5 + 4.0 * std::sin(t / 9.0);
    const bool heating = std::sin(t / 9.0) < 0.5;
    const std::string state = heating ? "heating" : "holding";
    return {
        {boiler_topic, "{\"temperature\": " + number(temperature, 2) +
                           ", \"pressure\": " + number(1.85 + 0.12 * std::cos(t / 7.0), 3) +
                           ", \"burner\": {\"starts\": " + std::to_string(tick / 6 + 1) +
                           ", \"state\": \"" + state + "\"}, \"status\": \"Boiler " + state +
                           " at " + number(temperature, 1) + " C\"}"},
        {"demo/plant/pump",
         "{\"rpm\": " + std::to_string(1450 + static_cast<int>(30 * std::sin(t / 4.0))) +
             ", \"flow_lpm\": " + number(118.0 + 6.0 * std::cos(t / 5.0), 1) + "}"},
        {"demo/weather/roof",
         "{\"wind_ms\": " + number(3.2 + 1.5 * std::fabs(std::sin(t / 3.0)), 1) +
             ", \"outside_c\": " + number(12.0 + std::sin(t / 30.0), 1) + "}"},
    };
}

}  // namespace corvanis::monitoring_modules::host
