#include "mqtt/sensors/roundtrip_sensor.h"

#include <chrono>
#include <future>
#include <thread>

#include "libstringutils/random_string_generator.h"
#include "mqtt/client_pool.h"
#include "mqtt/exceptions.h"
#include "mqtt/module_version.h"
#include "mqtt/poll_pacer.h"
#include "mqtt/sensors/channels.h"
#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt::sensors {

namespace tavo = libtavohelper;
using liblog::severity;
using std::chrono::system_clock;

namespace {

constexpr int round_trip_time = 0;
constexpr int publish_connection_time = 1;
constexpr int subscribe_connection_time = 2;
constexpr int state_channel = 3;
constexpr std::size_t payload_length = 1024;
constexpr auto delayed_ack_limit = std::chrono::milliseconds(200);

// What the subscription hands over to the scan; shared because the handler may
// outlive the scan by one late or duplicate delivery.
struct arrival {
    std::mutex mutex;
    bool arrived = false;  // guarded by mutex
    std::string payload;   // guarded by mutex
    std::promise<void> signal;
};

long milliseconds_since(system_clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(system_clock::now() - start).count() /
        1000000);
}

}  // namespace

roundtrip_sensor::roundtrip_sensor(int id, const tavo::settings::sensor_data_wrapper& data,
                                   std::shared_ptr<tavo::module::service_container> container)
    : sensor_base(id, data, std::move(container), {"MQTT Round Trip", module_version}) {
    using tavo::channels::channel_kind;
    channels().register_definition(
        {round_trip_time, channel_options(messages::channel_round_trip_time(), "ms")});
    channels().register_definition(
        {publish_connection_time,
         channel_options(messages::channel_publish_connection_time(), "ms")});
    channels().register_definition(
        {subscribe_connection_time,
         channel_options(messages::channel_subscribe_connection_time(), "ms")});
    auto state = channel_options(messages::channel_state(), "");
    state.lookup = "rttstate";
    channels().register_definition({state_channel, state});
    tag_ = this->container()
               ->get_or_create<libstringutils::random_string_generator_interface>()
               ->generate(3);
    check_publish_topic(settings::expand_sensorid(settings().roundtrip.topic, id, *logger()) + "_" +
                        tag_);
}

mqtt_client_settings roundtrip_sensor::client_settings(const std::string& role) const {
    auto s = settings::to_client_settings(settings());
    const std::string& id_template =
        settings().roundtrip.use_custom_settings == settings::yes_no::yes
            ? settings().roundtrip.client_id
            : std::string("KESH_%sensorid");
    s.connection.client_id =
        settings::expand_sensorid(id_template, get_id(), *logger()) + role + tag_;
    s.connection.client_id_suffix_length = 0;  // the id is unique through the tag already
    s.session.automatic_reconnect = false;     // a scan reports the broker as it finds it
    return s;
}

tavo::responses::sensor_scan_result roundtrip_sensor::work() {
    std::lock_guard scan_lock(mutex_);
    auto result = make_result();
    auto state = roundtrip_state::subscriber_could_not_connect;
    try {
        // Both connection times and the trip are the broker's only while the library's receive
        // thread keeps turning.
        const auto pacing = pace(container());
        const std::string payload =
            container()
                ->get_or_create<libstringutils::random_string_generator_interface>()
                ->generate(payload_length);
        const std::string topic =
            settings::expand_sensorid(settings().roundtrip.topic, get_id(), *logger()) + "_" + tag_;
        auto received = std::make_shared<arrival>();
        auto done = received->signal.get_future();

        auto subscriber = acquire_client(*container(), client_settings("S"), logger());
        auto subscription = std::make_shared<topic_subscription>(
            topic, quality_of_service::at_least_once,
            [received](std::shared_ptr<const received_message> message) {
                std::lock_guard lock(received->mutex);
                if (received->arrived) return;  // a duplicate delivery
                received->arrived = true;
                received->payload.assign(message->payload.begin(), message->payload.end());
                received->signal.set_value();
            },
            logger());
        subscriber->subscribe(subscription);
        const auto subscribed = std::chrono::steady_clock::now();
        result.set_value(subscribe_connection_time,
                         static_cast<long>(subscriber->get_connect_duration()));

        state = roundtrip_state::publisher_could_not_connect;
        auto publisher = acquire_client(*container(), client_settings("P"), logger());
        result.set_value(publish_connection_time,
                         static_cast<long>(publisher->get_connect_duration()));

        // The subscription is in place once subscribe returns. But a broker that batches small
        // writes holds the first message it forwards to a new subscriber until our side has
        // acknowledged the SUBACK at TCP level, which the kernel delays by 40 to 200 ms; a
        // publish sent earlier would time that wait, not the broker.
        std::this_thread::sleep_until(subscribed + delayed_ack_limit);

        state = roundtrip_state::message_not_sent;
        const auto start = system_clock::now();
        publisher->publish(topic, payload, quality_of_service::at_least_once, false);

        state = roundtrip_state::message_not_received;
        const auto timeout = std::chrono::seconds(settings().host.timeout);
        if (done.wait_for(timeout) != std::future_status::ready) {
            result.set_response_code(tavo::responses::scan_response_codes::error);
            throw exceptions::timeout(messages::timeout()("The message did not come back within " +
                                                          std::to_string(settings().host.timeout) +
                                                          " s."));
        }
        result.set_value(round_trip_time, milliseconds_since(start));
        bool intact = false;
        {
            std::lock_guard lock(received->mutex);
            intact = received->payload == payload;
        }
        if (!intact) {
            result.set_response_code(tavo::responses::scan_response_codes::error);
            throw exceptions::payload_corrupted(messages::payload_corrupted());
        }
        subscriber->unsubscribe(subscription);
        state = roundtrip_state::roundtrip_complete;
    } catch (const libi18n::i18n_exception& e) {
        log(severity::error, e.what());
        result.set_response_code(tavo::responses::scan_response_codes::error);
        result.set_response_message(e.message());
    } catch (const std::exception& e) {
        log(severity::critical, e.what());
        result.set_response_code(tavo::responses::scan_response_codes::error);
        result.set_response_message(libi18n::messages::generic()(e.what()));
    }
    result.set_value(state_channel, static_cast<long>(state));
    return result;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
