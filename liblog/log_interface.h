#pragma once

#include <string>

namespace corvanis::monitoring_modules::liblog {

// Smaller is more severe. 7 is the level of every trace line the frame writes.
enum class severity : int {
    emergency = 0,
    alert = 1,
    critical = 2,
    error = 3,
    warning = 4,
    notice = 5,
    info = 6,
    debug = 7,
};

constexpr int to_int(severity s) noexcept {
    return static_cast<int>(s);
}

// Implementations must be callable from any thread.
class log_interface {
  public:
    virtual ~log_interface();
    virtual void log(severity level, const std::string& text) = 0;
};

}  // namespace corvanis::monitoring_modules::liblog
