#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

namespace corvanis::monitoring_modules::host {

// Requests to reload the configuration (SIGHUP). Requests that come while one is being
// handled fold into one, so a burst of signals costs one more reload, not many.
class reload_requests {
  public:
    void post();
    // Blocks until a request is pending (and takes it) or `stop` is requested; true for a request.
    bool wait(std::stop_token stop);

  private:
    std::mutex mutex_;
    std::condition_variable_any posted_;
    bool pending_ = false;  // guarded by mutex_
};

// Turns SIGINT and SIGTERM into a stop request. Construct it on the main thread before
// any other thread starts: the signals are blocked there and in every thread started
// later (child processes must unblock them), and one watcher thread takes them.
// A second signal ends the process at once with status 130, after the last_words.
// SIGHUP is a reload request once someone listens for it, and a stop request until then.
class termination_signals {
  public:
    termination_signals();
    ~termination_signals();
    termination_signals(const termination_signals&) = delete;
    termination_signals& operator=(const termination_signals&) = delete;

    std::stop_token token() const { return stop_.get_token(); }
    std::stop_source& source() { return stop_; }
    // From now on SIGHUP posts here instead of stopping.
    reload_requests& listen_for_reloads() {
        reload_listened_.store(true);
        return reloads_;
    }

  private:
    std::stop_source stop_;
    std::atomic<bool> quit_{false};
    reload_requests reloads_;
    std::atomic<bool> reload_listened_{false};
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
