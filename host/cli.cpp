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

constexpr const char* footer = R"(Exit codes (the worst result of the command):
  0  ok: every result ok, the check succeeded, the notification was delivered
  1  warning: a result was a warning (a limit was passed, or the module said so)
  2  error: a result was an error, the check failed or the notification was not delivered
  3  unknown: the command line is malformed, the module cannot be loaded, a setting or the
     config is wrong, a sensor cannot be created or a result could not be had

--module, --log-level and --lang may stand anywhere on the command line.
Run "tavo-probe SUBCOMMAND --help" for the subcommand's options and examples.

Examples:
  tavo-probe demo
  tavo-probe describe statistics_sensor --lang de
  tavo-probe scan statistics_sensor --set host=broker.local --set topic='plant/#'
  tavo-probe validate plant.yaml
  tavo-probe run plant.yaml --state plant.db
  tavo-probe run plant.yaml --listen 127.0.0.1:9464 --shard 0/2)";

void add_settings_options(CLI::App& command, settings_options& settings, bool with_config) {
    command
        .add_option("--set", settings.sets,
                    "a setting, KEY=VALUE; KEY is the full key or its last part where that is "
                    "unambiguous (repeatable)")
        ->allow_extra_args(false)
        ->type_name("KEY=VALUE");
    command
        .add_option("--set-file", settings.set_files,
                    "a setting read from a file, e.g. a PEM or a password; a single line "
                    "loses its line end (repeatable)")
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
    // Subcommands hand what they do not know to the program, so the global options may
    // follow the subcommand.
    app.fallthrough();
    app.add_option("--module", global.module_path,
                   "the module library (default: libMQTT.so beside tavo-probe)")
        ->type_name("PATH");
    auto* log_option = app.add_option("--log-level", log_level,
                                      "print module log lines of severity <= N to stderr (0 "
                                      "emergency .. 7 debug; default 2: failures show once, in "
                                      "their results)")
                           ->check(CLI::Range(0, 7))
                           ->type_name("N");
    app.add_option("--lang", global.language,
                   "language of the module's texts: a name (German) or an ISO 639-1 code (de); "
                   "default: LC_ALL, LC_MESSAGES or LANG when the module has it, else English")
        ->type_name("LANGUAGE");

    std::string describe_kind;
    std::string log_format_name = "auto";
    app.add_option("--log-format", log_format_name,
                   "stderr lines: journal (\"<N>\" severity prefix), plain, or auto (journal when "
                   "stderr is the systemd journal; default)")
        ->check(CLI::IsMember({"auto", "journal", "plain"}))
        ->type_name("FORMAT");
    bool describe_json = false;
    auto* describe =
        app.add_subcommand("describe", "the sensors, the check, their settings and defaults");
    describe->add_option("KIND", describe_kind, "only this sensor kind, check or notification");
    describe->add_flag("--json", describe_json, "print the description document itself");
    describe->footer(R"(Examples:
  tavo-probe describe
  tavo-probe describe subscribe_custom_sensor
  tavo-probe describe --lang fr
  tavo-probe describe --json)");

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
    scan_command_app
        ->add_option("--format", scan.format,
                     "table (default), json, or nagios: one status line with performance data")
        ->check(CLI::IsMember({"table", "json", "nagios"}));
    double scan_wait = 0;
    auto* wait_option =
        scan_command_app
            ->add_option("--wait", scan_wait,
                         "seconds a push sensor (statistics, subscribe-custom) collects messages "
                         "before its first scan (default 5; 0 scans at once)")
            ->check(CLI::NonNegativeNumber)
            ->type_name("SECONDS");
    scan_command_app
        ->add_option("--limit", scan.limits,
                     "a bound on a channel's value, KEY one of warning_min, warning_max, "
                     "error_min, error_max (repeatable)")
        ->allow_extra_args(false)
        ->type_name("CHANNEL:KEY=VALUE");
    scan_command_app->footer(R"(Examples:
  tavo-probe scan statistics_sensor --set topic='plant/#' --count 3 --interval 10
  tavo-probe scan roundtrip_sensor --set host=broker.local --limit 'Round Trip Time:warning_max=50' \
      --limit 'Round Trip Time:error_max=500' --format nagios
  tavo-probe scan subscribe_custom_sensor --config plant.yaml --id 3 --wait 10 --json
  tavo-probe scan roundtrip_sensor --set user=probe --set-file password=probe.pass)");

    settings_options check_settings;
    bool check_json = false;
    auto* check = app.add_subcommand("check", "run the module's connect check");
    add_settings_options(*check, check_settings, true);
    check->add_flag("--json", check_json, "one JSON object per line");
    std::string check_format;
    check->add_option("--format", check_format, "table (default), json, or nagios: one status line")
        ->check(CLI::IsMember({"table", "json", "nagios"}));
    check->footer(R"(Examples:
  tavo-probe check --set host=broker.local --set credentials.connection_mqtt.port=8883
  tavo-probe check --config plant.yaml --format nagios
  tavo-probe check --set tls.active=yes --set-file ca_certificate=ca.pem --set port=8883)");

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
    notify_app->footer(R"(Examples:
  tavo-probe notify --target alerts/probe --message 'boiler too hot' --set host=broker.local
  tavo-probe notify --target t --message hi --set port=1884 --set user=probe --set-file password=p)");

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
    run_app->footer(
        R"(Each result has a state: ok, warning, error or unknown. A sensor that cannot be checked
or created is an error result at its interval and is tried again; the others run on.

SIGHUP reloads CONFIG: unchanged sensors run on untouched, changed ones are created again,
removed ones are destroyed, new ones start. A config that does not load keeps the running
set and says why on stderr.

Examples:
  tavo-probe run plant.yaml --state plant.db
  tavo-probe run plant.yaml --seconds 60 --json --log-level 6
  tavo-probe run plant.yaml --listen 127.0.0.1:9464 --shard 0/2
  kill -HUP $(pidof tavo-probe)    # after editing plant.yaml
See host/README.md for the config: nested keys, ${VAR}, KEY_file, names, limits, stale_after.)");
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
    std::string validate_config;
    auto* validate_app = app.add_subcommand(
        "validate",
        "check a config as run would load it (settings, TLS certificates and keys) without "
        "connecting");
    validate_app->add_option("CONFIG", validate_config, "YAML file with defaults: and sensors:")
        ->required()
        ->type_name("CONFIG.yaml");
    validate_app->footer(
        R"(Exit 0 when the config is valid, else 3 with each fault as FILE:LINE: reason.
Examples:
  tavo-probe validate plant.yaml
  PROBE_PASSWORD=s3cret tavo-probe validate /etc/tavo-probe/plant.yaml)");

    demo_options demo;
    double demo_seconds = 0;
    auto* demo_app = app.add_subcommand(
        "demo", "start a private mosquitto, publish demo data and watch it with every sensor");
    auto* demo_seconds_option =
        demo_app->add_option("--seconds", demo_seconds, "stop after this long")
            ->check(CLI::PositiveNumber)
            ->type_name("N");
    demo_app->add_flag("--json", demo.json, "one JSON object per line");
    demo_app->footer(R"(Examples:
  tavo-probe demo
  tavo-probe demo --seconds 30 --json
  tavo-probe demo --lang de)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // A malformed command line is a fault of the set-up, like a malformed config.
        return app.exit(e) == 0 ? exit_ok : exit_setup_failed;
    }
    set_log_format(log_format_name == "journal" ? log_format::journal
                   : log_format_name == "plain" ? log_format::plain
                                                : log_format::automatic);
    if (log_option->count() > 0) global.log_level = log_level;
    if (interval_option->count() > 0) scan.interval = scan_interval;
    if (wait_option->count() > 0) scan.wait = scan_wait;
    if (run_seconds_option->count() > 0) run.seconds = run_seconds;
    if (demo_seconds_option->count() > 0) demo.seconds = demo_seconds;

    try {
        if (shard_option->count() > 0) run.shard = parse_shard(shard_text);
        if (show_version) return version_command(global);
        if (app.get_subcommands().empty()) {
            std::cerr << "A subcommand is required\n" << app.help() << std::flush;
            return exit_usage;
        }
        if (describe->parsed()) return describe_command(global, describe_kind, describe_json);
        if (validate_app->parsed()) return validate_command(global, validate_config);
        if (scan_command_app->parsed()) return scan_command(global, scan, signals.token());
        if (check->parsed()) return check_command(global, check_settings, check_json, check_format);
        if (notify_app->parsed()) return notify_command(global, notify);
        if (run_app->parsed())
            return run_command(global, run, signals.token(), &signals.listen_for_reloads());
        if (demo_app->parsed()) return demo_command(global, demo, signals.token());
    } catch (const host_error& e) {
        log_event(3, std::string("tavo-probe: ") + e.what());
        // A monitoring-plugin host reads only the status line.
        if ((scan_command_app->parsed() && scan.format == "nagios") ||
            (check->parsed() && check_format == "nagios")) {
            std::cout << "UNKNOWN - " << e.what() << std::endl;
        }
        return e.code();
    } catch (const std::exception& e) {
        log_event(3, std::string("tavo-probe: ") + e.what());
        return exit_setup_failed;
    }
    return exit_setup_failed;
}

}  // namespace corvanis::monitoring_modules::host
