#include "tests/support/mosquitto_broker.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace corvanis::monitoring_modules::test_support {

bool mosquitto_available() {
    return !find_program("mosquitto").empty();
}

mosquitto_broker::mosquitto_broker(broker_options options)
    : options_(std::move(options)), port_(free_port()) {
    std::ofstream conf(dir_.path() / "mosquitto.conf");
    conf << "listener " << port_ << " 127.0.0.1\n"
         << "persistence false\n"
         << "log_dest file " << (dir_.path() / "mosquitto.log").string() << "\n";
    // Started as root, mosquitto drops to user "mosquitto", which cannot read our 0700 files.
    if (::geteuid() == 0) conf << "user root\n";
    if (uses_tls()) {
        const auto& tls = shared_tls_material();
        conf << "cafile " << tls.ca_certificate_file().string() << "\n"
             << "certfile "
             << (options_.server_certificate_file.empty() ? tls.server_certificate_file().string()
                                                          : options_.server_certificate_file)
             << "\n"
             << "keyfile " << tls.server_key_file().string() << "\n";
    }
    if (options_.require_client_certificate) {
        conf << "require_certificate true\nuse_identity_as_username true\n";
    }
    if (options_.users.empty()) {
        conf << "allow_anonymous true\n";
    } else {
        write_password_file();
        conf << "allow_anonymous false\npassword_file " << (dir_.path() / "passwd").string()
             << "\n";
    }
    for (const auto& line : options_.extra_config) conf << line << "\n";
    conf.close();
    start();
}

void mosquitto_broker::write_password_file() {
    const auto passwd = dir_.path() / "passwd";
    std::ofstream{passwd};
    for (const auto& [user, password] : options_.users) {
        run({"mosquitto_passwd", "-b", passwd.string(), user, password},
            dir_.path() / "mosquitto_passwd.log");
    }
}

void mosquitto_broker::set_users(std::vector<std::pair<std::string, std::string>> users) {
    if (options_.users.empty() || users.empty()) {
        throw std::logic_error("set_users needs a broker made with users");
    }
    options_.users = std::move(users);
    write_password_file();
}

void mosquitto_broker::freeze() {
    if (running() && !frozen_) ::kill(pid_, SIGSTOP);
    frozen_ = running();
}

void mosquitto_broker::thaw() {
    if (running() && frozen_) ::kill(pid_, SIGCONT);
    frozen_ = false;
}

mosquitto_broker::~mosquitto_broker() {
    stop();
}

void mosquitto_broker::start() {
    if (running()) return;
    pid_ = spawn({"mosquitto", "-c", (dir_.path() / "mosquitto.conf").string()},
                 dir_.path() / "mosquitto.out", true);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!port_accepts(port_)) {
        const bool exited = ::waitpid(pid_, nullptr, WNOHANG) == pid_;
        if (exited) pid_ = -1;
        if (exited || std::chrono::steady_clock::now() > deadline) {
            stop();
            throw std::runtime_error("mosquitto did not start on port " + std::to_string(port_) +
                                     ":\n" + log_text());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void mosquitto_broker::stop() {
    if (!running()) return;
    thaw();
    ::kill(pid_, SIGTERM);
    wait_for_exit(pid_, 5000);
    pid_ = -1;
}

std::string mosquitto_broker::uri() const {
    return (uses_tls() ? "ssl://" : "tcp://") + host() + ":" + std::to_string(port_);
}

std::string mosquitto_broker::log_text() const {
    return read_text(dir_.path() / "mosquitto.out") + read_text(dir_.path() / "mosquitto.log");
}

}  // namespace corvanis::monitoring_modules::test_support
