#pragma once

#include <atomic>
#include <functional>
#include <stop_token>
#include <thread>

namespace corvanis::monitoring_modules::host {

// Turns SIGINT and SIGTERM into a stop request. Construct it on the main thread before
// any other thread starts: the signals are blocked there and in every thread started
// later (child processes must unblock them), and one watcher thread takes them.
// A second signal ends the process at once with status 130, after the last_words.
class termination_signals {
  public:
    termination_signals();
    ~termination_signals();
    termination_signals(const termination_signals&) = delete;
    termination_signals& operator=(const termination_signals&) = delete;

    std::stop_token token() const { return stop_.get_token(); }
    std::stop_source& source() { return stop_; }

  private:
    std::stop_source stop_;
    std::atomic<bool> quit_{false};
    std::thread watcher_;
};

// Clean-up that must happen even when a second signal ends the process at once: a child
// process to stop, a directory to remove. While it lives, the signal watcher runs
// `action` before it exits; the action must be bounded and must not throw.
class last_words {
  public:
    explicit last_words(std::function<void()> action);
    ~last_words();
    last_words(const last_words&) = delete;
    last_words& operator=(const last_words&) = delete;

    // Every registered action, once; for the signal watcher.
    static void speak();
};

}  // namespace corvanis::monitoring_modules::host
