#include "tests/support/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace corvanis::monitoring_modules::test_support {

namespace fs = std::filesystem;

temp_dir::temp_dir(const std::string& prefix) {
    std::string pattern = (fs::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    path_ = pattern;
}

temp_dir::~temp_dir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string read_text(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string find_program(const std::string& name) {
    std::stringstream dirs(std::string(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "") +
                           ":/usr/sbin:/usr/local/sbin:/sbin");
    for (std::string dir; std::getline(dirs, dir, ':');) {
        const auto candidate = fs::path(dir) / name;
        if (!dir.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

pid_t spawn(const std::vector<std::string>& argv, const fs::path& output, bool die_with_parent,
            const fs::path& errors) {
    const std::string program = find_program(argv.at(0));
    if (program.empty()) throw std::runtime_error(argv[0] + " not found");
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    // Everything the child needs is prepared: between fork and exec it only makes calls that are
    // safe in a copy of a multi-threaded process.
    const pid_t parent = ::getpid();
    constexpr int append = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    const int out = ::open(output.c_str(), append, 0600);
    const int err = errors.empty() ? out : ::open(errors.c_str(), append, 0600);
    const int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const pid_t pid = out < 0 || err < 0 || in < 0 ? -1 : ::fork();
    if (pid == 0) {
        if (die_with_parent) {
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (::getppid() != parent) ::_exit(127);
        }
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        ::execv(program.c_str(), args.data());
        ::_exit(127);
    }
    for (const int fd : {out, err == out ? -1 : err, in}) {
        if (fd >= 0) ::close(fd);
    }
    if (pid < 0) throw std::runtime_error("cannot start " + program);
    return pid;
}

int wait_for_exit(pid_t pid, int timeout_ms) {
    int status = 0;
    if (!eventually([&] { return ::waitpid(pid, &status, WNOHANG) != 0; },
                    std::chrono::milliseconds(timeout_ms))) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void run(const std::vector<std::string>& argv, const fs::path& output) {
    if (wait_for_exit(spawn(argv, output), 30000) != 0) {
        throw std::runtime_error(argv[0] + " failed: " + read_text(output));
    }
}

namespace {
// A TCP socket and the address 127.0.0.1:port; -1 when no socket could be made.
int loopback_socket(int port, sockaddr_in& address) {
    address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}
}  // namespace

int free_port() {
    sockaddr_in address;
    const int fd = loopback_socket(0, address);
    socklen_t length = sizeof(address);
    const bool ok = fd >= 0 &&
                    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    if (fd >= 0) ::close(fd);
    if (!ok) throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

bool port_accepts(int port) {
    sockaddr_in address;
    const int fd = loopback_socket(port, address);
    const bool ok =
        fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    if (fd >= 0) ::close(fd);
    return ok;
}

std::size_t thread_count() {
    const fs::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

std::size_t thread_baseline() {
    std::thread([] {}).join();
    // A joined thread's task can still be listed for a moment after join returns (the kernel
    // wakes the joiner before it removes the task), so wait until the count holds still.
    std::size_t count = thread_count();
    int steady = 0;
    for (int i = 0; i < 1000 && steady < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const auto now = thread_count();
        steady = now == count ? steady + 1 : 0;
        count = now;
    }
    return count;
}

std::size_t open_descriptors_matching(const std::string& text) {
    std::size_t count = 0;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd", ec)) {
        const auto target = fs::read_symlink(entry.path(), ec);
        if (!ec && target.string().find(text) != std::string::npos) ++count;
    }
    return count;
}

}  // namespace corvanis::monitoring_modules::test_support
