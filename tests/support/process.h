#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace corvanis::monitoring_modules::test_support {

// Polls until the condition holds or the timeout passes; returns its last value. For waiting
// on other threads and processes, never for measuring them.
template <class Condition>
bool eventually(Condition condition,
                std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// A fresh 0700 directory under the temporary directory, removed with its content by the
// destructor.
class temp_dir {
  public:
    explicit temp_dir(const std::string& prefix = "mqtt-test");
    ~temp_dir();
    temp_dir(const temp_dir&) = delete;
    temp_dir& operator=(const temp_dir&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }

  private:
    std::filesystem::path path_;
};

// The file's content; empty when it cannot be read.
std::string read_text(const std::filesystem::path& path);

// The program's full path, searching $PATH and then the sbin directories (mosquitto lives
// there); empty when not found.
std::string find_program(const std::string& name);

// Starts argv[0] (looked up with find_program) with stdout and stderr appended to output, or
// stderr to errors when given. With die_with_parent the process gets SIGTERM when the thread
// that started it ends, so a test killed by a timeout leaves nothing running. Throws
// std::runtime_error when it cannot be started.
pid_t spawn(const std::vector<std::string>& argv, const std::filesystem::path& output,
            bool die_with_parent = false, const std::filesystem::path& errors = {});

// Runs to completion; throws std::runtime_error with the output when the exit status is not 0.
void run(const std::vector<std::string>& argv, const std::filesystem::path& output);

// The exit status once the process has ended within the timeout (SIGKILL after it, then -1;
// 128 + the signal when a signal ended it).
int wait_for_exit(pid_t pid, int timeout_ms);

// A port on 127.0.0.1 that was free a moment ago (bound to port 0, then released).
int free_port();

// True once a TCP connection to 127.0.0.1:port succeeds.
bool port_accepts(int port);

// Threads of this process.
std::size_t thread_count();
// Threads of this process, counted after one thread has come and gone: ThreadSanitizer starts
// a thread of its own at the first thread creation, which is not the code's to count.
std::size_t thread_baseline();

// Open descriptors of this process whose target contains the text (e.g. "memfd:").
std::size_t open_descriptors_matching(const std::string& text);

}  // namespace corvanis::monitoring_modules::test_support
