#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/tls_material.h"

namespace corvanis::monitoring_modules::test_support {

struct broker_options {
    // TLS listener with the shared test certificates (server certificate for 127.0.0.1).
    bool tls = false;
    // TLS listener that refuses clients without a certificate from the test CA.
    bool require_client_certificate = false;
    // The TLS listener's certificate file when not the valid one (see tls_material).
    std::string server_certificate_file;
    // When not empty: a password file with these (user, password) pairs, no anonymous access.
    std::vector<std::pair<std::string, std::string>> users;
    // Further lines for the broker's configuration file, such as limits.
    std::vector<std::string> extra_config;
};

// True when a mosquitto binary can be found; system tests skip without one.
bool mosquitto_available();

// A mosquitto broker on 127.0.0.1 at a free port, with its files in a temporary directory of its
// own. The constructor returns once it accepts connections (std::runtime_error when it does not
// within five seconds); the destructor stops it, and so does the end of the thread that started
// it (a test killed by a timeout leaves no broker).
class mosquitto_broker {
  public:
    explicit mosquitto_broker(broker_options options = {});
    ~mosquitto_broker();
    mosquitto_broker(const mosquitto_broker&) = delete;
    mosquitto_broker& operator=(const mosquitto_broker&) = delete;

    void start();  // on the same port as before
    void stop();   // SIGTERM, waits for the exit
    bool running() const { return pid_ > 0; }
    // SIGSTOP and SIGCONT: connections stay open while the broker answers nothing.
    void freeze();
    void thaw();
    // Replaces the password file's users; the broker reads it at its next start.
    void set_users(std::vector<std::pair<std::string, std::string>> users);

    std::string host() const { return "127.0.0.1"; }
    std::int64_t port() const { return port_; }
    // "tcp://127.0.0.1:<port>" or "ssl://..." for a TLS listener.
    std::string uri() const;
    bool uses_tls() const { return options_.tls || options_.require_client_certificate; }
    const broker_options& options() const { return options_; }
    const tls_material& tls() const { return shared_tls_material(); }
    // The broker's log so far, for failure messages.
    std::string log_text() const;

  private:
    void write_password_file();

    broker_options options_;
    temp_dir dir_{"mqtt-test-broker"};
    int port_;
    pid_t pid_ = -1;
    bool frozen_ = false;
};

}  // namespace corvanis::monitoring_modules::test_support
