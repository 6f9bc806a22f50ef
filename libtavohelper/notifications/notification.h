#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libi18n/i18n_msg.h"
#include "liblog/memory_logger.h"

namespace corvanis::monitoring_modules::libtavohelper {
namespace settings {
class sensor_data_wrapper;
}

namespace notifications {

// What the host asks a notification service to send.
class request {
  public:
    request(std::string target, std::string message, std::uint32_t timeout_s)
        : target_(std::move(target)), message_(std::move(message)), timeout_s_(timeout_s) {}
    std::string get_target() const { return target_; }
    std::string get_message() const { return message_; }
    std::uint32_t get_timeout_s() const { return timeout_s_; }

  private:
    std::string target_;
    std::string message_;
    std::uint32_t timeout_s_;
};

// The answer to one notification: the log lines gathered while sending it.
class response {
  public:
    explicit response(const liblog::log_lines& lines) : lines_(lines) {}
    void set_id(int id) { id_ = id; }
    void set_failure(libi18n::i18n_msg message) {
        success_ = false;
        failure_ = std::move(message);
    }
    bool success() const { return success_; }
    const liblog::log_lines& lines() const { return lines_; }
    // A whole module message ready for the host callback.
    std::vector<char> serialize() const;

  private:
    int id_ = 0;
    bool success_ = true;
    libi18n::i18n_msg failure_;
    liblog::log_lines lines_;
};

// A module's notification service. Called on a host thread; it may throw, and the
// dispatcher then reports the failure to the host with the lines logged so far.
class service_interface {
  public:
    virtual ~service_interface();
    // `log` collects the lines that go back to the host with the response.
    virtual void send_notification(const request& req,
                                   const settings::sensor_data_wrapper& settings,
                                   const std::shared_ptr<liblog::log_interface>& log) = 0;
};

}  // namespace notifications
}  // namespace corvanis::monitoring_modules::libtavohelper
