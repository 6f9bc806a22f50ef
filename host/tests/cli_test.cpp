// tavo-probe end to end against the test module: the command line contract that
// scripts rely on (exit codes, JSON lines, settings precedence, state, shutdown).
#include <gtest/gtest.h>

#include <fstream>
#include <jsoncons/json.hpp>

#include "host/tests/probe_process.h"

namespace {

using jsoncons::json;
using probe_test::outcome;

std::vector<std::string> with_module(std::vector<std::string> args) {
    args.insert(args.begin(), {"--module", FAKE_MODULE_PATH});
    return args;
}

outcome probe(std::vector<std::string> args, const std::vector<std::string>& env = {}) {
    return probe_test::run(with_module(std::move(args)), env);
}

std::vector<json> json_lines(const outcome& o) {
    std::vector<json> out;
    for (const auto& line : o.out_lines()) out.push_back(json::parse(line));
    return out;
}

std::string read_file(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(cli_test, scan_prints_one_json_object_per_result) {
    const auto o = probe(
        {"scan", "counter_sensor", "--id", "5", "--count", "3", "--interval", "0.01", "--json"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    const auto lines = json_lines(o);
    ASSERT_EQ(lines.size(), 3u) << o.out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto& r = lines[i];
        EXPECT_EQ(r["type"].as<std::string>(), "scan_result");
        EXPECT_EQ(r["sensor_id"].as<int>(), 5);
        EXPECT_EQ(r["kind"].as<std::string>(), "counter_sensor");
        EXPECT_EQ(r["response_code"].as<int>(), 0);
        EXPECT_FALSE(r["error"].as<bool>());
        EXPECT_EQ(r["channels"][0]["name"].as<std::string>(), "Count");
        EXPECT_EQ(r["channels"][0]["unit"].as<std::string>(), "scans");
        EXPECT_EQ(r["channels"][0]["value"].as<int>(), static_cast<int>(i + 1));
    }
}

TEST(cli_test, exit_codes_follow_the_outcome) {
    const probe_test::scratch dir;
    const struct {
        std::vector<std::string> args;
        int exit_code;
        std::string err;  // a part of stderr
    } cases[] = {
        {{"scan", "counter_sensor"}, 0, ""},
        {{"scan", "counter_sensor", "--set", "counting.counter.mode=fail"}, 2, ""},
        {{"scan", "counter_sensor", "--set", "counting.counter.mode=refuse"},
         3,
         "sensor 1 (counter_sensor) could not be created: Creation refused on purpose."},
        {{"scan", "nope_sensor"},
         3,
         "unknown sensor kind \"nope_sensor\"; the module offers: counter_sensor"},
        {{"scan", "counter_sensor", "--set", "counting.counter.nope=1"},
         3,
         "unknown setting \"counting.counter.nope\" for counter_sensor (from --set)"},
        {{"scan", "counter_sensor", "--set", "counting.counter.step=0"}, 3, "below the minimum 1"},
        {{"scan", "counter_sensor", "--set", "novalue"}, 3, "expected KEY=VALUE"},
        {{"scan", "topic_sensor"}, 3, "\"topic.subscription.filter\" (Filter) is required"},
        {{"scan", "counter_sensor", "--config", dir.path("missing.yaml")},
         3,
         "cannot read the configuration"},
        {{"check"}, 0, ""},
        {{"check", "--set", "host=unreachable.invalid"}, 2, ""},
        {{"notify", "--target", "a/b", "--message", "hi"}, 0, ""},
        {{"notify", "--target", "forbidden", "--message", "hi"}, 2, ""},
        {{"notify", "--target", "a/b", "--message", "hi", "--set", "interval=5"},
         3,
         "unknown setting \"interval\""},
        {{"describe", "--lang", "Klingon"},
         3,
         "no texts in \"Klingon\"; the module has: English, German"},
        {{"scan"}, 1, "KIND is required"},
        {{"--log-level", "9", "describe"}, 1, ""},
    };
    for (const auto& c : cases) {
        const auto o = probe(c.args);
        EXPECT_EQ(o.exit_code, c.exit_code)
            << c.args[0] << " " << (c.args.size() > 2 ? c.args[2] : "") << "\n"
            << o.err;
        EXPECT_NE(o.err.find(c.err), std::string::npos) << o.err;
    }
    const auto missing = probe_test::run({"--module", dir.path("libNothing.so"), "describe"});
    EXPECT_EQ(missing.exit_code, 3);
    EXPECT_NE(missing.err.find("cannot load the module"), std::string::npos) << missing.err;
}

TEST(cli_test, failed_scans_report_the_message_with_its_key_and_arguments) {
    const auto o =
        probe({"scan", "counter_sensor", "--set", "counting.counter.mode=fail", "--json"});
    ASSERT_EQ(o.exit_code, 2) << o.err;
    const auto r = json_lines(o).at(0);
    EXPECT_TRUE(r["error"].as<bool>());
    EXPECT_EQ(r["response_code"].as<int>(), 3);
    EXPECT_EQ(r["message"]["key"].as<std::string>(), "fake.error.failed");
    EXPECT_EQ(r["message"]["text"].as<std::string>(), "Scan 1 failed on purpose.");
    EXPECT_EQ(r["message"]["args"][0].as<std::string>(), "1");
    // Warnings reach stderr by default, debug lines only when asked for.
    EXPECT_NE(o.err.find("sensor 1 warning: scan failed on purpose"), std::string::npos) << o.err;
    EXPECT_EQ(o.err.find("debug"), std::string::npos) << o.err;
    const auto verbose = probe({"--log-level", "7", "scan", "counter_sensor"});
    EXPECT_NE(verbose.err.find("sensor 1 debug: scan"), std::string::npos) << verbose.err;
    EXPECT_NE(verbose.err.find("sensor 1 info: sensor destroyed"), std::string::npos)
        << verbose.err;
}

TEST(cli_test, settings_come_from_defaults_then_config_then_the_command_line) {
    const probe_test::scratch dir;
    const auto config = dir.file("probe.yaml", R"(
defaults:
  host: from-defaults
  access.login.user: default-user
  counting.counter.step: 2
  topic.subscription.filter: "only/for/topic/sensors"
sensors:
  - id: 1
    kind: counter_sensor
    interval: 7
    settings:
      access.login.user: sensor-user
      access.login.method: password
check:
  settings:
    access.login.user: check-user
)");
    const auto password = dir.file("password.txt", "s3cret\nline2\n");
    const auto message_of = [&](std::vector<std::string> extra) {
        std::vector<std::string> args = {"scan", "counter_sensor", "--config", config, "--json"};
        args.insert(args.end(), extra.begin(), extra.end());
        const auto o = probe(args);
        EXPECT_EQ(o.exit_code, 0) << o.err;
        return o.out_lines().empty()
                   ? std::string()
                   : json::parse(o.out_lines()[0])["message"]["text"].as<std::string>();
    };
    const auto from_config = message_of({"--set-file", "access.login.password=" + password});
    for (const auto* part :
         {"host=from-defaults;", "access.login.user=sensor-user;", "counting.counter.step=2;",
          "interval=7;", "timeout=10;", "secret:access.login.password;"}) {
        EXPECT_NE(from_config.find(part), std::string::npos) << part << " in " << from_config;
    }
    EXPECT_EQ(from_config.find("s3cret"), std::string::npos);
    EXPECT_EQ(from_config.find("topic.subscription.filter"), std::string::npos);
    const auto overridden =
        message_of({"--set", "access.login.user=cli-user", "--set", "access.login.method=none"});
    EXPECT_NE(overridden.find("access.login.user=cli-user;"), std::string::npos) << overridden;

    const auto check =
        probe({"check", "--config", config}, {"FAKE_MODULE_TRACE=" + dir.path("trace")});
    EXPECT_EQ(check.exit_code, 0) << check.err;
    EXPECT_NE(read_file(dir.path("trace")).find("access.login.user=check-user;"),
              std::string::npos);

    // A shared default that no kind has is a typo, not something to skip.
    const auto typo = dir.file("typo.yaml", "defaults:\n  hots: x\n");
    const auto o = probe({"scan", "counter_sensor", "--config", typo});
    EXPECT_EQ(o.exit_code, 3);
    EXPECT_NE(o.err.find("no sensor, check or notification has a setting \"hots\""),
              std::string::npos)
        << o.err;
}

TEST(cli_test, state_survives_a_restart_through_the_state_file) {
    const probe_test::scratch dir;
    const auto last_count = [&](std::vector<std::string> extra) {
        std::vector<std::string> args = {"scan",       "counter_sensor", "--count", "2",
                                         "--interval", "0.01",           "--json"};
        args.insert(args.end(), extra.begin(), extra.end());
        const auto o = probe(args);
        EXPECT_EQ(o.exit_code, 0) << o.err;
        return o.out_lines().empty()
                   ? -1
                   : json::parse(o.out_lines().back())["channels"][0]["value"].as<int>();
    };
    const auto state = dir.path("state.db");
    EXPECT_EQ(last_count({"--state", state}), 2);
    EXPECT_EQ(last_count({"--state", state}), 4);
    EXPECT_EQ(last_count({}), 2);
    EXPECT_EQ(last_count({"--state", state, "--id", "2"}), 2);
}

TEST(cli_test, run_scans_each_sensor_on_its_own_interval_then_cleans_up) {
    const probe_test::scratch dir;
    const auto config = dir.file("run.yaml", R"(
sensors:
  - id: 1
    kind: counter_sensor
    interval: 1
  - id: 2
    kind: counter_sensor
    interval: 60
)");
    const auto trace = dir.path("trace");
    const auto o =
        probe({"run", config, "--seconds", "2.5", "--json"}, {"FAKE_MODULE_TRACE=" + trace});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    std::map<int, int> scans;
    for (const auto& line : json_lines(o)) ++scans[line["sensor_id"].as<int>()];
    EXPECT_GE(scans[1], 2) << o.out;
    EXPECT_EQ(scans[2], 1) << o.out;
    const auto calls = read_file(trace);
    for (const auto* call :
         {"create 1\n", "create 2\n", "destroy 1\n", "destroy 2\n", "cleanup\n"}) {
        EXPECT_NE(calls.find(call), std::string::npos) << call << " missing from\n" << calls;
    }
}

TEST(cli_test, sigterm_ends_run_cleanly) {
    const probe_test::scratch dir;
    const auto config =
        dir.file("run.yaml", "sensors:\n  - id: 3\n    kind: counter_sensor\n    interval: 1\n");
    const auto trace = dir.path("trace");
    probe_test::child running(with_module({"run", config, "--json"}),
                              {"FAKE_MODULE_TRACE=" + trace});
    ASSERT_TRUE(running.wait_for_output("\"sensor_id\":3"));
    running.signal(SIGTERM);
    const auto o = running.finish();
    EXPECT_EQ(o.exit_code, 0) << o.err;
    const auto calls = read_file(trace);
    EXPECT_NE(calls.find("destroy 3\ncleanup\n"), std::string::npos) << calls;
}

TEST(cli_test, check_and_notify_print_their_documented_lines) {
    const auto check = probe({"check", "--json"});
    EXPECT_EQ(check.out, "{\"type\":\"check_result\",\"check_id\":1,\"success\":true}\n");
    const auto sent = probe({"notify", "--target", "a/b", "--message", "hi there", "--timeout", "4",
                             "--set", "host=broker.example", "--json"});
    ASSERT_EQ(sent.exit_code, 0) << sent.err;
    const auto r = json_lines(sent).at(0);
    EXPECT_EQ(r["type"].as<std::string>(), "notification_response");
    EXPECT_TRUE(r["success"].as<bool>());
    EXPECT_EQ(r["lines"][0]["severity"].as<int>(), 7);
    EXPECT_NE(
        r["lines"][0]["text"].as<std::string>().find("connect broker.example:1883 as tavo-probe-"),
        std::string::npos);
    EXPECT_NE(r["lines"][0]["text"].as<std::string>().find("within 4 s"), std::string::npos);
    EXPECT_EQ(r["lines"][1]["text"].as<std::string>(), "publish \"hi there\" to a/b");
    const auto refused = probe({"notify", "--target", "forbidden", "--message", "x", "--json"});
    EXPECT_EQ(json_lines(refused).at(0)["message"]["text"].as<std::string>(),
              "The topic is forbidden.");
}

TEST(cli_test, describe_shows_kinds_and_settings_in_the_asked_language) {
    const auto english = probe({"describe"});
    ASSERT_EQ(english.exit_code, 0) << english.err;
    for (const auto* part :
         {"counter_sensor  Counter", "counting.counter.step  Step", "default \"1\"",
          "whole number 1..100", "access.login.password  Password",
          "required, no default; text; secret; used when access.login.method = password",
          "connection.client_id"}) {
        EXPECT_NE(english.out.find(part), std::string::npos) << part;
    }
    const auto german = probe({"describe", "--lang", "German"});
    EXPECT_NE(german.out.find("counter_sensor  Zähler"), std::string::npos) << german.out;
    EXPECT_NE(german.out.find("counting.counter.step  Schrittweite"), std::string::npos);
    EXPECT_NE(german.out.find("counting.counter.mode  Mode"),
              std::string::npos);  // English where German lacks it
    const auto document = probe({"describe", "--json"});
    EXPECT_EQ(json::parse(document.out)["Revision"].as<int>(), 1);
}

TEST(cli_test, tables_are_the_default_output) {
    const auto o = probe({"scan", "counter_sensor", "--set", "counting.counter.scale=0.5"});
    ASSERT_EQ(o.exit_code, 0) << o.err;
    for (const auto* part :
         {"#1 Counter  OK", "Count     1 scans", "Scaled  0.5", "Parity    1  Odd"}) {
        EXPECT_NE(o.out.find(part), std::string::npos) << part << " in\n" << o.out;
    }
}

}  // namespace
