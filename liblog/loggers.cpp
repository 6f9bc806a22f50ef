#include "liblog/memory_logger.h"
#include "liblog/multiplex_logger.h"

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

void multiplex_logger::add(const std::shared_ptr<log_interface>& target, int threshold) {
    if (!target) {
        return;
    }
    std::lock_guard lock(mutex_);
    targets_[target.get()] = entry{target, threshold};
}

void multiplex_logger::remove(const std::shared_ptr<log_interface>& target) {
    if (!target) {
        return;
    }
    std::lock_guard lock(mutex_);
    targets_.erase(target.get());
}

void multiplex_logger::log(severity level, const std::string& text) {
    std::lock_guard lock(mutex_);
    for (auto it = targets_.begin(); it != targets_.end();) {
        auto target = it->second.target.lock();
        if (!target) {
            it = targets_.erase(it);
            continue;
        }
        if (it->second.threshold >= to_int(level)) {
            target->log(level, text);
        }
        ++it;
    }
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
