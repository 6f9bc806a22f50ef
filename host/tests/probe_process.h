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
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace probe_test {

struct outcome {
    int exit_code = -1;  // 128 + signal when killed
    std::string out;
    std::string err;

    std::vector<std::string> out_lines() const {
        std::vector<std::string> lines;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }
};

// A running tavo-probe. A child still alive after `limit` is killed, so a hang fails
// the test instead of stalling the suite.
class child {
  public:
    child(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
        int out_pipe[2];
        int err_pipe[2];
        if (pipe2(out_pipe, O_CLOEXEC) != 0 || pipe2(err_pipe, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out_pipe[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err_pipe[1], 2);
        std::vector<std::string> argv_text = {TAVO_PROBE_PATH};
        argv_text.insert(argv_text.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : argv_text) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> env_text;
        for (char** e = environ; *e != nullptr; ++e) env_text.emplace_back(*e);
        env_text.insert(env_text.end(), env.begin(), env.end());
        std::vector<char*> envp;
        for (auto& e : env_text) envp.push_back(e.data());
        envp.push_back(nullptr);
        if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) {
            throw std::runtime_error("cannot start tavo-probe");
        }
        posix_spawn_file_actions_destroy(&actions);
        close(out_pipe[1]);
        close(err_pipe[1]);
        out_fd_ = out_pipe[0];
        err_fd_ = err_pipe[0];
    }
    ~child() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (out_fd_ >= 0) close(out_fd_);
        if (err_fd_ >= 0) close(err_fd_);
    }

    // Reads until stdout holds a line containing `text`; false when the child ends first.
    bool wait_for_output(const std::string& text,
                         std::chrono::seconds limit = std::chrono::seconds(60)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (result_.out.find(text) == std::string::npos) {
            if (std::chrono::steady_clock::now() > deadline || !pump(200)) return false;
        }
        return true;
    }

    void signal(int number) { kill(pid_, number); }

    outcome finish(std::chrono::seconds limit = std::chrono::seconds(60)) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        bool killed = false;
        while (pump(200)) {
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
    // False once both streams are closed.
    bool pump(int timeout_ms) {
        pollfd fds[2] = {{out_fd_, POLLIN, 0}, {err_fd_, POLLIN, 0}};
        if (out_fd_ < 0 && err_fd_ < 0) return false;
        if (poll(fds, 2, timeout_ms) <= 0) return true;
        read_into(out_fd_, fds[0].revents, result_.out);
        read_into(err_fd_, fds[1].revents, result_.err);
        return out_fd_ >= 0 || err_fd_ >= 0;
    }
    static void read_into(int& fd, short events, std::string& text) {
        if (fd < 0 || events == 0) return;
        char buffer[4096];
        const auto n = read(fd, buffer, sizeof buffer);
        if (n > 0) {
            text.append(buffer, static_cast<std::size_t>(n));
        } else {
            close(fd);
            fd = -1;
        }
    }

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int err_fd_ = -1;
    outcome result_;
};

inline outcome run(const std::vector<std::string>& args, const std::vector<std::string>& env = {}) {
    return child(args, env).finish();
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
