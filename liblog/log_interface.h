#pragma once

#include <cstdint>
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
    // The most detailed level this target keeps at the moment: a fan-out does not build or
    // walk for a line that no target keeps. A target whose answer changes calls
    // levels_changed() after the change.
    virtual int keeps_up_to() const noexcept { return to_int(severity::debug); }
};

// Some target's keeps_up_to() changed: fan-outs ask their targets again.
void levels_changed() noexcept;
std::uint64_t levels_epoch() noexcept;

}  // namespace corvanis::monitoring_modules::liblog
