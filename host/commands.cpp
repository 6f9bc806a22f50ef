#include "host/commands.h"

#include <unistd.h>

#include <condition_variable>
#include <iostream>
#include <mutex>

#include "host/describe.h"
#include "host/errors.h"
#include "host/operations.h"
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

// How long a one-shot scan of a push sensor collects unless told.
constexpr double default_wait_s = 5;

output_format format_of(const std::string& format, bool json) {
    if (format == "nagios") return output_format::nagios;
    if (format == "json" || (format.empty() && json)) return output_format::json;
    return output_format::table;
}

}  // namespace

int describe_command(const global_options& global, const std::string& kind, bool json) {
    probe p(global);
    if (json) {
        std::cout << p.doc().raw() << std::endl;
        return exit_ok;
    }
    std::cout << describe_text(p.doc(), p.language(), p.module().api_level(), {want_color()}, kind)
              << std::flush;
    return exit_ok;
}

int scan_command(const global_options& global, const scan_options& options, std::stop_token stop) {
    const auto config = optional_config(options.settings.config);
    probe p(global, options.state);
    const sensor_entry* entry = config ? config->find_sensor(options.id) : nullptr;
    if (entry != nullptr && entry->kind != options.kind) {
        throw host_error(config->name + ": sensor " + std::to_string(options.id) + " is a " +
                         entry->kind + ", not a " + options.kind);
    }
    sensor_entry own{options.id, options.kind, {}, {}, {}, {}};
    if (entry != nullptr) own = *entry;
    for (const auto& text : options.limits) add_limit_option(text, own.limits);
    auto planned = plan_sensor(
        p.doc(), own,
        settings_layers(p.doc(), config ? &*config : nullptr, entry ? &entry->settings : nullptr,
                        "sensor " + std::to_string(options.id) + " in " + options.settings.config,
                        options.settings, entry ? &entry->where : nullptr));
    if (options.interval) planned.interval = seconds_to_duration(*options.interval);

    result_printer printer(std::cout, format_of(options.format, options.json), &p.doc(),
                           {want_color(), p.language()});
    sensor_runner runner(p, planned, p.language());
    const auto ready = runner.ensure_created();
    if (ready == sensor_runner::readiness::creation_failed) {
        throw host_error("sensor " + std::to_string(options.id) + " (" + options.kind +
                         ") could not be created: " + runner.failure().message->text);
    }
    // A push sensor learns only from messages, so a one-shot scan first listens a while.
    std::optional<double> collected;
    if (ready == sensor_runner::readiness::created && runner.push()) {
        const auto window = seconds_to_duration(options.wait.value_or(default_wait_s));
        if (window > std::chrono::steady_clock::duration::zero()) {
            const auto started = std::chrono::steady_clock::now();
            std::mutex mutex;
            std::condition_variable_any never;
            std::unique_lock lock(mutex);
            never.wait_for(lock, stop, window, [] { return false; });
            collected =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        }
    }
    // Nothing printed (stopped before the first scan) is unknown.
    std::string worst = "unknown";
    bool first = true;
    scan_scheduler scheduler(1, [&](int) {
        auto view = first && ready != sensor_runner::readiness::created ? runner.failure()
                                                                        : runner.next_result();
        if (first) view.collected_seconds = collected;
        worst = first ? view.state : worse_state(worst, view.state);
        first = false;
        printer.print(view, planned.limits);
    });
    scheduler.add(options.id, planned.interval, static_cast<std::size_t>(options.count));
    if (!stop.stop_requested()) scheduler.run(stop);
    p.destroy_all();
    return exit_code_of(worst);
}

int check_command(const global_options& global, const settings_options& settings, bool json,
                  const std::string& format) {
    const auto config = optional_config(settings.config);
    probe p(global);
    const auto schema = check_schema(p.doc());
    const auto values =
        resolve_settings(schema, settings_layers(p.doc(), config ? &*config : nullptr,
                                                 config ? &config->check_settings : nullptr,
                                                 "check settings in " + settings.config, settings,
                                                 config ? &config->check_where : nullptr));
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
    result_printer(std::cout, format_of(format, json), &p.doc(), {want_color(), p.language()})
        .print(result, schema.kind);
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
    if (response.success() && !shows_debug(global)) response.clear_lines();
    result_printer(std::cout, options.json, &p.doc(), {want_color(), p.language()})
        .print(response, options.target);
    return response.success() ? exit_ok : exit_failed;
}

namespace {

// The config of a run, with only this shard's sensors when sharded; throws host_error when it
// does not load or has no sensors at all.
probe_config load_run_config(const run_options& options) {
    auto config = load_config(options.config);
    if (config.sensors.empty())
        throw host_error(config.name + ": no sensors to run (sensors: is empty)");
    if (options.shard) keep_shard(config, *options.shard);
    return config;
}

// Every sensor of a config, resolved and checked; throws host_error naming the sensor.
std::vector<planned_sensor> plan_config(const probe& p, const probe_config& config) {
    std::vector<planned_sensor> plan;
    schema_cache schemas(p.doc());
    for (const auto& entry : config.sensors) {
        const std::string label = config.name + ", sensor " + std::to_string(entry.id);
        try {
            plan.push_back(plan_sensor(schemas, entry,
                                       settings_layers(p.doc(), &config, &entry.settings, label, {},
                                                       &entry.where, !plan.empty())));
        } catch (const host_error& e) {
            throw host_error(label + ": " + e.what(), e.code());
        }
    }
    return plan;
}

}  // namespace

int run_command(const global_options& global, const run_options& options, std::stop_token stop,
                reload_requests* reloads) {
    const auto config = load_run_config(options);
    probe p(global, options.state);
    auto plan = plan_config(p, config);
    result_printer printer(std::cout, options.json, &p.doc(), {want_color(), p.language()});
    printer.note("Watching " + std::to_string(plan.size()) + " sensor" +
                 (plan.size() == 1 ? "" : "s") + " from " + config.name +
                 (options.seconds ? "" : "; Ctrl-C stops"));
    status_board board;
    add_sensors(board, config, p.doc());
    const auto endpoint = serve_board(options.listen.empty() ? config.listen : options.listen,
                                      board, identify(p, options.shard));
    const run_limit limit(stop, options.seconds);
    const reload_source reload{reloads, config.name,
                               [&] { return plan_config(p, load_run_config(options)); }};
    // An empty shard still serves and waits, so the scraper sees it and a reload can fill it.
    if (plan.empty())
        printer.note("Shard " + options.shard->text() + " has no sensor of " + config.name);
    run_sensors(p, std::move(plan), printer, limit.token(), reload, &board);
    return exit_ok;
}

}  // namespace corvanis::monitoring_modules::host
