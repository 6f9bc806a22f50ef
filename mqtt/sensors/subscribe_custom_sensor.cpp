#include "mqtt/sensors/subscribe_custom_sensor.h"

#include <cstdio>

#include "libjsonparser/errors.h"
#include "libtavohelper/errors.h"
#include "libtimeutils/time_format.h"
#include "mqtt/client_pool.h"
#include "mqtt/exceptions.h"
#include "mqtt/module_version.h"
#include "mqtt/sensors/base64.h"
#include "mqtt/sensors/channels.h"

namespace corvanis::monitoring_modules::mqtt::messages {
std::vector<const libi18n::i18n_msg*> subscribe_custom_messages() {
    return {&channel_jsonpath_invalid(), &message_jsonpath_invalid()};
}
}  // namespace corvanis::monitoring_modules::mqtt::messages

namespace corvanis::monitoring_modules::mqtt::sensors {

namespace tavo = libtavohelper;
using liblog::severity;
using std::chrono::system_clock;
using tavo::channels::channel_kind;
using tavo::responses::sensor_scan_result;

namespace {

channel_kind kind_of(settings::channel_type type) {
    switch (type) {
        case settings::channel_type::absolute_integer:
            return channel_kind::integer;
        case settings::channel_type::absolute_float:
            return channel_kind::floating;
        case settings::channel_type::delta_counter:
            return channel_kind::counter;
    }
    return channel_kind::none;
}

// In whole seconds on both sides: the nanosecond difference of two instants centuries apart
// (a persisted time may be as old as 1677) does not fit 64 bits.
long seconds_since(system_clock::time_point then) {
    using std::chrono::floor;
    using std::chrono::seconds;
    return static_cast<long>(floor<seconds>(system_clock::now().time_since_epoch()).count() -
                             floor<seconds>(then.time_since_epoch()).count());
}

const libjsonparser::compiled_jsonpath& compiled(const libjsonparser::compiled_jsonpath& path,
                                                 const libi18n::i18n_msg& refusal) {
    if (!path.diagnosis().empty()) throw libjsonparser::exceptions::query_error(refusal);
    return path;
}

// Counters take whole numbers; the bound keeps the conversion defined.
long to_counter_value(double value) {
    constexpr double limit = 9223372036854775808.0;  // 2^63
    if (!(value < limit)) {
        char text[64];
        std::snprintf(text, sizeof text, "%f", value);
        throw libjsonparser::exceptions::conversion_error(
            libjsonparser::messages::conversion()(text, "integer"));
    }
    return static_cast<long>(value);
}

std::string format_float(double value) {
    char text[400];  // "%f" of the largest double needs 316
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

}  // namespace

// Reads through the compiled paths when the factory made the JSONPath parser, and through
// the path texts otherwise; both give the same values and exceptions.
class custom_channel_evaluator::reader {
  public:
    explicit reader(const libparser::parser_interface& parser)
        : parser_(parser),
          jsonpath_(dynamic_cast<const libjsonparser::jsonpath_parser*>(&parser)) {}

    std::string text(const libjsonparser::compiled_jsonpath& path) const {
        return jsonpath_ ? jsonpath_->query_text(path) : parser_.query_text(path.path());
    }
    std::int64_t int64(const libjsonparser::compiled_jsonpath& path) const {
        return jsonpath_ ? jsonpath_->query_int64(path) : parser_.query_int64(path.path());
    }
    double floating(const libjsonparser::compiled_jsonpath& path) const {
        return jsonpath_ ? jsonpath_->query_double(path) : parser_.query_double(path.path());
    }

  private:
    const libparser::parser_interface& parser_;
    const libjsonparser::jsonpath_parser* jsonpath_;
};

tavo::channels::dynamic_channel custom_channel_definition(
    int number, const settings::custom_channel_settings& channel) {
    return {number,
            {.key = "channel.channel_" + std::to_string(number),
             .name = channel.name,
             .unit = channel.unit,
             .kind = kind_of(channel.type),
             .scale_factor = channel.scale_factor}};
}

// ---- evaluation ------------------------------------------------------------------------

custom_channel_evaluator::custom_channel_evaluator(const channel_array& channels,
                                                   const std::string& message_path) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        if (!channels[i].active()) continue;
        const libjsonparser::compiled_jsonpath path(channels[i].jsonpath);
        channels_[i].emplace(
            channel{compiled(path, messages::channel_jsonpath_invalid()(
                                       std::to_string(i + 1), path.path(), path.diagnosis())),
                    channels[i].type});
    }
    if (!message_path.empty()) {
        const libjsonparser::compiled_jsonpath path(message_path);
        message_path_.emplace(
            compiled(path, messages::message_jsonpath_invalid()(path.path(), path.diagnosis())));
    }
}

