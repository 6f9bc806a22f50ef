#include "tests/support/fault_proxy.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <list>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace corvanis::monitoring_modules::test_support {

namespace {

constexpr std::uint8_t subscribe_type = 8;
constexpr std::uint8_t suback_type = 9;
constexpr std::uint8_t no_type = 0xff;  // matches no packet: the scan only keeps boundaries

void close_fd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

bool send_all(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const auto sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

int connect_to(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return -1;
    int fd = -1;
    for (auto* a = found; a != nullptr && fd < 0; a = a->ai_next) {
        fd = ::socket(a->ai_family, a->ai_socktype, a->ai_protocol);
        if (fd >= 0 && ::connect(fd, a->ai_addr, a->ai_addrlen) != 0) close_fd(fd);
    }
    ::freeaddrinfo(found);
    return fd;
}

// Finds packet starts in one direction's byte stream: type byte, remaining length, body.
class header_scanner {
  public:
    // Offset of the first byte in the chunk that starts a packet of the type, or -1. With
    // refuse, every SUBACK return code passed on the way becomes 0x80 (failure).
    long find(char* data, std::size_t size, std::uint8_t type, bool refuse = false) {
        for (std::size_t i = 0; i < size; ++i) {
            const auto byte = static_cast<std::uint8_t>(data[i]);
            switch (stage_) {
                case stage::type:
                    if ((byte >> 4) == type) return static_cast<long>(i);
                    current_ = static_cast<std::uint8_t>(byte >> 4);
                    offset_ = 0;
                    stage_ = stage::length;
                    remaining_ = 0;
                    multiplier_ = 1;
                    break;
                case stage::length:
                    remaining_ += (byte & 0x7fU) * multiplier_;
                    multiplier_ *= 128;
                    if ((byte & 0x80U) == 0) stage_ = remaining_ == 0 ? stage::type : stage::body;
                    break;
                case stage::body: {
                    const auto skip = std::min<std::size_t>(remaining_, size - i);
                    for (std::size_t k = 0; refuse && current_ == suback_type && k < skip; ++k) {
                        if (offset_ + k >= 2) data[i + k] = '\x80';  // after the packet id
                    }
                    offset_ += skip;
                    remaining_ -= skip;
                    i += skip - 1;
                    if (remaining_ == 0) stage_ = stage::type;
                    break;
                }
            }
        }
        return -1;
    }

  private:
    enum class stage { type, length, body };
    stage stage_ = stage::type;
    std::uint8_t current_ = 0;
    std::size_t offset_ = 0;  // into the current packet's body
    std::size_t remaining_ = 0;
    std::size_t multiplier_ = 1;
};

struct connection {
    int client = -1;
    int upstream = -1;                // -1: silent
    header_scanner scanner;           // client to broker
    header_scanner upstream_scanner;  // broker to client
    bool closed = false;

    void close() {
        close_fd(client);
        close_fd(upstream);
        closed = true;
    }
};

}  // namespace

struct fault_proxy::state {
    enum class cut_rule { none, next, every };

    std::string target_host;
    int target_port = 0;
    int listener = -1;
    int port = 0;
    int wake[2] = {-1, -1};

    mutable std::mutex mutex;
    bool stop = false;                           // guarded by mutex
    bool silent = false;                         // guarded by mutex
    bool refuse_subscriptions = false;           // guarded by mutex
    cut_rule cut_on_subscribe = cut_rule::none;  // guarded by mutex
    std::list<connection> connections;           // guarded by mutex
    std::size_t accepted = 0;                    // guarded by mutex
    std::size_t cut_on_packet = 0;               // guarded by mutex
    std::thread thread;

    void notify() const {
        const char byte = 1;
        static_cast<void>(::write(wake[1], &byte, 1));
    }

    void run() {
        std::vector<pollfd> fds;
        std::vector<connection*> owners;  // parallel to fds; nullptr for listener and wake pipe
        while (true) {
            {
                std::lock_guard lock(mutex);
                if (stop) return;
                fds.assign({{listener, POLLIN, 0}, {wake[0], POLLIN, 0}});
                owners.assign(2, nullptr);
                for (auto& c : connections) {
                    if (c.upstream < 0) continue;  // silent: left unread
                    fds.push_back({c.client, POLLIN, 0});
                    owners.push_back(&c);
                    fds.push_back({c.upstream, POLLIN, 0});
                    owners.push_back(&c);
                }
            }
            ::poll(fds.data(), fds.size(), -1);
            std::lock_guard lock(mutex);
            if (stop) return;
            if (fds[1].revents != 0) {
                char drain[64];
                static_cast<void>(::read(wake[0], drain, sizeof drain));
            }
            for (std::size_t i = 2; i < fds.size(); ++i) {
                auto* c = owners[i];
                // A command may have closed it meanwhile: the pointer is then stale.
                if (fds[i].revents == 0 || !is_open(c)) continue;
                read_from(*c, fds[i].fd == c->client);
            }
            std::erase_if(connections, [](const connection& c) { return c.closed; });
            if (fds[0].revents & POLLIN) accept_one();
        }
    }

