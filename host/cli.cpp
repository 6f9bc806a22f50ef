#include "host/cli.h"

#include <CLI/CLI.hpp>

#include <iostream>

#include "host/commands.h"
#include "host/errors.h"
#include "host/log_style.h"
#include "host/operations.h"
#include "host/signals.h"

namespace corvanis::monitoring_modules::host {

namespace {

constexpr const char* footer = R"(Exit codes:
  0  done; every scan without error, check succeeded, notification delivered
  1  the command line is malformed
  2  a scan reported an error, the check failed or the notification was not delivered
  3  the module cannot be loaded, a setting is wrong or a sensor cannot be created

Examples:
  tavo-probe demo
  tavo-probe describe
  tavo-probe scan statistics_sensor --set host=broker.local --set statistics.connection_statistics.topic='plant/#'
  tavo-probe run plant.yaml --state plant.db
  tavo-probe run plant.yaml --listen 127.0.0.1:9464 --shard 0/2)";

void add_settings_options(CLI::App& command, settings_options& settings, bool with_config) {
    command.add_option("--set", settings.sets, "a setting by its full key, KEY=VALUE (repeatable)")
        ->allow_extra_args(false)
        ->type_name("KEY=VALUE");
    command
        .add_option("--set-file", settings.set_files,
                    "a setting read from a file, e.g. a PEM (repeatable)")
        ->allow_extra_args(false)
        ->type_name("KEY=PATH");
    if (with_config) {
        command.add_option("--config", settings.config, "YAML file with defaults: and sensors:")
            ->type_name("FILE.yaml");
    }
}

}  // namespace

