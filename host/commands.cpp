#include "host/commands.h"

#include <unistd.h>

#include <atomic>
#include <iostream>

#include "host/describe.h"
#include "host/errors.h"
#include "host/output.h"
#include "host/scheduler.h"
#include "host/sensor_runner.h"
#include "libtavohelper/protocol.h"

namespace corvanis::monitoring_modules::host {

namespace {

namespace protocol = libtavohelper::protocol;

tavo::wire::I18nMessage literal(const std::string& text) {
    tavo::wire::I18nMessage message;
    message.set_text(text);
    message.set_default_text(text);
    return message;
}

// Why a call brought no message: the module's code, or its silence.
tavo::wire::I18nMessage no_answer(const std::string& call, int code, const std::string& what) {
    if (code == 0) return literal("The module sent no " + what + ".");
    return literal(call + " answered " + std::to_string(code) + ": " + describe_result_code(code));
}

std::optional<probe_config> optional_config(const std::string& path) {
    if (path.empty()) return std::nullopt;
    return load_config(path);
}

int interval_setting(const settings_map& values) {
    const auto it = values.find("interval");
    return it == values.end() ? 60 : std::stoi(it->second);
}

}  // namespace

int describe_command(const global_options& global, const std::string& language, bool json) {
    probe p(global);
    if (json) {
        std::cout << p.doc().raw() << std::endl;
        return exit_ok;
    }
    if (!p.doc().has_language(language) && !p.doc().languages().empty()) {
        std::string known;
        for (const auto& l : p.doc().languages()) known += (known.empty() ? "" : ", ") + l;
        throw host_error("no texts in \"" + language + "\"; the module has: " + known);
    }
    std::cout << describe_text(p.doc(), language, p.module().api_level(), {want_color()})
              << std::flush;
    return exit_ok;
}

int scan_command(const global_options& global, const scan_options& options, std::stop_token stop) {
    const auto config = optional_config(options.settings.config);
    probe p(global, options.state);
    const auto schema = sensor_schema(p.doc(), options.kind);
    const sensor_entry* entry = config ? config->find_sensor(options.id) : nullptr;
    if (entry != nullptr && entry->kind != options.kind) {
        throw host_error(config->name + ": sensor " + std::to_string(options.id) + " is a " +
                         entry->kind + ", not a " + options.kind);
    }
    const auto values = resolve_settings(
        schema,
        settings_layers(p.doc(), config ? &*config : nullptr, entry ? &entry->settings : nullptr,
                        "sensor " + std::to_string(options.id) + " in " + options.settings.config,
                        options.settings));
    validate_settings(schema, values);
    const double interval = options.interval.value_or(interval_setting(values));

    result_printer printer(std::cout, options.json, &p.doc(), {want_color()});
    p.create_sensor(options.id, schema, values);
    std::atomic<bool> any_error = false;
    scan_scheduler scheduler(1, [&](int id) {
        const auto result = p.module().scan(id);
        if (is_error_code(result.response_code())) any_error = true;
        printer.print(result, options.kind);
    });
    scheduler.add(options.id, seconds_to_duration(interval),
                  static_cast<std::size_t>(options.count));
    scheduler.run(stop);
    p.destroy_all();
    return any_error ? exit_failed : exit_ok;
}

int check_command(const global_options& global, const settings_options& settings, bool json) {
    const auto config = optional_config(settings.config);
    probe p(global);
    const auto schema = check_schema(p.doc());
    const auto values =
        resolve_settings(schema, settings_layers(p.doc(), config ? &*config : nullptr,
                                                 config ? &config->check_settings : nullptr,
                                                 "check settings in " + settings.config, settings));
    validate_settings(schema, values);
    constexpr int check_id = 1;
    const auto outcome = p.module().check(check_id, make_block(schema, values));
    if (outcome.code == protocol::result_unknown_kind ||
        outcome.code == protocol::result_creation_failed) {
        const std::string reason = outcome.message && outcome.message->has_message()
                                       ? render_text(outcome.message->message())
                                       : describe_result_code(outcome.code);
        throw host_error("the check " + schema.kind + " could not be created: " + reason);
    }
    tavo::wire::CheckResult result;
    if (outcome.message) {
        result = *outcome.message;
    } else {
        result.set_check_id(check_id);
        *result.mutable_message() = no_answer("ExecuteCheck", outcome.code, "check result");
    }
    result_printer(std::cout, json, &p.doc(), {want_color()}).print(result, schema.kind);
    return outcome.code == 0 && result.success() ? exit_ok : exit_failed;
}

int notify_command(const global_options& global, const notify_options& options) {
    probe p(global);
    const auto schema = notification_schema(p.doc(), static_cast<int>(getpid()));
    const auto values =
        resolve_settings(schema, settings_layers(p.doc(), nullptr, nullptr, "", options.settings));
    validate_settings(schema, values);
    auto block = make_block(schema, values);
    block.mutable_notification()->set_target(options.target);
    block.mutable_notification()->set_message(options.message);
    block.mutable_notification()->set_timeout_s(options.timeout);
    constexpr int notification_id = 1;
    const auto outcome = p.module().notify(notification_id, block);
    if (outcome.code == protocol::result_unknown_kind) {
        throw host_error("the module offers no notification \"" + std::string(notification_kind) +
                         "\"");
    }
    tavo::wire::NotificationResponse response;
    if (outcome.message) {
        response = *outcome.message;
    } else {
        response.set_notification_id(notification_id);
        *response.mutable_message() =
            no_answer("ExecuteMetaScan", outcome.code, "notification response");
    }
    if (outcome.code != 0) response.set_success(false);
    result_printer(std::cout, options.json, &p.doc(), {want_color()})
        .print(response, options.target);
    return response.success() ? exit_ok : exit_failed;
}

int run_command(const global_options& global, const run_options& options, std::stop_token stop) {
    const auto config = load_config(options.config);
    if (config.sensors.empty())
        throw host_error(config.name + ": no sensors to run (sensors: is empty)");
    probe p(global, options.state);
    std::vector<planned_sensor> plan;
    for (const auto& entry : config.sensors) {
        const std::string label = config.name + ", sensor " + std::to_string(entry.id);
        try {
            plan.push_back(
                plan_sensor(p.doc(), entry.id, entry.kind,
                            settings_layers(p.doc(), &config, &entry.settings, label, {})));
        } catch (const host_error& e) {
            throw host_error(label + ": " + e.what(), e.code());
        }
    }
    result_printer printer(std::cout, options.json, &p.doc(), {want_color()});
    printer.note("Watching " + std::to_string(plan.size()) + " sensor" +
                 (plan.size() == 1 ? "" : "s") + " from " + config.name +
                 (options.seconds ? "" : "; Ctrl-C stops"));
    const run_limit limit(stop, options.seconds);
    run_sensors(p, plan, printer, limit.token());
    return exit_ok;
}

}  // namespace corvanis::monitoring_modules::host
