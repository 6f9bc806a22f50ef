#pragma once

#include <stdexcept>
#include <string>

namespace corvanis::monitoring_modules::host {

// Exit codes of tavo-probe, as monitoring-plugin hosts read them; scripts rely on them.
enum exit_code : int {
    exit_ok = 0,
    exit_warning = 1,       // the worst result was a warning
    exit_failed = 2,        // a scan reported an error, a check or notification failed
    exit_setup_failed = 3,  // unknown: module not loadable, a setting wrong, a sensor not creatable
    exit_usage = 3,         // unknown: the command line itself is malformed
};

// A failure that ends the command; what() is shown to the operator as it stands.
class host_error : public std::runtime_error {
  public:
    explicit host_error(const std::string& what, int code = exit_setup_failed)
        : std::runtime_error(what), code_(code) {}
    int code() const noexcept { return code_; }

  private:
    int code_;
};

}  // namespace corvanis::monitoring_modules::host