std::string custom_channel_evaluator::evaluate(const libparser::parser_interface& payload,
                                               sensor_scan_result& result,
                                               liblog::log_interface& log, bool trace) const {
    const reader queries(payload);
    std::string errors;
    read_message(queries, result, log, trace, errors);
    for (int n = 1; n <= settings::custom_channel_count; ++n) {
        if (channels_[n - 1]) read_channel(n, queries, result, log, trace, errors);
    }
    return errors;
}

void custom_channel_evaluator::read_message(const reader& payload, sensor_scan_result& result,
                                            liblog::log_interface& log, bool trace,
                                            std::string& errors) const {
    if (!message_path_) return;
    const std::string& path = message_path_->path();
    if (trace) log.log(severity::debug, "Processing sensor message with json path: " + path);
    try {
        auto text = payload.text(*message_path_);
        if (trace) log.log(severity::debug, "Found value: " + text);
        result.set_response_message(libi18n::i18n_msg::literal(std::move(text)));
    } catch (const libi18n::i18n_exception& e) {
        log.log(severity::warning,
                "Error while processing sensor message with json path: " + path + ": " + e.what());
        errors += "Sensor Message: " + e.message().render_or_default() + " ";
    }
}

void custom_channel_evaluator::read_channel(int number, const reader& payload,
                                            sensor_scan_result& result, liblog::log_interface& log,
                                            bool trace, std::string& errors) const {
    const auto& [path, type] = *channels_[number - 1];
    const auto failed = [&](const std::string& reason, const std::string& message) {
        log.log(severity::warning, "Error while processing channel #" + std::to_string(number) +
                                       " with json path: " + path.path() + ": " + reason);
        errors += "Channel " + std::to_string(number) + ": " + message + " ";
    };
    if (trace)
        log.log(severity::debug,
                "Processing channel " + std::to_string(number) + " with json path: " + path.path());
    try {
        switch (type) {
            case settings::channel_type::absolute_integer: {
                const long value = payload.int64(path);
                if (trace) log.log(severity::debug, "Found value: " + std::to_string(value));
                result.set_value(number, value);
                break;
            }
            case settings::channel_type::absolute_float: {
                const double value = payload.floating(path);
                if (trace) log.log(severity::debug, "Found value: " + format_float(value));
                result.set_value(number, value);
                break;
            }
            case settings::channel_type::delta_counter: {
                const double value = payload.floating(path);
                if (value < 0.0) {
                    failed("Received negative value for counter channel.",
                           messages::negative_values_not_supported_by_counter_channels()
                               .default_text());
                    return;
                }
                const long whole = to_counter_value(value);
                if (trace) log.log(severity::debug, "Found value: " + std::to_string(whole));
                result.set_value(number, whole);
                break;
            }
        }
    } catch (const libi18n::i18n_exception& e) {
        failed(e.what(), e.message().render_or_default());
    }
}

// ---- sensor ----------------------------------------------------------------------------

subscribe_custom_sensor::subscribe_custom_sensor(
    int id, const tavo::settings::sensor_data_wrapper& data,
    std::shared_ptr<tavo::module::service_container> container)
    : sensor_base(id, data, std::move(container), {"MQTT Subscribe Custom", module_version}),
      evaluator_(settings().channels, settings().message_path) {
    register_channels();
    sensor_log_ = this->container()->find_instance<tavo::module::sensor_log>();
    // The filter is checked before any connection is made for it.
    subscription_ = std::make_shared<topic_subscription>(
        settings().topic, quality_of_service::exactly_once,
        [slot = slot_, log = logger(),
         sink = sensor_log_](std::shared_ptr<const received_message> message) {
            // Logged under the lock: once the line is out, no scan can miss the message.
            std::lock_guard lock(slot->mutex);
            if (sink && sink->enabled(severity::debug)) {
                log->log(severity::debug,
                         "Received on topic \"" + message->topic +
                             "\" with payload bytes: " + std::to_string(message->payload.size()) +
                             " and payload:\n" + std::string(message->payload_view()));
            }
            slot->message = std::move(message);
        },
        logger());
    client_ =
        acquire_client(*this->container(), settings::to_client_settings(settings()), logger());
    client_->subscribe(subscription_);
}

