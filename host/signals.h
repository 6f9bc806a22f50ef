#pragma once

#include <atomic>
#include <stop_token>
#include <thread>

namespace corvanis::monitoring_modules::host {

// Turns SIGINT and SIGTERM into a stop request. Construct it on the main thread before
// any other thread starts: the signals are blocked there and in every thread started
// later (child processes must unblock them), and one watcher thread takes them.
// A second signal ends the process at once with status 130.
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

}  // namespace corvanis::monitoring_modules::host
