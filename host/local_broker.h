#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace corvanis::monitoring_modules::host {

// A private mosquitto on 127.0.0.1 at a free port, with its configuration and log in
// a temporary directory, for the demo and for tests. Anonymous clients are allowed.
class local_broker {
  public:
    // Starts the broker and waits until it accepts connections. Throws host_error
    // when mosquitto is missing or does not come up.
    local_broker();
    // Stops the broker and removes the directory; a second Ctrl-C that ends the process at
    // once does the same.
    ~local_broker();
    local_broker(const local_broker&) = delete;
    local_broker& operator=(const local_broker&) = delete;

    const std::string& host() const { return host_; }
    int port() const { return port_; }
    const std::filesystem::path& directory() const { return directory_; }
    // The broker's own log, for diagnosis.
    std::string log() const;

    // /usr/sbin/mosquitto, else the first mosquitto on PATH.
    static std::optional<std::filesystem::path> find_mosquitto();

  private:
    bool start(const std::filesystem::path& program);
    void stop();

    std::string host_ = "127.0.0.1";
    int port_ = 0;
    std::filesystem::path directory_;
    pid_t pid_ = -1;
    std::unique_ptr<class last_words> emergency_;  // stops the broker if the host quits at once
};

// A TCP port on 127.0.0.1 that was free a moment ago.
int free_local_port();

}  // namespace corvanis::monitoring_modules::host