int run_cli(int argc, char** argv) {
    // Before any thread starts, so that every thread leaves the signals to the watcher.
    termination_signals signals;

    CLI::App app{
        "tavo-probe: loads a monitoring module and runs its sensors, check and notifications.",
        "tavo-probe"};
    app.footer(footer);
    // --version stands alone; any other use names a subcommand (checked after parsing).
    app.require_subcommand(0, 1);
    bool show_version = false;
    app.add_flag("--version", show_version,
                 "print the versions of tavo-probe and the module, and the module's API level");
    global_options global;
    int log_level = 4;
    app.add_option("--module", global.module_path,
                   "the module library (default: libMQTT.so beside tavo-probe)")
        ->type_name("PATH");
    auto* log_option = app.add_option("--log-level", log_level,
                                      "print module log lines of severity <= N to stderr (0 "
                                      "emergency .. 7 debug; default 4)")
                           ->check(CLI::Range(0, 7))
                           ->type_name("N");

    std::string log_format_name = "auto";
    app.add_option("--log-format", log_format_name,
                   "stderr lines: journal (\"<N>\" severity prefix), plain, or auto (journal when "
                   "stderr is the systemd journal; default)")
        ->check(CLI::IsMember({"auto", "journal", "plain"}))
        ->type_name("FORMAT");

    std::string language = "English";
    bool describe_json = false;
    auto* describe =
        app.add_subcommand("describe", "the sensors, the check, their settings and defaults");
    describe->add_option("--lang", language, "language of the texts (default English)")
        ->type_name("LANGUAGE");
    describe->add_flag("--json", describe_json, "print the description document itself");

    scan_options scan;
    double scan_interval = 0;
    auto* scan_command_app =
        app.add_subcommand("scan", "create one sensor, run its scans, print each result");
    scan_command_app->add_option("KIND", scan.kind, "sensor kind (see describe)")->required();
    scan_command_app->add_option("--id", scan.id, "sensor id (default 1)")
        ->check(CLI::PositiveNumber);
    add_settings_options(*scan_command_app, scan.settings, true);
    scan_command_app->add_option("--count", scan.count, "number of scans (default 1)")
        ->check(CLI::PositiveNumber);
    auto* interval_option =
        scan_command_app
            ->add_option("--interval", scan_interval,
                         "seconds between scans (default: the interval setting)")
            ->check(CLI::PositiveNumber)
            ->type_name("SECONDS");
    scan_command_app
        ->add_option("--state", scan.state, "SQLite file keeping the sensor's data across runs")
        ->type_name("FILE");
    scan_command_app->add_flag("--json", scan.json, "one JSON object per line");

    settings_options check_settings;
    bool check_json = false;
    auto* check = app.add_subcommand("check", "run the module's connect check");
    add_settings_options(*check, check_settings, true);
    check->add_flag("--json", check_json, "one JSON object per line");

    notify_options notify;
    auto* notify_app = app.add_subcommand("notify", "send a notification through the module");
    notify_app->add_option("--target", notify.target, "the topic to publish to")
        ->required()
        ->type_name("TOPIC");
    notify_app->add_option("--message", notify.message, "the notification text")
        ->required()
        ->type_name("TEXT");
    notify_app
        ->add_option("--timeout", notify.timeout, "seconds to wait for the broker (default 10)")
        ->type_name("SECONDS");
    add_settings_options(*notify_app, notify.settings, false);
    notify_app->add_flag("--json", notify.json, "one JSON object per line");

    run_options run;
    double run_seconds = 0;
    auto* run_app =
        app.add_subcommand("run", "run every sensor of a config on its interval until stopped");
    run_app->add_option("CONFIG", run.config, "YAML file with defaults: and sensors:")
        ->required()
        ->type_name("CONFIG.yaml");
    run_app->add_option("--state", run.state, "SQLite file keeping the sensors' data across runs")
        ->type_name("FILE");
    auto* run_seconds_option = run_app->add_option("--seconds", run_seconds, "stop after this long")
                                   ->check(CLI::PositiveNumber)
                                   ->type_name("N");
    run_app->add_flag("--json", run.json, "one JSON object per line");
    run_app
        ->add_option("--listen", run.listen,
                     "serve /metrics, /api/status and the status page on ADDR:PORT (:PORT is "
                     "127.0.0.1; default: the config's listen:)")
        ->type_name("ADDR:PORT");
    std::string shard_text;
    auto* shard_option =
        run_app
            ->add_option("--shard", shard_text,
                         "run only the sensors of shard K of N (K from 0), by a stable hash of "
                         "the id")
            ->type_name("K/N");

    demo_options demo;
    double demo_seconds = 0;
    auto* demo_app = app.add_subcommand(
        "demo", "start a private mosquitto, publish demo data and watch it with every sensor");
    auto* demo_seconds_option =
        demo_app->add_option("--seconds", demo_seconds, "stop after this long")
            ->check(CLI::PositiveNumber)
            ->type_name("N");
    demo_app->add_flag("--json", demo.json, "one JSON object per line");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? exit_ok : exit_usage;
    }
    set_log_format(log_format_name == "journal" ? log_format::journal
                   : log_format_name == "plain" ? log_format::plain
                                                : log_format::automatic);
    if (log_option->count() > 0) global.log_level = log_level;
    if (interval_option->count() > 0) scan.interval = scan_interval;
    if (run_seconds_option->count() > 0) run.seconds = run_seconds;
    if (demo_seconds_option->count() > 0) demo.seconds = demo_seconds;

    try {
        if (shard_option->count() > 0) run.shard = parse_shard(shard_text);
        if (show_version) return version_command(global);
        if (app.get_subcommands().empty()) {
            std::cerr << "A subcommand is required\n" << app.help() << std::flush;
            return exit_usage;
        }
        if (describe->parsed()) return describe_command(global, language, describe_json);
        if (scan_command_app->parsed()) return scan_command(global, scan, signals.token());
        if (check->parsed()) return check_command(global, check_settings, check_json);
        if (notify_app->parsed()) return notify_command(global, notify);
        if (run_app->parsed()) return run_command(global, run, signals.token());
        if (demo_app->parsed()) return demo_command(global, demo, signals.token());
    } catch (const host_error& e) {
        log_event(3, std::string("tavo-probe: ") + e.what());
        return e.code();
    } catch (const std::exception& e) {
        log_event(3, std::string("tavo-probe: ") + e.what());
        return exit_setup_failed;
    }
    return exit_usage;
}

}  // namespace corvanis::monitoring_modules::host
