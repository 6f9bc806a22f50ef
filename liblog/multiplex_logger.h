#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "liblog/log_interface.h"

namespace corvanis::monitoring_modules::liblog {

// Fans each line out to weakly held targets whose threshold admits it (a target
// with threshold T receives lines of severity <= T). Targets that have gone away
// are pruned by the next log call. A target must never log back into this logger:
// targets are called with the mutex held. A line that no target keeps returns at once,
// without the walk: with thousands of targets the walk is what costs.
class multiplex_logger : public log_interface {
  public:
    // Adding a target again replaces its threshold. Empty pointers are ignored.
    void add(const std::shared_ptr<log_interface>& target, int threshold = to_int(severity::debug));
    void remove(const std::shared_ptr<log_interface>& target);
    void log(severity level, const std::string& text) override;
    std::size_t size() const;

  private:
    struct entry {
        std::weak_ptr<log_interface> target;
        int threshold;
    };
    static constexpr std::uint64_t ask_again = ~std::uint64_t{0};
    mutable std::mutex mutex_;
    std::map<const log_interface*, entry> targets_;  // guarded by mutex_
    // The most detailed level any target kept at the last walk, valid while the levels'
    // epoch is the one recorded; add() resets the record.
    std::atomic<int> kept_up_to_{to_int(severity::debug)};
    std::atomic<std::uint64_t> kept_epoch_{ask_again};
};

}  // namespace corvanis::monitoring_modules::liblog