subscribe_custom_sensor::~subscribe_custom_sensor() {
    try {
        client_->unsubscribe(subscription_);
    } catch (const std::exception& e) {
        log(severity::warning, std::string("Unsubscribe failed: ") + e.what());
    }
}

bool subscribe_custom_sensor::tracing() const {
    return sensor_log_ && sensor_log_->enabled(severity::debug);
}

void subscribe_custom_sensor::register_channels() {
    if (settings().duration_since_last_message == settings::duration_since_last_message::enable) {
        log("setting up duration channel");
        channels().register_definition(
            {duration_channel,
             channel_options(messages::channel_duration_since_last_message(), "s")});
    }
    for (int n = 1; n <= settings::custom_channel_count; ++n) {
        const auto& channel = settings().channels[n - 1];
        if (channel.active()) channels().register_definition(custom_channel_definition(n, channel));
    }
}

// ---- scan ------------------------------------------------------------------------------

sensor_scan_result subscribe_custom_sensor::work() {
    // A stored result or message time would otherwise pass for news from a broker that is gone.
    client_->throw_if_disconnected();  // the last attempt's typed failure, not a bare loss
    std::shared_ptr<const received_message> message;
    {
        std::lock_guard lock(slot_->mutex);
        message.swap(slot_->message);
    }
    return message ? evaluate(*message) : restore();
}

sensor_scan_result subscribe_custom_sensor::evaluate(const received_message& message) {
    std::string payload(message.payload_view());
    if (tracing()) log("Working with message: " + payload);
    if (payload.empty()) throw exceptions::payload_empty(messages::payload_empty());
    const auto parser =
        container()->create<libparser::parser_interface, std::string>(std::move(payload));
    auto result = make_result();
    const auto errors = evaluator_.evaluate(*parser, result, *logger(), tracing());
    if (!errors.empty()) {
        auto failed = make_result();
        failed.set_response_code(tavo::responses::scan_response_codes::error);
        failed.set_response_message(libi18n::i18n_msg::literal(errors));
        return failed;
    }
    persist_result(result, message.arrival_time);
    return result;
}

// ---- persistence -----------------------------------------------------------------------

void subscribe_custom_sensor::persist_result(sensor_scan_result& result,
                                             system_clock::time_point received) {
    if (settings().retain_last_message == settings::retain_last_message::retain) {
        persist(last_sensor_result_key, base64_encode(result.serialize()));
        log("last sensor value persisted");
    }
    if (settings().duration_since_last_message == settings::duration_since_last_message::enable) {
        persist(time_of_last_message_key,
                libtimeutils::format(libtimeutils::iso8601_format, received));
        log("timestamp when the last message was received peristed");
        result.set_value(duration_channel, seconds_since(received));
    }
}

sensor_scan_result subscribe_custom_sensor::restore() {
    log("No message received during scanning interval");
    auto result = make_result();
    if (restore_last_result(result)) log("Handled retained value");
    if (restore_time_since_last_message(result)) log("Handled time since last message");
    return result;
}

bool subscribe_custom_sensor::restore_last_result(sensor_scan_result& result) {
    if (settings().retain_last_message == settings::retain_last_message::dismiss) return false;
    const auto stored = persistent().at_opt(last_sensor_result_key);
    if (!stored) {
        log("No initial message received");
        return false;
    }
    log("loading last sensor result");
    const auto bytes = base64_decode(*stored);
    if (!bytes) {
        throw tavo::utils::exceptions::message_error(
            tavo::messages::message_deserialization_failed()("ScanResult",
                                                             std::to_string(stored->size())));
    }
    result.fill_from_buffer(*bytes);
    return true;
}

bool subscribe_custom_sensor::restore_time_since_last_message(sensor_scan_result& result) {
    if (settings().duration_since_last_message == settings::duration_since_last_message::disable)
        return false;
    log("Enabled duration channel");
    const auto stored = persistent().at_opt(time_of_last_message_key);
    if (!stored) {
        log("No initial message received");
        return false;
    }
    const long seconds = seconds_since(libtimeutils::parse(*stored, libtimeutils::iso8601_format));
    log("calculated: " + std::to_string(seconds) + " seconds");
    result.set_value(duration_channel, seconds);
    return true;
}

}  // namespace corvanis::monitoring_modules::mqtt::sensors
