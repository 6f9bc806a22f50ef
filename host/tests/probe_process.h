#pragma once
// Runs tavo-probe as a child process and collects its output, for end-to-end tests.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <jsoncons/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace probe_test {

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

// A running tavo-probe. A child still running after a minute is killed, so a hang fails
// the test instead of stalling the suite.
class child {
  public:
    static constexpr auto limit = std::chrono::seconds(60);

    explicit child(const std::vector<std::string>& args) {
        int pipes[2][2];
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        for (int i = 0; i < 2; ++i) {
            if (pipe2(pipes[i], O_CLOEXEC) != 0) throw std::runtime_error("pipe");
            posix_spawn_file_actions_adddup2(&actions, pipes[i][1], i + 1);
        }
        // posix_spawn leaves the strings alone; its signature is older than const.
        std::vector<char*> argv = {const_cast<char*>(TAVO_PROBE_PATH)};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        const int failed = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        for (int i = 0; i < 2; ++i) {
            close(pipes[i][1]);
            fd_[i] = pipes[i][0];
        }
        if (failed != 0) throw std::runtime_error("cannot start tavo-probe");
    }
    ~child() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        for (const int fd : fd_) {
            if (fd >= 0) close(fd);
        }
    }

    // Reads until stdout contains `text` at or after `from`; false when the child ends first.
    bool wait_for_output(const std::string& text, std::size_t from = 0) {
        return wait_for(result_.out, text, from);
    }
    // The same for stderr.
    bool wait_for_error(const std::string& text, std::size_t from = 0) {
        return wait_for(result_.err, text, from);
    }
    // How much has been read so far, as a `from` for the waits above.
    std::size_t output_read() const { return result_.out.size(); }
    std::size_t error_read() const { return result_.err.size(); }

    void signal(int number) { kill(pid_, number); }

    outcome finish() {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        bool killed = false;
        while (pump()) {
            if (!killed && std::chrono::steady_clock::now() > deadline) {
                killed = true;
                kill(pid_, SIGKILL);
                result_.err += "\n[killed: still running after the test's limit]";
            }
        }
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        result_.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return result_;
    }

  private:
    bool wait_for(const std::string& stream, const std::string& text, std::size_t from) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (stream.find(text, from) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline || !pump()) return false;
        }
        return true;
    }

    // Reads what arrives within 200 ms; false once both streams are closed.
    bool pump() {
        if (fd_[0] < 0 && fd_[1] < 0) return false;
        pollfd fds[2] = {{fd_[0], POLLIN, 0}, {fd_[1], POLLIN, 0}};
        if (poll(fds, 2, 200) <= 0) return true;
        std::string* texts[2] = {&result_.out, &result_.err};
        for (int i = 0; i < 2; ++i) {
            if (fd_[i] < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            const auto n = read(fd_[i], buffer, sizeof buffer);
            if (n > 0) {
                texts[i]->append(buffer, static_cast<std::size_t>(n));
            } else {
                close(fd_[i]);
                fd_[i] = -1;
            }
        }
        return true;
    }

    pid_t pid_ = -1;
    int fd_[2] = {-1, -1};  // the child's stdout and stderr
    outcome result_;
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

// A fresh directory for one test's files, removed afterwards.
class scratch {
  public:
    scratch() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "tavo-probe-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
        dir_ = pattern;
    }
    ~scratch() { std::filesystem::remove_all(dir_); }
    std::string file(const std::string& name, const std::string& content) const {
        std::ofstream(dir_ / name) << content;
        return (dir_ / name).string();
    }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }

  private:
    std::filesystem::path dir_;
};

}  // namespace probe_test
