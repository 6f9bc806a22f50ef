#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include "liblog/log_interface.h"

namespace corvanis::monitoring_modules::liblog {

using log_lines = std::deque<std::pair<severity, std::string>>;

// Keeps every line in arrival order until cleared.
class memory_logger : public log_interface {
  public:
    void log(severity level, const std::string& text) override;
    log_lines lines() const;
    void clear();

  private:
    mutable std::mutex mutex_;
    log_lines lines_;  // guarded by mutex_
};

// Drops everything.
class null_logger : public log_interface {
  public:
    void log(severity, const std::string&) override {}
};

}  // namespace corvanis::monitoring_modules::liblog
