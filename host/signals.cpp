#include "host/signals.h"

#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>

namespace corvanis::monitoring_modules::host {

namespace {

std::mutex registry_mutex;
std::map<const last_words*, std::function<void()>> registry;  // guarded by registry_mutex

sigset_t termination_set() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

void reload_requests::post() {
    {
        std::lock_guard lock(mutex_);
        pending_ = true;
    }
    posted_.notify_all();
}

bool reload_requests::wait(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    if (!posted_.wait(lock, stop, [&] { return pending_; })) return false;
    pending_ = false;
    return true;
}

termination_signals::termination_signals() {
    const sigset_t set = termination_set();
    // Threads inherit the mask, so every thread started after this one leaves these signals to
    // the watcher: made before any other thread, it is the only one that takes them.
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    watcher_ = std::thread([this, set] {
        const timespec poll{0, 100'000'000};  // bounded, so that quit_ is seen soon
        int received = 0;
        while (!quit_.load()) {
            const int number = sigtimedwait(&set, nullptr, &poll);
            if (number < 0) continue;
            if (number == SIGHUP && reload_listened_.load()) {
                reloads_.post();
                continue;
            }
            if (++received > 1) {
                // No destructor runs after _Exit: the last words clean up what must not stay.
                last_words::speak();
                std::_Exit(130);
            }
            stop_.request_stop();
            if (isatty(STDERR_FILENO) == 1) {
                static const char text[] = "\nstopping... (press Ctrl-C again to quit at once)\n";
                [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
            }
        }
    });
}

last_words::last_words(std::function<void()> action) {
    std::lock_guard lock(registry_mutex);
    registry.emplace(this, std::move(action));
}

last_words::~last_words() {
    std::lock_guard lock(registry_mutex);
    registry.erase(this);
}

void last_words::speak() {
    std::lock_guard lock(registry_mutex);
    for (auto& [owner, action] : registry) action();
    registry.clear();
}

termination_signals::~termination_signals() {
    quit_.store(true);
    watcher_.join();
}

}  // namespace corvanis::monitoring_modules::host
