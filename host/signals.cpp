#include "host/signals.h"

#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <ctime>

namespace corvanis::monitoring_modules::host {

namespace {

sigset_t termination_set() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

termination_signals::termination_signals() {
    const sigset_t set = termination_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    watcher_ = std::thread([this, set] {
        const timespec poll{0, 100'000'000};
        int received = 0;
        while (!quit_.load()) {
            if (sigtimedwait(&set, nullptr, &poll) < 0) continue;
            if (++received > 1) std::_Exit(130);
            stop_.request_stop();
            if (isatty(STDERR_FILENO) == 1) {
                static const char text[] = "\nstopping... (press Ctrl-C again to quit at once)\n";
                [[maybe_unused]] const auto written = write(STDERR_FILENO, text, sizeof text - 1);
            }
        }
    });
}

termination_signals::~termination_signals() {
    quit_.store(true);
    watcher_.join();
}

}  // namespace corvanis::monitoring_modules::host
