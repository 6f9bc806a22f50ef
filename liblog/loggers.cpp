#include "liblog/memory_logger.h"
#include "liblog/multiplex_logger.h"

#include <algorithm>

namespace corvanis::monitoring_modules::liblog {

void memory_logger::log(severity level, const std::string& text) {
    std::lock_guard lock(mutex_);
    lines_.emplace_back(level, text);
}

log_lines memory_logger::lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
}

void memory_logger::clear() {
    std::lock_guard lock(mutex_);
    lines_.clear();
}

namespace {
std::atomic<std::uint64_t> epoch{0};
}  // namespace

void levels_changed() noexcept {
    epoch.fetch_add(1);
}

std::uint64_t levels_epoch() noexcept {
    return epoch.load();
}

void multiplex_logger::add(const std::shared_ptr<log_interface>& target, int threshold) {
    if (!target) {
        return;
    }
    std::lock_guard lock(mutex_);
    targets_[target.get()] = entry{target, threshold};
    kept_epoch_ = ask_again;
}

void multiplex_logger::remove(const std::shared_ptr<log_interface>& target) {
    if (!target) {
        return;
    }
    std::lock_guard lock(mutex_);
    targets_.erase(target.get());
}

void multiplex_logger::log(severity level, const std::string& text) {
    if (kept_epoch_ == levels_epoch() && to_int(level) > kept_up_to_) {
        return;
    }
    std::lock_guard lock(mutex_);
    // Read before the targets are asked: a change during the walk makes the next line ask again.
    const auto asked = levels_epoch();
    int kept = -1;
    for (auto it = targets_.begin(); it != targets_.end();) {
        auto target = it->second.target.lock();
        if (!target) {
            it = targets_.erase(it);
            continue;
        }
        const int keeps = std::min(it->second.threshold, target->keeps_up_to());
        kept = std::max(kept, keeps);
        if (keeps >= to_int(level)) {
            target->log(level, text);
        }
        ++it;
    }
    kept_up_to_ = kept;
    kept_epoch_ = asked;
}

std::size_t multiplex_logger::size() const {
    std::lock_guard lock(mutex_);
    return targets_.size();
}

}  // namespace corvanis::monitoring_modules::liblog

namespace corvanis::monitoring_modules::liblog {

// Defined here so that the framework library holds the one copy of the type information.
log_interface::~log_interface() = default;

}  // namespace corvanis::monitoring_modules::liblog
