#include <iostream>

#include "host/commands.h"
#include "host/demo_publisher.h"
#include "host/errors.h"
#include "host/local_broker.h"
#include "host/output.h"
#include "host/sensor_runner.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr int demo_interval_s = 3;
constexpr int demo_timeout_s = 5;

settings_layer demo_layer(std::vector<setting_pair> values) {
    return {"the demo", std::move(values), false};
}

// Three channels and a message from the boiler's JSON, and the time since its last reading.
std::vector<setting_pair> boiler_channels() {
    const std::string g = "subscribe_custom.connection_subscribe_custom.";
    return {
        {g + "topic", demo_publisher::boiler_topic},
        {g + "message_path", "$.status"},
        {g + "duration_since_last_message", "enable"},
        {g + "retain_last_message", "retain"},
        {g + "channel1_jsonpath", "$.temperature"},
        {g + "channel1_name", "Boiler Temperature"},
        {g + "channel1_unit", "°C"},
        {g + "channel1_type", "absolute_float"},
        {g + "channel2", "enable"},
        {g + "channel2_jsonpath", "$.pressure"},
        {g + "channel2_name", "Boiler Pressure"},
        {g + "channel2_unit", "bar"},
        {g + "channel2_type", "absolute_float"},
        {g + "channel3", "enable"},
        {g + "channel3_jsonpath", "$.burner.starts"},
        {g + "channel3_name", "Burner Starts"},
        {g + "channel3_type", "absolute_integer"},
    };
}

}  // namespace

int demo_command(const global_options& global, const demo_options& options, std::stop_token stop) {
    const auto info = [&](const std::string& text) {
        (options.json ? std::cerr : std::cout) << text << std::endl;
    };
    const local_broker broker;
    probe p(global);
    result_printer printer(std::cout, options.json, &p.doc(), {want_color(), p.language()});

    const std::vector<setting_pair> broker_settings = {
        {"host", broker.host()},
        {"credentials.connection_mqtt.port", std::to_string(broker.port())},
        {"interval", std::to_string(demo_interval_s)},
        {"timeout", std::to_string(demo_timeout_s)},
    };
    std::vector<planned_sensor> plan;
    const auto plan_one = [&](int id, const std::string& kind, std::vector<setting_pair> own) {
        plan.push_back(plan_sensor(p.doc(), id, kind,
                                   {demo_layer(broker_settings), demo_layer(std::move(own))}));
    };
    plan_one(1, "statistics_sensor", {{"statistics.connection_statistics.topic", "demo/#"}});
    plan_one(2, "subscribe_custom_sensor", boiler_channels());
    plan_one(3, "roundtrip_sensor", {});

    info("tavo-probe demo: mosquitto listening on " + broker.host() + ":" +
         std::to_string(broker.port()) + " (a private broker, gone when the demo ends)");
    demo_publisher publisher(
        broker.host(), broker.port(), [&](const std::string& topic, const std::string& payload) {
            printer.note(clock_now() + "  Received on " + topic + ": \"" + payload + "\"");
        });
    publisher.start();
    info(
        "Publishing plant readings to demo/plant/boiler, demo/plant/pump and demo/weather/roof "
        "every second.");
    info("Sensors every " + std::to_string(demo_interval_s) +
         " s: #1 MQTT Statistics on demo/#, #2 MQTT Subscribe Custom on demo/plant/boiler, #3 MQTT "
         "Round Trip." +
         (options.seconds ? "" : " Ctrl-C stops."));
    info("");

    const auto check = check_schema(p.doc());
    const auto check_values = resolve_settings(check, {demo_layer(broker_settings)});
    const auto check_outcome = p.module().check(1, make_block(check, check_values));
    if (check_outcome.message) printer.print(*check_outcome.message, check.kind);

    const auto notification = notification_schema(p.doc(), 0);
    auto values = resolve_settings(
        notification,
        {demo_layer({{"host", broker.host()},
                     {"credentials.connection_mqtt.port", std::to_string(broker.port())},
                     {"connection.client_id", "tavo-probe-demo-notification"}})});
    auto block = make_block(notification, values);
    block.mutable_notification()->set_target(demo_publisher::notification_topic);
    block.mutable_notification()->set_message("tavo-probe demo is watching this broker");
    block.mutable_notification()->set_timeout_s(demo_timeout_s);
    if (auto sent = p.module().notify(1, block); sent.message) {
        if (sent.message->success() && !shows_debug(global)) sent.message->clear_lines();
        printer.print(*sent.message, demo_publisher::notification_topic);
    }

    const run_limit limit(stop, options.seconds);
    run_sensors(p, plan, printer, limit.token());
    info("Sensors destroyed; cleaning up the module and stopping the broker.");
    return exit_ok;
}

}  // namespace corvanis::monitoring_modules::host
