#include "mqtt/sensors/statistics_sensor.h"

#include "mqtt/client_pool.h"
#include "mqtt/exceptions.h"
#include "mqtt/module_version.h"
#include "mqtt/sensors/channels.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

namespace tavo = libtavohelper;
using liblog::severity;

statistics_sensor::statistics_sensor(int id, const tavo::settings::sensor_data_wrapper& data,
                                     std::shared_ptr<tavo::module::service_container> container)
    : sensor_base(id, data, std::move(container), {"MQTT Statistics", module_version}) {
    channels().register_definition(
        {0, channel_options(messages::channel_count_messages_received(), "#")});
    channels().register_definition(
        {1, channel_options(messages::channel_bytes_payload_received(), "bytes")});
    channels().register_definition({2, channel_options(messages::channel_active_topics(), "#")});

    client_ =
        acquire_client(*this->container(), settings::to_client_settings(settings()), logger());
    // The handler holds the counters, not the sensor: the library's thread may still deliver
    // while the sensor is being destroyed.
    subscription_ = std::make_shared<topic_subscription>(
        settings().topic, quality_of_service::exactly_once,
        [counters = counters_, log = logger()](std::shared_ptr<const received_message> message) {
            log->log(severity::debug,
                     "Received on topic \"" + message->topic +
                         "\" with payload bytes: " + std::to_string(message->payload.size()));
            counters->messages.fetch_add(1);
            counters->bytes.fetch_add(message->payload.size());
            std::lock_guard lock(counters->topics_mutex);
            counters->topics.insert(message->topic);
        },
        logger());
    client_->subscribe(subscription_);
}

statistics_sensor::~statistics_sensor() {
    try {
        client_->unsubscribe(subscription_);
    } catch (const std::exception& e) {
        log(severity::warning, std::string("Unsubscribe failed: ") + e.what());
    }
}

tavo::responses::sensor_scan_result statistics_sensor::work() {
    client_->throw_if_disconnected();  // a failed scan leaves the counts for the next one
    // Each count is taken and reset on its own; a message arriving between them may show in
    // one count now and in the others at the next scan, but is never lost.
    const auto messages = counters_->messages.exchange(0);
    const auto bytes = counters_->bytes.exchange(0);
    std::size_t topics = 0;
    {
        std::lock_guard lock(counters_->topics_mutex);
        topics = counters_->topics.size();
        counters_->topics.clear();
    }
    log("Number of message received: " + std::to_string(messages));
    log("Number of payload bytes received: " + std::to_string(bytes));
    log("Number of active topics: " + std::to_string(topics));

    auto result = make_result();
    result.set_value(0, static_cast<long>(messages));
    result.set_value(1, static_cast<long>(bytes));
    result.set_value(2, static_cast<long>(topics));
    return result;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