    bool is_open(const connection* wanted) const {
        return std::any_of(connections.begin(), connections.end(),
                           [&](const connection& c) { return &c == wanted && !c.closed; });
    }

    void read_from(connection& c, bool from_client) {
        char buffer[16384];
        const int fd = from_client ? c.client : c.upstream;
        const auto got = ::recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            c.close();
            return;
        }
        auto size = static_cast<std::size_t>(got);
        bool cut_now = false;
        if (from_client && cut_on_subscribe != cut_rule::none) {
            const long at = c.scanner.find(buffer, size, subscribe_type);
            if (at >= 0) {
                size = static_cast<std::size_t>(at);
                cut_now = true;
                if (cut_on_subscribe == cut_rule::next) cut_on_subscribe = cut_rule::none;
                ++cut_on_packet;
            }
        } else if (from_client) {
            c.scanner.find(buffer, size, no_type);
        } else {
            c.upstream_scanner.find(buffer, size, no_type, refuse_subscriptions);
        }
        if (size > 0 && !send_all(from_client ? c.upstream : c.client, buffer, size)) c.close();
        if (cut_now) c.close();
    }

    void accept_one() {
        const int client = ::accept(listener, nullptr, nullptr);
        if (client < 0) return;
        ++accepted;
        connection c;
        c.client = client;
        if (!silent) {
            c.upstream = connect_to(target_host, target_port);
            if (c.upstream < 0) {
                c.close();
                return;
            }
        }
        connections.push_back(std::move(c));
    }
};

fault_proxy::fault_proxy(std::string target_host, int target_port, int listen_port)
    : state_(std::make_unique<state>()) {
    auto& s = *state_;
    s.target_host = std::move(target_host);
    s.target_port = target_port;
    s.listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int yes = 1;
    ::setsockopt(s.listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(listen_port));
    socklen_t length = sizeof address;
    if (s.listener < 0 ||
        ::bind(s.listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(s.listener, 64) != 0 ||
        ::getsockname(s.listener, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe(s.wake) != 0) {
        const std::string reason = std::strerror(errno);
        close_fd(s.listener);
        throw std::runtime_error("fault_proxy cannot listen on port " +
                                 std::to_string(listen_port) + ": " + reason);
    }
    s.port = ntohs(address.sin_port);
    s.thread = std::thread([&s] { s.run(); });
}

fault_proxy::~fault_proxy() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stop = true;
    }
    state_->notify();
    state_->thread.join();
    for (auto& c : state_->connections) c.close();
    close_fd(state_->listener);
    close_fd(state_->wake[0]);
    close_fd(state_->wake[1]);
}

int fault_proxy::port() const {
    return state_->port;
}

void fault_proxy::pass() {
    std::lock_guard lock(state_->mutex);
    state_->silent = false;
    state_->refuse_subscriptions = false;
    state_->cut_on_subscribe = state::cut_rule::none;
    state_->notify();
}

void fault_proxy::cut() {
    std::lock_guard lock(state_->mutex);
    for (auto& c : state_->connections) c.close();
    state_->notify();
}

void fault_proxy::cut_on_subscribe(bool every) {
    std::lock_guard lock(state_->mutex);
    state_->cut_on_subscribe = every ? state::cut_rule::every : state::cut_rule::next;
}

void fault_proxy::refuse_subscriptions() {
    std::lock_guard lock(state_->mutex);
    state_->refuse_subscriptions = true;
}

void fault_proxy::silent() {
    std::lock_guard lock(state_->mutex);
    state_->silent = true;
}

std::size_t fault_proxy::accepted() const {
    std::lock_guard lock(state_->mutex);
    return state_->accepted;
}

std::size_t fault_proxy::cut_on_packet_count() const {
    std::lock_guard lock(state_->mutex);
    return state_->cut_on_packet;
}

int run_fault_proxy_cli(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: fault_proxy LISTEN_PORT TARGET_HOST TARGET_PORT\n";
        return 2;
    }
    try {
        fault_proxy proxy(argv[2], std::stoi(argv[3]), std::stoi(argv[1]));
        std::cout << "ready " << proxy.port() << std::endl;
        std::string line;
        while (std::getline(std::cin, line)) {
            std::istringstream words(line);
            std::string command;
            std::string argument;
            std::string extra;
            words >> command >> argument >> extra;
            if (command == "pass" && argument.empty()) {
                proxy.pass();
            } else if (command == "cut" && argument.empty()) {
                proxy.cut();
            } else if (command == "cut-on" && argument == "subscribe" &&
                       (extra.empty() || extra == "all")) {
                proxy.cut_on_subscribe(extra == "all");
            } else if (command == "refuse" && argument == "subscribe" && extra.empty()) {
                proxy.refuse_subscriptions();
            } else if (command == "silent" && argument.empty()) {
                proxy.silent();
            } else {
                std::cout << "error unknown command: " << line << std::endl;
                continue;
            }
            std::cout << "ok" << std::endl;
        }
        return 0;
    } catch (const std::exception& e) {
        std::cerr << "fault_proxy: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace corvanis::monitoring_modules::test_support
