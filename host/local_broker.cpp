#include "host/local_broker.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "host/errors.h"
#include "host/signals.h"

extern char** environ;

namespace corvanis::monitoring_modules::host {

namespace {

using namespace std::chrono_literals;

// SIGTERM, then SIGKILL when it lingers; reaped either way.
void stop_process(pid_t pid) {
    kill(pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
}

bool accepts_connections(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return ok;
}

std::filesystem::path make_temp_directory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/tavo-probe-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw host_error("cannot create a temporary directory for mosquitto");
    return pattern;
}

}  // namespace

int free_local_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw host_error("cannot open a socket to find a free port");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(fd);
        throw host_error("cannot find a free port on 127.0.0.1");
    }
    close(fd);
    return ntohs(address.sin_port);
}

std::optional<std::filesystem::path> local_broker::find_mosquitto() {
    if (access("/usr/sbin/mosquitto", X_OK) == 0)
        return std::filesystem::path("/usr/sbin/mosquitto");
    const char* path = std::getenv("PATH");
    std::istringstream dirs(path != nullptr ? path : "");
    for (std::string dir; std::getline(dirs, dir, ':');) {
        const auto candidate = std::filesystem::path(dir.empty() ? "." : dir) / "mosquitto";
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

local_broker::local_broker() {
    const auto program = find_mosquitto();
    if (!program) {
        throw host_error(
            "mosquitto is not installed (Debian: apt-get install mosquitto, or run "
            "scripts/setup.sh)");
    }
    directory_ = make_temp_directory();
    // The port may be taken between the probe and the broker's bind; a second try settles that.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (!start(*program)) continue;
        emergency_ = std::make_unique<last_words>([pid = pid_, directory = directory_] {
            stop_process(pid);
            std::error_code ec;
            std::filesystem::remove_all(directory, ec);
        });
        return;
    }
    const std::string broker_log = log();
    std::filesystem::remove_all(directory_);
    throw host_error("mosquitto did not start" +
                     (broker_log.empty() ? std::string() : ":\n" + broker_log));
}

local_broker::~local_broker() {
    emergency_.reset();
    stop();
    std::error_code ec;
    std::filesystem::remove_all(directory_, ec);
}

bool local_broker::start(const std::filesystem::path& program) {
    port_ = free_local_port();
    const auto config = directory_ / "mosquitto.conf";
    {
        std::ofstream out(config);
        out << "listener " << port_ << " " << host_ << "\n"
            << "allow_anonymous true\n"
            << "persistence false\n"
            << "log_dest file " << (directory_ / "mosquitto.log").string() << "\n";
        // Run as root, mosquitto would drop to its own user and lose access to this directory.
        if (geteuid() == 0) out << "user root\n";
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // The probe blocks its termination signals for the watcher thread; a child inheriting that
    // mask would never stop at SIGTERM.
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);  // Ctrl-C at the terminal reaches tavo-probe only
    std::string program_text = program.string();
    std::string flag = "-c";
    std::string config_text = config.string();
    std::vector<char*> argv = {program_text.data(), flag.data(), config_text.data(), nullptr};
    // Its own complaints (running as root, a port in use) go to the directory, not the screen.
    const std::string output = (directory_ / "mosquitto.out").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0600);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    const int spawned =
        posix_spawn(&pid_, program_text.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        pid_ = -1;
        throw host_error("cannot start " + program_text);
    }
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return false;
        }
        if (accepts_connections(port_)) return true;
        std::this_thread::sleep_for(20ms);
    }
    stop();
    return false;
}

void local_broker::stop() {
    if (pid_ <= 0) return;
    stop_process(pid_);
    pid_ = -1;
}

std::string local_broker::log() const {
    std::ostringstream text;
    for (const char* name : {"mosquitto.out", "mosquitto.log"}) {
        std::ifstream in(directory_ / name);
        if (in) text << in.rdbuf();
    }
    return text.str();
}

}  // namespace corvanis::monitoring_modules::host
