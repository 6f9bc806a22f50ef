#pragma once
// Runs tavo-probe as a child process and collects its output, for end-to-end tests.

#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <jsoncons/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"

namespace probe_test {

namespace support = corvanis::monitoring_modules::test_support;

struct outcome {
    int exit_code = -1;  // 128 + signal when killed
    std::string out;
    std::string err;

    // Each line of stdout as JSON; throws when a line is not (stdout must carry nothing else).
    std::vector<jsoncons::json> json_lines() const {
        std::vector<jsoncons::json> lines;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);)
            lines.push_back(jsoncons::json::parse(line));
        return lines;
    }
};

// A fresh directory for one test's files, removed afterwards.
class scratch {
  public:
    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(dir_.path() / name) << content;
        return path(name);
    }
    std::string path(const std::string& name) const { return (dir_.path() / name).string(); }

  private:
    support::temp_dir dir_{"tavo-probe-test"};
};

// Sets an environment variable (nullptr: unsets it) for the children started while it lives.
class environment_variable {
  public:
    environment_variable(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~environment_variable() { set(old_ ? old_->c_str() : nullptr); }

  private:
    void set(const char* value) const {
        value != nullptr ? setenv(name_, value, 1) : unsetenv(name_);
    }

    const char* name_;
    std::optional<std::string> old_;
};

// A running tavo-probe. A child still running after a minute is killed, so a hang fails
// the test instead of stalling the suite.
class child {
  public:
    static constexpr int limit_ms = 60000;

    explicit child(std::vector<std::string> args) {
        args.insert(args.begin(), TAVO_PROBE_PATH);
        pid_ = support::spawn(args, dir_.path("out"), false, dir_.path("err"));
    }
    ~child() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            support::wait_for_exit(pid_, limit_ms);
        }
    }

    // Waits until stdout contains `text` at or after `from`; false when it does not within the
    // limit.
    bool wait_for_output(const std::string& text, std::size_t from = 0) const {
        return wait_for("out", text, from);
    }
    // The same for stderr.
    bool wait_for_error(const std::string& text, std::size_t from = 0) const {
        return wait_for("err", text, from);
    }
    // How much has been written so far, as a `from` for the waits above.
    std::size_t output_read() const { return support::read_text(dir_.path("out")).size(); }
    std::size_t error_read() const { return support::read_text(dir_.path("err")).size(); }

    void signal(int number) const { ::kill(pid_, number); }

    outcome finish() {
        outcome o;
        o.exit_code = support::wait_for_exit(std::exchange(pid_, -1), limit_ms);
        o.out = support::read_text(dir_.path("out"));
        o.err = support::read_text(dir_.path("err"));
        return o;
    }

  private:
    bool wait_for(const char* stream, const std::string& text, std::size_t from) const {
        return support::eventually(
            [&] {
                return support::read_text(dir_.path(stream)).find(text, from) != std::string::npos;
            },
            std::chrono::milliseconds(limit_ms));
    }

    scratch dir_;
    pid_t pid_ = -1;
};

inline outcome run(const std::vector<std::string>& args) {
    return child(args).finish();
}

// The settings the module received for `kind`, as its debug log (--log-level 7) shows them;
// null when it shows none.
inline jsoncons::json settings_seen(const outcome& o, const std::string& kind) {
    const auto at = o.err.find("{\"kind\":\"" + kind + "\"");
    if (at == std::string::npos) return jsoncons::json::null();
    return jsoncons::json::parse(o.err.substr(at, o.err.find('\n', at) - at))["settings"];
}

}  // namespace probe_test
